#include "Command.h"
#include "Console.h"
#include "Tokens.h"

namespace {

const QString name = QStringLiteral("rename");

int run(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Changes the issuer or account name of a stored token."));
    tokens::addTokenArgument(parser);
    const QCommandLineOption issuer(QStringLiteral("issuer"),
                                    QStringLiteral("The new issuer (may be empty)."), QStringLiteral("name"));
    const QCommandLineOption account(QStringLiteral("account"),
                                     QStringLiteral("The new account name (may be empty)."),
                                     QStringLiteral("name"));
    parser.addOptions({issuer, account});
    if (const int status = console::parse(parser, name, arguments, 1); status >= 0)
        return status;
    if (!parser.isSet(issuer) && !parser.isSet(account))
        return console::fail(name, QStringLiteral("give --issuer, --account or both"), console::usageError);
    const auto named = tokens::openNamed(parser.positionalArguments().first(), name);
    if (!named)
        return console::badInput;
    const auto& store = named->store;
    const companion::StoredToken* token = &named->token;
    const QString newIssuer = parser.isSet(issuer) ? parser.value(issuer) : token->record.issuer;
    const QString newAccount = parser.isSet(account) ? parser.value(account) : token->record.account;
    platform::Error error;
    if (!store->rename(token->id, newIssuer, newAccount, &error))
        return console::fail(name, error.description());
    tokens::flushAnnouncements();
    console::out() << "Renamed " << token->displayName() << " to " << store->token(token->id)->displayName()
                   << Qt::endl;
    return console::success;
}

} // namespace

Command renameCommand() {
    return {name, QStringLiteral("Changes a token's issuer or account name."), run};
}
