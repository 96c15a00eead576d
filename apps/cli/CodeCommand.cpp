#include "Command.h"
#include "Console.h"

#include "marlockCommon/KeyURI.h"
#include "marlockCommon/OTPToken.h"
#include "marlockCommon/TokenError.h"

using namespace marlockCommon;

namespace {

int run(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Prints the current code of a key URI."));
    parser.addPositionalArgument(QStringLiteral("uri"), QStringLiteral("The key, as an otpauth:// URI."));
    const QCommandLineOption time(QStringLiteral("time"),
                                  QStringLiteral("Computes the code at <seconds> since 1970 instead of now."),
                                  QStringLiteral("seconds"));
    parser.addOption(time);
    if (const int status = console::parse(parser, QStringLiteral("code"), arguments, 1); status >= 0)
        return status;

    try {
        const auto token = KeyURI::parse(parser.positionalArguments().first()).toOTPToken();
        QString code;
        if (parser.isSet(time)) {
            bool ok = false;
            const double seconds = parser.value(time).toDouble(&ok);
            if (!ok)
                throw TokenError(TokenError::Code::invalidTime, parser.value(time));
            code = token->password(seconds);
        } else {
            code = token->password();
        }
        console::out() << code << Qt::endl;
        return console::success;
    } catch (const TokenError& error) {
        console::err() << "marlock code: " << error.message() << Qt::endl;
        return console::badInput;
    }
}

} // namespace

Command codeCommand() {
    return {QStringLiteral("code"), QStringLiteral("Prints the current code of a key URI."), run};
}
