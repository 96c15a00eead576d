// The other process of the shared-preferences test. It uses the shared manager of the
// application group named by its environment, and:
//  - prints "ready" once it observes both preference notifications;
//  - on each notification, reads the preferences at once and prints
//    "<bare name> separator=<separator> color=<0|1>";
//  - reads commands on standard input until it closes, then returns from main: "separator
//    <text>", "color <0|1>", "reset", and "unsynced <separator>" and "unsynced-animate <0|1>",
//    which set without synchronizing.
#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"
#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"
#include "marlockCompanionCommon/preferences/ViewPreferencesManager.h"

#include <QCoreApplication>

#include <cstdio>
#include <iostream>
#include <string>
#include <thread>

namespace {

void say(const QString& line) {
    std::fputs(qPrintable(line + QLatin1Char('\n')), stdout);
    std::fflush(stdout);
}

void runCommand(const QString& line) {
    ViewPreferencesManager* manager = ViewPreferencesManager::sharedManager();
    const QString argument = line.section(QLatin1Char(' '), 1);
    if (line.startsWith(QLatin1String("separator ")))
        manager->setSeparatorString(argument);
    else if (line.startsWith(QLatin1String("color ")))
        manager->setChangeColorWhenCodeWillChange(argument == QLatin1String("1"));
    else if (line.startsWith(QLatin1String("unsynced ")))
        manager->setSeparatorString(argument, false);
    else if (line.startsWith(QLatin1String("unsynced-animate ")))
        manager->setAnimateCodeChanges(argument == QLatin1String("1"), false);
    else if (line == QLatin1String("reset"))
        manager->resetToDefault();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ViewPreferencesManager* manager = ViewPreferencesManager::sharedManager();
    auto center = PLXDarwinNotificationCenter::otpDarwinNotificationCenter();
    for (const QString& name : {VPMSeparatorStringDidChangeDarwinNotification,
                                VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification})
        (void)center->addObserverForName(name, nullptr, [manager](const platform::Notification& n) {
            say(QStringLiteral("%1 separator=%2 color=%3")
                    .arg(n.name.section(QLatin1Char('.'), -1), manager->getSeparatorString())
                    .arg(manager->getChangeColorWhenCodeWillChange() ? 1 : 0));
        });

    // Commands are read on a thread of their own and carried out on the main thread.
    std::thread([] {
        for (std::string line; std::getline(std::cin, line);)
            platform::dispatchAsyncMain([line = QString::fromStdString(line)] { runCommand(line); });
        platform::dispatchAsyncMain([] { QCoreApplication::quit(); });
    }).detach();
    say(QStringLiteral("ready"));
    return app.exec();
}
