#include "Console.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>
#include <unistd.h>

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
    return parse(parser, name, arguments, positionalCount, positionalCount);
}

int parse(QCommandLineParser& parser, const QString& name, const QStringList& arguments, int minimum,
          int maximum) {
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
    const qsizetype count = parser.positionalArguments().size();
    if (count < minimum || count > maximum) {
        err() << "marlock " << name << ": expected ";
        if (minimum == maximum)
            err() << minimum;
        else
            err() << minimum << " to " << maximum;
        err() << " argument(s), got " << count << " (see marlock " << name << " --help)" << Qt::endl;
        return usageError;
    }
    return -1;
}

int fail(const QString& command, const QString& message, int status) {
    err() << "marlock " << command << ": " << message << Qt::endl;
    return status;
}

bool outputIsTerminal() {
    return isatty(STDOUT_FILENO) == 1;
}

void printJson(const QJsonValue& value) {
    const QJsonDocument document =
        value.isArray() ? QJsonDocument(value.toArray()) : QJsonDocument(value.toObject());
    out() << QString::fromUtf8(document.toJson(QJsonDocument::Indented));
    out().flush();
}

} // namespace console
