#include "marlockCompanionCommon/notifications/internal/DBusDarwinNotifyCenter.h"

#include "marlockCompanionCommon/notifications/internal/NotifyObserverRegistry.h"
#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"
#include "marlockCompanionCommon/platform/runtime/SystemLog.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QThread>

namespace notifications::internal {
namespace {

const QString kPath = QStringLiteral("/org/marlock/Notify");
const QString kInterface = QStringLiteral("org.marlock.Notify");
const QString kMember = QStringLiteral("Posted");

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
    : registry_(std::make_shared<NotifyObserverRegistry>(this)) {}

DBusDarwinNotifyCenter::~DBusDarwinNotifyCenter() {
    // QtDBus drops a receiver's connections and match rules when the receiver is destroyed.
    if (receiver_)
        receiver_->deleteLater();
}

void DBusDarwinNotifyCenter::joinBusOnce() {
    std::call_once(joined_, [this] {
        QCoreApplication* app = QCoreApplication::instance();
        receiver_ = new DBusSignalReceiver(registry_);
        // Signals arrive on the receiver's thread; the main thread is where deliveries go anyway.
        if (app)
            receiver_->moveToThread(app->thread());
        onBus_ = QDBusConnection::sessionBus().isConnected();
        if (!onBus_)
            platform::systemLog(
                QStringLiteral("PLXDarwinNotificationCenter: no D-Bus session bus; notifications "
                               "are delivered in this process only, other processes will not hear "
                               "them"));
    });
}

void DBusDarwinNotifyCenter::watchName(const QString& name) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.connect(QString(), kPath, kInterface, kMember, QStringList{name}, QStringLiteral("s"), receiver_,
                SLOT(posted(QString)));
    // QtDBus sends AddMatch without waiting for the bus. A round trip after it means the bus has
    // applied the rule, so a post made by anyone after this call returns is heard.
    bus.call(QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                            QStringLiteral("/org/freedesktop/DBus"),
                                            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetId")));
}

void DBusDarwinNotifyCenter::unwatchName(const QString& name) {
    QDBusConnection::sessionBus().disconnect(QString(), kPath, kInterface, kMember, QStringList{name},
                                             QStringLiteral("s"), receiver_, SLOT(posted(QString)));
}

void DBusDarwinNotifyCenter::addObserver(void* observer, Callback callback, const QString& name) {
    joinBusOnce();
    std::lock_guard lock(watchMutex_);
    if (registry_->add(observer, callback, name) && onBus_)
        watchName(name);
}

void DBusDarwinNotifyCenter::removeObserver(void* observer, const QString& name) {
    joinBusOnce();
    std::lock_guard lock(watchMutex_);
    if (registry_->remove(observer, name) && onBus_)
        unwatchName(name);
}

void DBusDarwinNotifyCenter::removeEveryObserver(void* observer) {
    joinBusOnce();
    std::lock_guard lock(watchMutex_);
    for (const QString& name : registry_->removeEvery(observer))
        if (onBus_)
            unwatchName(name);
}

void DBusDarwinNotifyCenter::postNotification(const QString& name) {
    joinBusOnce();
    if (onBus_) {
        QDBusMessage signal = QDBusMessage::createSignal(kPath, kInterface, kMember);
        signal << name;
        QDBusConnection::sessionBus().send(signal);
        return;
    }
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
