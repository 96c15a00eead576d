// The receiving process of the latency benchmark. Prints "ready" once it observes, then, for
// every notification it hears, the monotonic clock in nanoseconds at the moment its code runs.
//
//   notifications_latency_receiver baseline FULLNAME   plain QtDBus: arg0 match, slot
//   notifications_latency_receiver library NAME        otpDarwinNotificationCenter() block
#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>

#include <cstdio>
#include <ctime>

namespace {

void printNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    std::printf("%lld\n", static_cast<long long>(now.tv_sec) * 1'000'000'000LL + now.tv_nsec);
    std::fflush(stdout);
}

} // namespace

class BareReceiver : public QObject {
    Q_OBJECT
public Q_SLOTS:
    void posted(const QString&) { printNow(); }
};

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 3)
        return 2;
    BareReceiver bare;
    PLXNotificationCenter::ObserverToken token;
    if (args.at(1) == QLatin1String("baseline")) {
        QDBusConnection bus = QDBusConnection::sessionBus();
        bus.connect(QString(), "/org/marlock/Notify", "org.marlock.Notify", "Posted", {args.at(2)}, "s",
                    &bare, SLOT(posted(QString)));
        // The round trip makes sure the bus applied the match rule before "ready".
        bus.call(QDBusMessage::createMethodCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                "org.freedesktop.DBus", "GetId"));
    } else {
        token = PLXDarwinNotificationCenter::otpDarwinNotificationCenter()->addObserverForName(
            args.at(2), nullptr, [](const platform::Notification&) { printNow(); });
    }
    std::printf("ready\n");
    std::fflush(stdout);
    return app.exec();
}

#include "LatencyReceiver.moc"
