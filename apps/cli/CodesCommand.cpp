#include "CodeTable.h"
#include "Command.h"
#include "Console.h"
#include "LiveView.h"
#include "Tokens.h"

#include "marlockCommon/TimeSource.h"

#include <cmath>

namespace {

const QString name = QStringLiteral("codes");

int run(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Prints the current codes of the stored tokens."));
    const QCommandLineOption time(
        QStringLiteral("time"), QStringLiteral("Computes the codes at <seconds> since 1970 instead of now."),
        QStringLiteral("seconds"));
    const QCommandLineOption watch(QStringLiteral("watch"),
                                   QStringLiteral("Keeps showing the codes as they change, until Ctrl-C."));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Prints JSON for scripts."));
    parser.addOptions({time, watch, json});
    if (const int status = console::parse(parser, name, arguments, 0); status >= 0)
        return status;
    if (parser.isSet(watch) && (parser.isSet(time) || parser.isSet(json)))
        return console::fail(name, QStringLiteral("--watch shows the codes of now, as text"),
                             console::usageError);

    double now = 0;
    if (parser.isSet(time)) {
        bool ok = false;
        now = parser.value(time).toDouble(&ok);
        if (!ok || !std::isfinite(now) || now < 0)
            return console::fail(
                name, QStringLiteral("the time must be seconds since 1970: %1").arg(parser.value(time)));
    } else {
        now = timeIntervalSince1970();
    }

    const auto store = tokens::open(name);
    if (!store)
        return console::badInput;
    if (parser.isSet(watch))
        return LiveView(*store).exec();

    const auto rows = codetable::rows(store->tokens(), now);
    if (parser.isSet(json)) {
        console::printJson(codetable::json(rows));
        return console::success;
    }
    if (rows.empty()) {
        console::out() << "No tokens yet: add one with marlock add." << Qt::endl;
        return console::success;
    }
    for (const QString& line : codetable::lines(rows, false, false, 0))
        console::out() << line << '\n';
    console::out().flush();
    return console::success;
}

} // namespace

Command codesCommand() {
    return {name, QStringLiteral("Prints the current codes of the stored tokens (--watch: live)."), run};
}
