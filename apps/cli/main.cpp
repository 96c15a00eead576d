// marlock: the tokens of this machine from the command line, for scripts and headless machines.
//
//   marlock add --qr picture.png     stores a token (also from a key URI)
//   marlock codes [--watch]          the current codes of the stored tokens
//   marlock list | show | rename | move | remove | preferences | sync | about
//   marlock demo | code | uri        codes and key URIs without storing anything
#include "Command.h"
#include "Console.h"

#include <QCoreApplication>

#include <vector>

namespace {

std::vector<Command> commands() {
    return {addCommand(),  listCommand(),   showCommand(),        codesCommand(), renameCommand(),
            moveCommand(), removeCommand(), preferencesCommand(), syncCommand(),  demoCommand(),
            codeCommand(), uriCommand(),    aboutCommand()};
}

void printUsage(QTextStream& stream) {
    stream << "Usage: marlock <command> [options]\n\nCommands:\n";
    for (const Command& command : commands())
        stream << "  " << command.name.leftJustified(12) << command.summary << '\n';
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
    if (name == QLatin1String("--version")) {
        printAbout(console::out(), false);
        return console::success;
    }
    for (const Command& command : commands())
        if (command.name == name)
            return command.run(arguments);
    console::err() << "marlock: unknown command \"" << name << "\"\n\n";
    printUsage(console::err());
    return console::usageError;
}
