#include "Command.h"
#include "Console.h"
#include "Tokens.h"

namespace {

const QString name = QStringLiteral("remove");

int run(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Deletes a stored token. This cannot be undone: without a copy of its key (its\n"
                       "QR code or key URI) the account's codes are lost, so --yes is required."));
    tokens::addTokenArgument(parser);
    const QCommandLineOption yes(QStringLiteral("yes"), QStringLiteral("Confirms the deletion."));
    parser.addOption(yes);
    if (const int status = console::parse(parser, name, arguments, 1); status >= 0)
        return status;
    const auto named = tokens::openNamed(parser.positionalArguments().first(), name);
    if (!named)
        return console::badInput;
    const auto& store = named->store;
    const companion::StoredToken* token = &named->token;
    if (!parser.isSet(yes))
        return console::fail(name,
                             QStringLiteral("deleting %1 cannot be undone; run again with --yes to delete it")
                                 .arg(token->displayName()),
                             console::usageError);
    platform::Error error;
    if (!store->remove(token->id, &error))
        return console::fail(name, error.description());
    tokens::flushAnnouncements();
    console::out() << "Removed " << token->displayName() << Qt::endl;
    return console::success;
}

} // namespace

Command removeCommand() {
    return {name, QStringLiteral("Deletes a stored token (needs --yes)."), run};
}
