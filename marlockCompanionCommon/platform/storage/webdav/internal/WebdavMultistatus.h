#pragma once

#include <QByteArray>
#include <QString>

#include <optional>
#include <vector>

// Reading a WebDAV PROPFIND reply (RFC 4918 §13, a "multistatus" document). The bytes come from
// a server, or from whatever answers at its address, so nothing in them is trusted: the reader
// refuses documents over a size or nesting bound and anything that is not well-formed XML, and
// never fails other than by saying why.
namespace platform::internal::WebdavMultistatus {

// One member reported by the server: the href as sent (percent-encoded path or URL) and the
// entity tag of its getetag property, empty when the server gave none.
struct Member {
    QString href;
    QByteArray etag;
};

// The most a reply may hold. A collection of a thousand keys with long hrefs stays well below.
inline constexpr qsizetype maximumSize = 4 * 1024 * 1024;
inline constexpr int maximumDepth = 32;
inline constexpr qsizetype maximumMembers = 20000;

// The members of a multistatus reply, each with a 2xx propstat for getetag or none at all;
// absent (with `problem` set) when the document is not one.
std::optional<std::vector<Member>> parse(const QByteArray& document, QString* problem);

// The last path segment of `href` below `collectionPath` (both percent-encoded, the collection
// ending in '/'), decoded: the resource's name. Empty for the collection itself; absent for
// anything that is not a direct member of the collection.
std::optional<QString> memberName(const QString& href, const QString& collectionPath);

// An entity tag without its weak marker "W/", for telling whether a listing shows a new version:
// Apache reports a tag as weak while its file was changed within the current second, and the
// same tag as strong a moment later, for one and the same version.
QByteArray strongForm(const QByteArray& etag);

} // namespace platform::internal::WebdavMultistatus
