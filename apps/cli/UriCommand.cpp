#include "Command.h"
#include "Console.h"

#include "marlockCommon/Base32.h"
#include "marlockCommon/KeyURI.h"
#include "marlockCommon/TokenError.h"

using namespace marlockCommon;

namespace {

// A whole number from an option, or TokenError(`code`) naming the text.
qint64 number(const QString& text, TokenError::Code code) {
    bool ok = false;
    const qint64 value = text.toLongLong(&ok);
    if (!ok || value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max())
        throw TokenError(code, text);
    return value;
}

int run(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Prints the key URI of a token, as authenticator apps read it."));
    auto option = [&parser](const QString& name, const QString& description, const QString& value) {
        QCommandLineOption created(name, description, value);
        parser.addOption(created);
        return created;
    };
    const auto issuer =
        option(QStringLiteral("issuer"), QStringLiteral("The service."), QStringLiteral("name"));
    const auto account = option(QStringLiteral("account"), QStringLiteral("The account at the service."),
                                QStringLiteral("name"));
    const auto secret = option(QStringLiteral("secret"), QStringLiteral("The key in Base32 (required)."),
                               QStringLiteral("base32"));
    const auto type =
        option(QStringLiteral("type"), QStringLiteral("totp (default) or hotp."), QStringLiteral("type"));
    const auto algorithm =
        option(QStringLiteral("algorithm"), QStringLiteral("SHA1 (default), SHA256 or SHA512."),
               QStringLiteral("name"));
    const auto digits =
        option(QStringLiteral("digits"), QStringLiteral("6 (default), 7 or 8."), QStringLiteral("n"));
    const auto period = option(QStringLiteral("period"), QStringLiteral("Seconds per code (default 30)."),
                               QStringLiteral("seconds"));
    const auto counter = option(QStringLiteral("counter"), QStringLiteral("The HOTP counter (default 0)."),
                                QStringLiteral("n"));
    if (const int status = console::parse(parser, QStringLiteral("uri"), arguments, 0); status >= 0)
        return status;

    try {
        TokenRecord record;
        record.issuer = parser.value(issuer);
        record.account = parser.value(account);
        if (!parser.isSet(secret))
            throw TokenError(TokenError::Code::missingSecret);
        record.secret = Base32::decode(parser.value(secret));
        if (parser.isSet(type)) {
            const auto known = typeFromName(parser.value(type));
            if (!known)
                throw TokenError(TokenError::Code::unknownType, parser.value(type));
            record.type = *known;
        }
        if (parser.isSet(algorithm)) {
            const auto known = algorithmFromName(parser.value(algorithm));
            if (!known)
                throw TokenError(TokenError::Code::invalidAlgorithm, parser.value(algorithm));
            record.algorithm = *known;
        }
        if (parser.isSet(digits))
            record.digits = static_cast<int>(number(parser.value(digits), TokenError::Code::invalidDigits));
        if (parser.isSet(period))
            record.period = static_cast<int>(number(parser.value(period), TokenError::Code::invalidPeriod));
        if (parser.isSet(counter)) {
            bool ok = false;
            record.counter = parser.value(counter).toULongLong(&ok);
            if (!ok)
                throw TokenError(TokenError::Code::invalidCounter, parser.value(counter));
        }
        console::out() << KeyURI::format(record) << Qt::endl;
        return console::success;
    } catch (const TokenError& error) {
        console::err() << "marlock uri: " << error.message() << Qt::endl;
        return console::badInput;
    }
}

} // namespace

Command uriCommand() {
    return {QStringLiteral("uri"), QStringLiteral("Prints the key URI of a token."), run};
}
