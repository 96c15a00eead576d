#include "marlockCompanionCommon/notifications/internal/DBusDarwinNotifyCenter.h"

#include "marlockCompanionCommon/notifications/internal/NotifyObserverRegistry.h"
#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"
#include "marlockCompanionCommon/platform/runtime/SystemLog.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>

namespace notifications::internal {
namespace {

const QString kPath = QStringLiteral("/org/marlock/Notify");
const QString kInterface = QStringLiteral("org.marlock.Notify");
const QString kMember = QStringLiteral("Posted");
const QString kRule =
    QStringLiteral("type='signal',path='/org/marlock/Notify',interface='org.marlock.Notify',member='Posted'");

} // namespace

// Receives the bus's "Posted" signals on the main thread and fans them out.
class DBusSignalReceiver : public QObject {
    Q_OBJECT
public:
    explicit DBusSignalReceiver(std::weak_ptr<NotifyObserverRegistry> registry)
        : registry_(std::move(registry)) {}

public Q_SLOTS:
    void posted(const QString& name) {
        if (auto registry = registry_.lock())
            registry->deliver(name);
    }

private:
    std::weak_ptr<NotifyObserverRegistry> registry_;
};

DBusDarwinNotifyCenter::DBusDarwinNotifyCenter()
    : registry_(std::make_shared<NotifyObserverRegistry>(this)) {
    receiver_ = new DBusSignalReceiver(registry_);
    // Signals arrive on the receiver's thread; the main thread is where deliveries go anyway.
    if (QCoreApplication* app = QCoreApplication::instance())
        receiver_->moveToThread(app->thread());
    QDBusConnection bus = QDBusConnection::sessionBus();
    onBus_ = bus.isConnected();
    if (!onBus_) {
        platform::systemLog(QStringLiteral("PLXDarwinNotificationCenter: no D-Bus session bus; notifications "
                                           "are delivered in this process only, other processes will not "
                                           "hear them"));
        return;
    }
    // QtDBus hands matching signals to the receiver, but sends its own AddMatch for them without
    // waiting for the answer. The same rule is therefore added here once more and the reply
    // awaited: it says whether the bus took the rule, and once it is in, the bus applies the rule
    // to every later post. A duplicate rule costs nothing: the bus sends each signal once.
    const bool hooked = bus.connect(QString(), kPath, kInterface, kMember, receiver_, SLOT(posted(QString)));
    QDBusMessage addMatch = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("AddMatch"));
    addMatch << kRule;
    const QDBusMessage reply = bus.call(addMatch);
    hearsBus_ = hooked && reply.type() == QDBusMessage::ReplyMessage;
    if (!hearsBus_)
        platform::systemLog(QStringLiteral("PLXDarwinNotificationCenter: the session bus refused to pass on "
                                           "notifications (%1); this process hears its own notifications "
                                           "only, not those of other processes")
                                .arg(hooked ? reply.errorName() : QStringLiteral("no signal hook")));
}

DBusDarwinNotifyCenter::~DBusDarwinNotifyCenter() {
    // QtDBus drops a receiver's connections when the receiver is destroyed.
    receiver_->deleteLater();
}

void DBusDarwinNotifyCenter::addObserver(void* observer, Callback callback, const QString& name) {
    registry_->add(observer, callback, name);
}

void DBusDarwinNotifyCenter::removeObserver(void* observer, const QString& name) {
    registry_->remove(observer, name);
}

void DBusDarwinNotifyCenter::removeEveryObserver(void* observer) {
    registry_->removeEvery(observer);
}

void DBusDarwinNotifyCenter::postNotification(const QString& name) {
    if (onBus_) {
        QDBusMessage signal = QDBusMessage::createSignal(kPath, kInterface, kMember);
        signal << name;
        QDBusConnection::sessionBus().send(signal);
    }
    // What the bus does not bring back, this process delivers to itself.
    if (!hearsBus_)
        deliverHere(name);
}

void DBusDarwinNotifyCenter::deliverHere(const QString& name) const {
    std::weak_ptr<NotifyObserverRegistry> registry = registry_;
    platform::dispatchAsyncMain([registry, name] {
        if (auto alive = registry.lock())
            alive->deliver(name);
    });
}

QStringList DBusDarwinNotifyCenter::observedNames(const void* observer) const {
    return registry_->observedNames(observer);
}

} // namespace notifications::internal

#include "DBusDarwinNotifyCenter.moc"
