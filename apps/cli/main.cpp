// marlock: computes and exchanges one-time-password tokens from the command line.
//
//   marlock demo                     codes of built-in sample tokens
//   marlock code <otpauth-uri>       the current code of a key
//   marlock uri --issuer … --secret  the key URI of a token
#include "Command.h"
#include "Console.h"

#include <QCoreApplication>

#include <vector>

namespace {

std::vector<Command> commands() {
    return {demoCommand(), codeCommand(), uriCommand()};
}

void printUsage(QTextStream& stream) {
    stream << "Usage: marlock <command> [options]\n\nCommands:\n";
    for (const Command& command : commands())
        stream << "  " << command.name.leftJustified(8) << command.summary << '\n';
    stream << "\nRun \"marlock <command> --help\" for a command's options.\n";
    stream.flush();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("marlock"));
    QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.isEmpty()) {
        printUsage(console::err());
        return console::usageError;
    }
    const QString name = arguments.takeFirst();
    if (name == QLatin1String("--help") || name == QLatin1String("-h") || name == QLatin1String("help")) {
        printUsage(console::out());
        return console::success;
    }
    for (const Command& command : commands())
        if (command.name == name)
            return command.run(arguments);
    console::err() << "marlock: unknown command \"" << name << "\"\n\n";
    printUsage(console::err());
    return console::usageError;
}
