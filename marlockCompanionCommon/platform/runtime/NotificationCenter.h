#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/platform/runtime/Notification.h"

#include <QByteArray>

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace platform {

class OperationQueue;

// The in-process notification center: objects post named notifications; observers registered
// for a name (and optionally for one sender only) are told.
//
// Two kinds of observers:
//  - a block, run synchronously on the posting thread, or added to an operation queue when one
//    is given. The center keeps the registration until the returned token is removed; it does
//    not keep the queue: once the queue is destroyed the block runs no more.
//  - a target QObject and the name of one of its slots or Q_INVOKABLE methods, invoked
//    synchronously on the posting thread. The method may take no argument or one
//    `platform::Notification`. The target is held weakly: once destroyed it hears nothing more.
//
// Safe from any thread. Observers run outside the center's lock, so they may post, add and
// remove observers themselves. A registration removed on another thread while a post is
// delivering may still receive that one post.
//
//   auto token = NotificationCenter::defaultCenter().addObserver(
//       "ClockChanged", nullptr, nullptr, [](const Notification& n) { … });
//   NotificationCenter::defaultCenter().addObserver(clock, "significantTimeChangeDidOccur", "ClockChanged");
//   NotificationCenter::defaultCenter().post("ClockChanged");
//   NotificationCenter::defaultCenter().removeObserver(token);
class MCC_EXPORT NotificationCenter {
public:
    // An opaque handle of a block registration.
    class Registration;
    using ObserverToken = std::shared_ptr<Registration>;
    using Block = std::function<void(const Notification&)>;

    // The process's center, created on first use and kept for the life of the process.
    static NotificationCenter& defaultCenter();

    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    // Observes `name` (empty: every name) from `sender` (null: any sender) with a block.
    [[nodiscard]] ObserverToken addObserver(const QString& name, const QObject* sender, OperationQueue* queue,
                                            Block block);

    // Observes `name` (empty: every name) from `sender` (null: any sender) by invoking `method`
    // (a bare name such as "significantTimeChangeDidOccur") on `target`. Returns false, and
    // registers nothing, when the target has no such method.
    bool addObserver(QObject* target, const char* method, const QString& name,
                     const QObject* sender = nullptr);

    // Removes every registration of `target`, or only those for `name` and/or `sender`.
    void removeObserver(const QObject* target, const QString& name = {}, const QObject* sender = nullptr);
    void removeObserver(const ObserverToken& token);

    void post(const Notification& notification);
    void post(const QString& name, QObject* object = nullptr, const QVariantMap& userInfo = {});

private:
    struct Entry;
    std::vector<std::shared_ptr<Entry>> snapshotFor(const Notification& notification);

    std::mutex mutex_;
    std::vector<std::shared_ptr<Entry>> entries_;
};

} // namespace platform
