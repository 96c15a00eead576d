// The "other process" of the cross-process tests. Speaks line by line on standard output.
//
//   notifications_helper observe COUNT NAME…  observes each NAME through otpDarwinNotificationCenter(),
//                                             says "ready", then "got <full name>" per delivery;
//                                             once every name came COUNT times and a quiet spell
//                                             passed, "total <n>".
//   notifications_helper post COUNT NAME…     observes each NAME too, posts each COUNT times and,
//                                             once its own posts came back and a quiet spell
//                                             passed, says "self <n>" and "log <n>", the number of
//                                             system-log lines the center wrote about the bus.
#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"
#include "marlockCompanionCommon/platform/runtime/SystemLog.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

#include <cstdio>
#include <vector>

namespace {

void say(const QString& line) {
    std::fputs(qPrintable(line + QLatin1Char('\n')), stdout);
    std::fflush(stdout);
}

// Runs the event loop until `condition` holds (or 10 s pass), then for a quiet spell in which
// extra, unwanted deliveries would show up.
bool runUntil(const std::function<bool()>& condition) {
    QDeadlineTimer deadline(10000);
    while (!condition() && !deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::usleep(200);
    }
    QDeadlineTimer quiet(300);
    while (!quiet.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    return condition();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const bool observe = args.value(1) == QLatin1String("observe");
    if (args.size() < 4 || (!observe && args.at(1) != QLatin1String("post")))
        return 2;
    const int count = args.at(2).toInt();
    const QStringList names = args.mid(3);

    int logLines = 0;
    platform::SystemLogCapture capture([&](const QString& line) {
        if (!line.startsWith(QLatin1String("PLXDarwinNotificationCenter:")))
            return;
        ++logLines;
        say(QStringLiteral("logged ") + line);
    });
    auto center = PLXDarwinNotificationCenter::otpDarwinNotificationCenter();
    int heard = 0;
    std::vector<PLXNotificationCenter::ObserverToken> tokens;
    for (const QString& name : names)
        tokens.push_back(
            center->addObserverForName(name, nullptr, [&](const platform::Notification& notification) {
                ++heard;
                if (observe)
                    say(QStringLiteral("got ") + notification.name);
            }));

    if (observe)
        say(QStringLiteral("ready"));
    else
        for (int i = 0; i < count; ++i)
            for (const QString& name : names)
                center->postNotificationName(name);
    const qsizetype expected = count * names.size();
    const bool complete = runUntil([&] { return heard >= expected; });
    if (observe) {
        say(QStringLiteral("total %1").arg(heard));
    } else {
        say(QStringLiteral("self %1").arg(heard));
        say(QStringLiteral("log %1").arg(logLines));
    }
    for (const auto& token : tokens)
        center->removeObserver(token.get());
    return complete ? 0 : 1;
}
