#include "Console.h"

#include <QCoreApplication>

#include <cstdio>

namespace console {

QTextStream& out() {
    static QTextStream stream(stdout);
    return stream;
}

QTextStream& err() {
    static QTextStream stream(stderr);
    return stream;
}

int parse(QCommandLineParser& parser, const QString& name, const QStringList& arguments,
          int positionalCount) {
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Shows this help."));
    parser.addOption(help);
    if (!parser.parse(QStringList{QStringLiteral("marlock ") + name} + arguments)) {
        err() << "marlock " << name << ": " << parser.errorText() << Qt::endl;
        return usageError;
    }
    if (parser.isSet(help)) {
        // helpText() names the program by the path it was started with; the command belongs there.
        QString text = parser.helpText();
        const QString program = QCoreApplication::arguments().value(0);
        const qsizetype at = text.indexOf(program);
        if (!program.isEmpty() && at >= 0 && at < text.indexOf(QLatin1Char('\n')))
            text.replace(at, program.size(), QStringLiteral("marlock ") + name);
        out() << text;
        out().flush();
        return success;
    }
    if (parser.positionalArguments().size() != positionalCount) {
        err() << "marlock " << name << ": expected " << positionalCount << " argument(s), got "
              << parser.positionalArguments().size() << " (see marlock " << name << " --help)" << Qt::endl;
        return usageError;
    }
    return -1;
}

} // namespace console
