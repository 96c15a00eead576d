#include "Command.h"
#include "Console.h"
#include "Tokens.h"

namespace {

const QString name = QStringLiteral("move");

int run(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Moves a stored token to another place in the order."));
    tokens::addTokenArgument(parser);
    parser.addPositionalArgument(QStringLiteral("position"),
                                 QStringLiteral("Its new number (1 is the top)."));
    if (const int status = console::parse(parser, name, arguments, 2); status >= 0)
        return status;
    bool isNumber = false;
    const int position = parser.positionalArguments().at(1).toInt(&isNumber);
    if (!isNumber)
        return console::fail(
            name, QStringLiteral("the position must be a number: %1").arg(parser.positionalArguments().at(1)),
            console::usageError);
    const auto named = tokens::openNamed(parser.positionalArguments().first(), name);
    if (!named)
        return console::badInput;
    const auto& store = named->store;
    const companion::StoredToken* token = &named->token;
    platform::Error error;
    if (!store->move(token->id, position - 1, &error))
        return console::fail(name, error.description());
    tokens::flushAnnouncements();
    console::out() << "Moved " << token->displayName() << " to " << position << Qt::endl;
    return console::success;
}

} // namespace

Command moveCommand() {
    return {name, QStringLiteral("Moves a token to another place in the order."), run};
}
