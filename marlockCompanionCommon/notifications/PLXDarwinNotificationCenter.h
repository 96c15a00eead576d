#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/notifications/PLXNotificationCenter.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

class DarwinNotifyCenter;

// A PLXNotificationCenter over the system-wide, name-only notification service
// (DarwinNotifyCenter: the D-Bus session bus). A post reaches every process that observes the
// name, this one included; Posted notifications carry only their name.
//
// Observers are held weakly and compared by identity; a destroyed observer simply hears nothing
// more. Tokens from addObserverForName() are kept by the center until removed; their queues are
// not: once a block's queue is destroyed, that block runs no more.
//
// Names: every name of 1 to maximumNameLength UTF-16 units, without NUL and without unpaired
// surrogates, is delivered exactly as posted, whatever its characters (quotes, accents, CJK,
// emoji) or length. Observing or posting any other name, and observing with a method the
// observer does not have, are programming errors: they stop the process with a message
// (platform::fatalError) rather than leave an observer that never fires.
//
// Thread-safe: register, remove and post from any thread. Deliveries are taken from the bus on
// the main thread; blocks run on their queue (main queue by default), selector observers on the
// main queue, never under the center's lock.
//
//   auto center = PLXDarwinNotificationCenter::otpDarwinNotificationCenter();
//   auto token = center->addObserverForName("VPMSeparatorStringDidChangeDarwinNotification", nullptr,
//                                           [](const platform::Notification& n) { reload(); });
//   center->postNotificationName("VPMSeparatorStringDidChangeDarwinNotification");
//   center->removeObserver(token.get());
class MCC_EXPORT PLXDarwinNotificationCenter : public QObject, public PLXNotificationCenter {
    Q_OBJECT
public:
    // The longest name that may be observed or posted, in UTF-16 units: far beyond any real
    // name, and far below what a D-Bus message may carry.
    static constexpr qsizetype maximumNameLength = 65536;

    // The process-wide center over the session bus: created once on first call (thread-safe),
    // kept for the life of the process.
    static std::shared_ptr<PLXDarwinNotificationCenter> defaultCenter();
    // A new wrapper that prefixes every name with `prefix` over defaultCenter().
    static std::shared_ptr<PLXNotificationCenter> centerWithPrefix(const QString& prefix);
    // The center the product uses: centerWithPrefix(platform::Identity::bundleIdentifier()).
    static std::shared_ptr<PLXNotificationCenter> otpDarwinNotificationCenter();

    // A center over the session bus (DarwinNotifyCenter::systemCenter()).
    PLXDarwinNotificationCenter();
    // A center over `darwinNotificationCenter`, which is not owned and must outlive it.
    explicit PLXDarwinNotificationCenter(DarwinNotifyCenter* darwinNotificationCenter);
    // Withdraws every registration from the service first.
    ~PLXDarwinNotificationCenter() override;
    Q_DISABLE_COPY(PLXDarwinNotificationCenter)

    ObserverToken addObserverForName(const QString& name, platform::OperationQueue* queue,
                                     Block block) override;
    void addObserver(QObject* observer, const char* selector, const QString& name) override;
    // Removes `observer` from every name it is registered for.
    void removeObserver(const QObject* observer) override;
    // With no name, acts as removeObserver(observer). Removing a token for any one name also
    // ends the center's hold on it.
    void removeObserver(const QObject* observer, const std::optional<QString>& name) override;
    void postNotification(const platform::Notification& notification) override;
    void postNotificationName(const QString& name) override;

    // Runs the delivery blocks of `name`; called by the service when it reports the name.
    void notifyNotificationName(const QString& name);

    // The service this center is registered with.
    DarwinNotifyCenter* darwinNotificationCenter() const { return darwinNotificationCenter_; }
    // The names with an observer table (and so a registration with the service), sorted.
    QStringList registeredNotificationNames() const;
    // The number of live observers registered for `name`.
    int observerCount(const QString& name) const;
    // The number of observers (tokens) the center keeps alive.
    int retainedObserverCount() const;

private:
    using DeliveryBlock = std::function<void()>;
    struct ObserverEntry {
        QPointer<QObject> observer;
        std::vector<DeliveryBlock> blocks;
    };
    // Keyed by the observer's address; the QPointer tells whether that observer still lives.
    using ObserverTable = std::unordered_map<const QObject*, ObserverEntry>;

    // The single registration path. `retainObserver`, when set, is the observer itself, which the
    // center then keeps alive until it is removed.
    void px_addBlock(DeliveryBlock block, QObject* observer, const QString& name,
                     std::shared_ptr<QObject> retainObserver);
    void px_removeObserver(const QObject* observer, const QString& name);

    DarwinNotifyCenter* const darwinNotificationCenter_;
    // One recursive lock guards both containers: removeObserver() re-enters it per name.
    mutable std::recursive_mutex lock_;
    QHash<QString, ObserverTable> registeredNotifications_;
    std::unordered_map<const QObject*, std::shared_ptr<QObject>> retainedObserverSet_;
};
