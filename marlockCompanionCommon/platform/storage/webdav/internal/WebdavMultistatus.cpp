#include "marlockCompanionCommon/platform/storage/webdav/internal/WebdavMultistatus.h"

#include <QUrl>
#include <QXmlStreamReader>

namespace platform::internal::WebdavMultistatus {
namespace {

const QString dav = QStringLiteral("DAV:");

bool isDav(const QXmlStreamReader& xml, QLatin1StringView name) {
    return xml.namespaceUri() == dav && xml.name() == name;
}

// "HTTP/1.1 200 OK" → true. Anything unreadable is not a success.
bool isSuccessStatus(const QString& statusLine) {
    const QStringList parts = statusLine.simplified().split(QLatin1Char(' '));
    return parts.size() >= 2 && parts.at(1).size() == 3 && parts.at(1).startsWith(QLatin1Char('2'));
}

// What one <response> holds while it is being read.
struct Response {
    QString href;
    QByteArray etag;
    int hrefCount = 0;
};

} // namespace

std::optional<std::vector<Member>> parse(const QByteArray& document, QString* problem) {
    auto fail = [problem](const QString& why) -> std::optional<std::vector<Member>> {
        if (problem)
            *problem = why;
        return std::nullopt;
    };
    if (document.size() > maximumSize)
        return fail(QStringLiteral("the reply is over %1 bytes").arg(maximumSize));
    if (document.trimmed().isEmpty())
        return fail(QStringLiteral("the reply is empty"));

    QXmlStreamReader xml(document);
    std::vector<Member> members;
    std::optional<Response> response;
    // Inside a <propstat>: the etag it carries and whether its status line says success.
    std::optional<QByteArray> propstatEtag;
    bool propstatOk = false;
    int depth = 0;
    bool sawRoot = false;

    while (!xml.atEnd()) {
        const QXmlStreamReader::TokenType token = xml.readNext();
        if (token == QXmlStreamReader::DTD || token == QXmlStreamReader::EntityReference)
            return fail(QStringLiteral("the reply declares a document type or entities"));
        if (token == QXmlStreamReader::EndElement) {
            --depth;
            if (isDav(xml, QLatin1StringView("propstat")) && response) {
                if (propstatOk && propstatEtag)
                    response->etag = *propstatEtag;
                propstatEtag.reset();
            } else if (isDav(xml, QLatin1StringView("response")) && response) {
                if (response->hrefCount != 1)
                    return fail(QStringLiteral("a response names %1 hrefs").arg(response->hrefCount));
                members.push_back({response->href, response->etag});
                if (qsizetype(members.size()) > maximumMembers)
                    return fail(QStringLiteral("the reply lists over %1 members").arg(maximumMembers));
                response.reset();
            }
            continue;
        }
        if (token != QXmlStreamReader::StartElement)
            continue;
        if (++depth > maximumDepth)
            return fail(QStringLiteral("the reply nests deeper than %1 elements").arg(maximumDepth));
        if (!sawRoot) {
            if (!isDav(xml, QLatin1StringView("multistatus")))
                return fail(QStringLiteral("the reply is not a multistatus document"));
            sawRoot = true;
        } else if (isDav(xml, QLatin1StringView("response"))) {
            if (response || depth != 2)
                return fail(QStringLiteral("a response is out of place"));
            response.emplace();
        } else if (response && isDav(xml, QLatin1StringView("href")) && depth == 3) {
            response->href = xml.readElementText(QXmlStreamReader::ErrorOnUnexpectedElement).trimmed();
            ++response->hrefCount;
            --depth; // readElementText consumed the end element
        } else if (response && isDav(xml, QLatin1StringView("propstat"))) {
            propstatEtag.emplace();
            propstatOk = false;
        } else if (propstatEtag && isDav(xml, QLatin1StringView("getetag"))) {
            *propstatEtag =
                xml.readElementText(QXmlStreamReader::ErrorOnUnexpectedElement).trimmed().toUtf8();
            --depth;
        } else if (propstatEtag && isDav(xml, QLatin1StringView("status"))) {
            propstatOk = isSuccessStatus(xml.readElementText(QXmlStreamReader::ErrorOnUnexpectedElement));
            --depth;
        }
    }
    if (xml.hasError())
        return fail(
            QStringLiteral("malformed XML at line %1: %2").arg(xml.lineNumber()).arg(xml.errorString()));
    if (!sawRoot)
        return fail(QStringLiteral("the reply holds no element"));
    return members;
}

std::optional<QString> memberName(const QString& href, const QString& collectionPath) {
    // An href is an absolute URL or an absolute path (RFC 4918 §8.3); compare decoded paths, since
    // servers differ in which characters they leave unencoded.
    const QUrl url(href, QUrl::StrictMode);
    if (!url.isValid() || (!url.isRelative() && url.scheme() != QLatin1String("https") &&
                           url.scheme() != QLatin1String("http")))
        return std::nullopt;
    const QString path = QUrl::fromPercentEncoding(url.path(QUrl::FullyEncoded).toUtf8());
    const QString collection = QUrl::fromPercentEncoding(collectionPath.toUtf8());
    if (!path.startsWith(collection))
        return std::nullopt;
    const QString rest = path.mid(collection.size());
    if (rest.contains(QLatin1Char('/')))
        return std::nullopt; // a sub-collection or something deeper: never a key
    return rest;
}

QByteArray strongForm(const QByteArray& etag) {
    return etag.startsWith("W/") ? etag.mid(2) : etag;
}

} // namespace platform::internal::WebdavMultistatus
