#include "marlockCommon/KeyURI.h"

#include "marlockCommon/Base32.h"
#include "marlockCommon/TokenError.h"

#include <QStringDecoder>
#include <QUrl>

#include <limits>
#include <optional>

namespace marlockCommon::KeyURI {

namespace {

using Code = TokenError::Code;

const QString scheme = QStringLiteral("otpauth");
constexpr int defaultPeriod = 30;

int hexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Strict percent-decoding: every "%" starts a two-digit hex escape and the bytes are UTF-8.
QString percentDecoded(QStringView part) {
    const QByteArray raw = part.toUtf8();
    QByteArray bytes;
    bytes.reserve(raw.size());
    for (qsizetype i = 0; i < raw.size(); ++i) {
        if (raw[i] != '%') {
            bytes += raw[i];
            continue;
        }
        const int high = i + 2 < raw.size() ? hexValue(raw[i + 1]) : -1;
        const int low = high >= 0 ? hexValue(raw[i + 2]) : -1;
        if (low < 0)
            throw TokenError(Code::invalidEncoding, QStringLiteral("bad escape in \"%1\"").arg(part));
        bytes += static_cast<char>(high * 16 + low);
        i += 2;
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        throw TokenError(Code::invalidEncoding, QStringLiteral("not UTF-8: \"%1\"").arg(part));
    return text;
}

QString percentEncoded(const QString& text) {
    return QString::fromLatin1(QUrl::toPercentEncoding(text));
}

// A plain unsigned decimal number (no sign, spaces or exponent); absent otherwise or on overflow.
std::optional<quint64> unsignedNumber(const QString& text) {
    if (text.isEmpty() || text.size() > 20)
        return std::nullopt;
    for (const QChar c : text)
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return std::nullopt;
    bool ok = false;
    const quint64 value = text.toULongLong(&ok);
    return ok ? std::optional(value) : std::nullopt;
}

struct Query {
    std::optional<QString> secret, issuer, algorithm, digits, period, counter;
};

Query parseQuery(QStringView query) {
    Query result;
    const std::pair<QString, std::optional<QString>*> known[] = {
        {QStringLiteral("secret"), &result.secret},       {QStringLiteral("issuer"), &result.issuer},
        {QStringLiteral("algorithm"), &result.algorithm}, {QStringLiteral("digits"), &result.digits},
        {QStringLiteral("period"), &result.period},       {QStringLiteral("counter"), &result.counter},
    };
    for (const QStringView pair : query.split(QLatin1Char('&'))) {
        if (pair.isEmpty())
            continue;
        const qsizetype equals = pair.indexOf(QLatin1Char('='));
        const QString name = percentDecoded(equals < 0 ? pair : pair.left(equals));
        const QString value = equals < 0 ? QString() : percentDecoded(pair.mid(equals + 1));
        for (const auto& [knownName, slot] : known) {
            if (name.compare(knownName, Qt::CaseInsensitive) != 0)
                continue;
            if (slot->has_value())
                throw TokenError(Code::duplicateParameter, knownName);
            *slot = value;
        }
    }
    return result;
}

// Splits the raw label into its raw issuer prefix (absent when there is none) and raw account.
std::pair<std::optional<QStringView>, QStringView> splitLabel(QStringView label,
                                                              const std::optional<QString>& issuer) {
    qsizetype separator = label.indexOf(QLatin1Char(':'));
    qsizetype width = 1;
    if (separator < 0 && issuer) {
        // Some apps encode the separator too; trust that only when the issuer confirms it, so an
        // account name with an encoded colon stays whole.
        const qsizetype encoded = label.indexOf(QLatin1String("%3A"), 0, Qt::CaseInsensitive);
        if (encoded >= 0 && percentDecoded(label.left(encoded)) == *issuer) {
            separator = encoded;
            width = 3;
        }
    }
    if (separator < 0)
        return {std::nullopt, label};
    QStringView account = label.mid(separator + width);
    while (account.startsWith(QLatin1Char(' ')))
        account = account.mid(1);
    return {label.left(separator), account};
}

} // namespace

TokenRecord parse(const QString& uri) {
    const QString text = uri.trimmed();
    const qsizetype colon = text.indexOf(QLatin1Char(':'));
    if (colon <= 0)
        throw TokenError(Code::invalidURI, QStringLiteral("no scheme"));
    if (text.left(colon).compare(scheme, Qt::CaseInsensitive) != 0)
        throw TokenError(Code::unsupportedScheme, text.left(colon));
    QStringView rest = QStringView(text).mid(colon + 1);
    if (!rest.startsWith(QLatin1String("//")))
        throw TokenError(Code::invalidURI, QStringLiteral("no \"//\" after the scheme"));
    rest = rest.mid(2);

    const qsizetype fragment = rest.indexOf(QLatin1Char('#'));
    if (fragment >= 0)
        rest = rest.left(fragment);
    const qsizetype question = rest.indexOf(QLatin1Char('?'));
    const QStringView query = question < 0 ? QStringView() : rest.mid(question + 1);
    const QStringView path = question < 0 ? rest : rest.left(question);
    const qsizetype slash = path.indexOf(QLatin1Char('/'));
    const QStringView typeText = slash < 0 ? path : path.left(slash);
    const QStringView label = slash < 0 ? QStringView() : path.mid(slash + 1);

    TokenRecord record;
    const auto type = typeFromName(typeText.toString());
    if (!type)
        throw TokenError(Code::unknownType, typeText.toString());
    record.type = *type;

    const Query parameters = parseQuery(query);
    const auto [prefix, account] = splitLabel(label, parameters.issuer);
    record.account = percentDecoded(account);
    if (parameters.issuer)
        record.issuer = *parameters.issuer;
    else if (prefix)
        record.issuer = percentDecoded(*prefix);

    if (!parameters.secret)
        throw TokenError(Code::missingSecret);
    record.secret = Base32::decode(*parameters.secret);
    if (record.secret.isEmpty())
        throw TokenError(Code::emptySecret);

    if (parameters.algorithm) {
        const auto algorithm = algorithmFromName(*parameters.algorithm);
        if (!algorithm)
            throw TokenError(Code::invalidAlgorithm, *parameters.algorithm);
        record.algorithm = *algorithm;
    }
    if (parameters.digits) {
        const auto digits = unsignedNumber(*parameters.digits);
        if (!digits || *digits < minimumDigits || *digits > maximumDigits)
            throw TokenError(Code::invalidDigits, *parameters.digits);
        record.digits = static_cast<int>(*digits);
    }
    if (parameters.period) {
        const auto period = unsignedNumber(*parameters.period);
        if (!period || *period < 1 || *period > static_cast<quint64>(std::numeric_limits<int>::max()))
            throw TokenError(Code::invalidPeriod, *parameters.period);
        record.period = static_cast<int>(*period);
    }
    if (parameters.counter) {
        const auto counter = unsignedNumber(*parameters.counter);
        if (!counter)
            throw TokenError(Code::invalidCounter, *parameters.counter);
        record.counter = *counter;
    } else if (record.type == OTPType::hotp) {
        throw TokenError(Code::missingCounter);
    }
    return record;
}

QString format(const TokenRecord& record) {
    record.validate();
    QString label = percentEncoded(record.account);
    if (!record.issuer.isEmpty())
        label = percentEncoded(record.issuer) + QLatin1Char(':') + label;
    QString uri = scheme + QStringLiteral("://") + typeName(record.type) + QLatin1Char('/') + label +
                  QStringLiteral("?secret=") + Base32::encode(record.secret, false);
    if (!record.issuer.isEmpty())
        uri += QStringLiteral("&issuer=") + percentEncoded(record.issuer);
    uri += QStringLiteral("&algorithm=") + algorithmName(record.algorithm);
    uri += QStringLiteral("&digits=") + QString::number(record.digits);
    if (record.type == OTPType::totp || record.period != defaultPeriod)
        uri += QStringLiteral("&period=") + QString::number(record.period);
    if (record.type == OTPType::hotp || record.counter != 0)
        uri += QStringLiteral("&counter=") + QString::number(record.counter);
    return uri;
}

} // namespace marlockCommon::KeyURI
