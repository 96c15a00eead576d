// The other process of the shared-preferences test. It uses the shared manager of the
// application group named by its environment, and:
//  - prints "ready" once it observes both preference notifications;
//  - on each notification, takes in the store's changes and prints
//    "<bare name> separator=<separator> color=<0|1>";
//  - reads commands on standard input: "separator <text>", "color <0|1>", "quit".
#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"
#include "marlockCompanionCommon/platform/Identity.h"
#include "marlockCompanionCommon/platform/UserDefaults.h"
#include "marlockCompanionCommon/preferences/ViewPreferencesManager.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTextStream>

#include <cstdio>
#include <unistd.h>

namespace {

void say(const QString& line) {
    std::fputs(qPrintable(line + QLatin1Char('\n')), stdout);
    std::fflush(stdout);
}

void runCommand(const QString& line) {
    ViewPreferencesManager* manager = ViewPreferencesManager::sharedManager();
    const QString command = line.section(QLatin1Char(' '), 0, 0);
    const QString argument = line.section(QLatin1Char(' '), 1);
    if (command == QLatin1String("separator"))
        manager->setSeparatorString(argument);
    else if (command == QLatin1String("color"))
        manager->setChangeColorWhenCodeWillChange(argument == QLatin1String("1"));
    else if (command == QLatin1String("quit"))
        QCoreApplication::quit();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ViewPreferencesManager* manager = ViewPreferencesManager::sharedManager();
    auto center = PLXDarwinNotificationCenter::otpDarwinNotificationCenter();
    for (const QString& name : {VPMSeparatorStringDidChangeDarwinNotification,
                                VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification})
        (void)center->addObserverForName(name, nullptr, [manager](const platform::Notification& n) {
            (void)platform::UserDefaults::suiteNamed(platform::Identity::applicationGroup())->synchronize();
            say(QStringLiteral("%1 separator=%2 color=%3")
                    .arg(n.name.section(QLatin1Char('.'), -1), manager->getSeparatorString())
                    .arg(manager->getChangeColorWhenCodeWillChange() ? 1 : 0));
        });

    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QByteArray pending;
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char buffer[512];
        const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (n <= 0) {
            QCoreApplication::quit();
            return;
        }
        pending.append(buffer, n);
        for (qsizetype end; (end = pending.indexOf('\n')) >= 0; pending.remove(0, end + 1))
            runCommand(QString::fromUtf8(pending.left(end)));
    });
    say(QStringLiteral("ready"));
    return app.exec();
}
