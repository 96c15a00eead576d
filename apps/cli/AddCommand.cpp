#include "Command.h"
#include "Console.h"
#include "Tokens.h"

#include "common/TokenImport.h"

#include <QFile>

namespace {

const QString name = QStringLiteral("add");

int run(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Stores a token in this machine's keyring, from its key URI or a QR code picture.\n"
                       "A key URI given as an argument shows in the process list and the shell's\n"
                       "history: prefer \"-\" (read from standard input) or --qr."));
    parser.addPositionalArgument(
        QStringLiteral("uri"),
        QStringLiteral("The key as an otpauth:// URI, or - to read it from standard input."));
    const QCommandLineOption qr(QStringLiteral("qr"),
                                QStringLiteral("Reads the key from the QR code in <image>."),
                                QStringLiteral("image"));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Prints the new token as JSON."));
    parser.addOption(qr);
    parser.addOption(json);
    if (const int status = console::parse(parser, name, arguments, 0, 1); status >= 0)
        return status;
    const bool fromImage = parser.isSet(qr);
    if (fromImage == (parser.positionalArguments().size() == 1))
        return console::fail(name,
                             QStringLiteral("give either a key URI or --qr <image> (see marlock add --help)"),
                             console::usageError);

    marlockCommon::TokenRecord record;
    try {
        if (fromImage) {
            record = companion::tokenFromImageFile(parser.value(qr));
        } else if (parser.positionalArguments().first() == QLatin1String("-")) {
            QFile input;
            if (!input.open(stdin, QIODevice::ReadOnly))
                return console::fail(name, QStringLiteral("cannot read standard input"));
            record = companion::tokenFromText(QString::fromUtf8(input.readAll()));
        } else {
            record = companion::tokenFromText(parser.positionalArguments().first());
        }
    } catch (const companion::ImportError& error) {
        return console::fail(name, error.message());
    }

    const auto store = tokens::open(name);
    if (!store)
        return console::badInput;
    platform::Error error;
    const auto id = store->add(record, &error);
    if (!id)
        return console::fail(name, error.description());
    tokens::flushAnnouncements();
    const auto added = *store->token(*id);
    const int position = tokens::position(*store, *id);
    if (parser.isSet(json))
        console::printJson(tokens::toJson(added, position));
    else
        console::out() << "Added " << position << ". " << added.displayName() << Qt::endl;
    return console::success;
}

} // namespace

Command addCommand() {
    return {name, QStringLiteral("Stores a token, from a key URI or a QR code picture."), run};
}
