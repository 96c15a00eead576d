#include "Command.h"
#include "Console.h"
#include "Tokens.h"

#include "common/QrCode.h"

#include "marlockCommon/KeyURI.h"

namespace {

const QString name = QStringLiteral("show");

int run(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Shows one stored token. Its key is shown only when asked for: --uri prints the\n"
                       "key URI and --qr draws it as a QR code for a phone to scan; both hold the secret."));
    tokens::addTokenArgument(parser);
    const QCommandLineOption uri(QStringLiteral("uri"),
                                 QStringLiteral("Also prints the key URI (holds the secret)."));
    const QCommandLineOption qr(QStringLiteral("qr"),
                                QStringLiteral("Also draws the key URI as a QR code (holds the secret)."));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Prints JSON for scripts."));
    parser.addOptions({uri, qr, json});
    if (const int status = console::parse(parser, name, arguments, 1); status >= 0)
        return status;
    if (parser.isSet(json) && parser.isSet(qr))
        return console::fail(name, QStringLiteral("--qr draws on a terminal; with --json use --uri"),
                             console::usageError);
    const auto named = tokens::openNamed(parser.positionalArguments().first(), name);
    if (!named)
        return console::badInput;
    const auto& store = named->store;
    const companion::StoredToken* token = &named->token;
    const int position = tokens::position(*store, token->id);

    if (parser.isSet(json)) {
        console::printJson(tokens::toJson(*token, position, parser.isSet(uri)));
        return console::success;
    }
    auto& out = console::out();
    out << "Issuer:    " << token->record.issuer << '\n'
        << "Account:   " << token->record.account << '\n'
        << "Kind:      " << tokens::kind(token->record) << '\n'
        << "Position:  " << position << '\n'
        << "Id:        " << token->id << '\n';
    const QString keyURI = marlockCommon::KeyURI::format(token->record);
    if (parser.isSet(uri))
        out << "Key URI:   " << keyURI << '\n';
    if (parser.isSet(qr)) {
        const auto drawing = companion::QrCode::terminalText(keyURI, console::outputIsTerminal());
        if (!drawing) {
            out.flush();
            return console::fail(name, QStringLiteral("the key URI is too long for a QR code; use --uri"));
        }
        out << '\n' << *drawing;
    }
    out.flush();
    return console::success;
}

} // namespace

Command showCommand() {
    return {name, QStringLiteral("Shows a stored token (its key only when asked)."), run};
}
