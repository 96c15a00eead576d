#include "marlockCompanionCommon/platform/runtime/NotificationCenter.h"

#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"

#include <QMetaMethod>

#include <algorithm>
#include <optional>

namespace platform {

class NotificationCenter::Registration {};

struct NotificationCenter::Entry {
    QString name;                    // empty: every name
    const QObject* sender = nullptr; // compared by identity only, never dereferenced
    // Block observers
    ObserverToken token;
    // Held weakly: a queue destroyed before its observer is removed gets nothing more.
    std::optional<WeakOperationQueue> queue;
    Block block;
    // Target observers
    QPointer<QObject> target;
    const QObject* targetIdentity = nullptr;
    QMetaMethod method;
    bool isTarget = false;
    bool removed = false; // guarded by the center's mutex

    bool matches(const Notification& n) const {
        return (name.isEmpty() || name == n.name) && (!sender || sender == n.object.data());
    }
};

namespace {

// Finds `name(platform::Notification)` first, then `name()`.
QMetaMethod findMethod(const QObject* target, const char* method) {
    const QMetaObject* meta = target->metaObject();
    for (const QByteArray& signature :
         {QByteArray(method) + "(platform::Notification)", QByteArray(method) + "()"}) {
        const int index = meta->indexOfMethod(QMetaObject::normalizedSignature(signature.constData()));
        if (index >= 0)
            return meta->method(index);
    }
    return {};
}

} // namespace

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter* center = new NotificationCenter;
    return *center;
}

NotificationCenter::NotificationCenter() {
    qRegisterMetaType<platform::Notification>();
}

NotificationCenter::~NotificationCenter() = default;

NotificationCenter::ObserverToken NotificationCenter::addObserver(const QString& name, const QObject* sender,
                                                                  OperationQueue* queue, Block block) {
    auto entry = std::make_shared<Entry>();
    entry->name = name;
    entry->sender = sender;
    entry->token = std::make_shared<Registration>();
    if (queue)
        entry->queue.emplace(queue);
    entry->block = std::move(block);
    ObserverToken token = entry->token;
    std::lock_guard lock(mutex_);
    entries_.push_back(std::move(entry));
    return token;
}

bool NotificationCenter::addObserver(QObject* target, const char* method, const QString& name,
                                     const QObject* sender) {
    if (!target || !method)
        return false;
    QMetaMethod found = findMethod(target, method);
    if (!found.isValid())
        return false;
    auto entry = std::make_shared<Entry>();
    entry->name = name;
    entry->sender = sender;
    entry->target = target;
    entry->targetIdentity = target;
    entry->method = found;
    entry->isTarget = true;
    std::lock_guard lock(mutex_);
    entries_.push_back(std::move(entry));
    return true;
}

void NotificationCenter::removeObserver(const QObject* target, const QString& name, const QObject* sender) {
    if (!target)
        return;
    std::lock_guard lock(mutex_);
    std::erase_if(entries_, [&](const std::shared_ptr<Entry>& e) {
        const bool hit = e->isTarget && e->targetIdentity == target && (name.isEmpty() || e->name == name) &&
                         (!sender || e->sender == sender);
        if (hit)
            e->removed = true;
        return hit;
    });
}

void NotificationCenter::removeObserver(const ObserverToken& token) {
    if (!token)
        return;
    std::lock_guard lock(mutex_);
    std::erase_if(entries_, [&](const std::shared_ptr<Entry>& e) {
        const bool hit = e->token == token;
        if (hit)
            e->removed = true;
        return hit;
    });
}

std::vector<std::shared_ptr<NotificationCenter::Entry>>
NotificationCenter::snapshotFor(const Notification& notification) {
    std::lock_guard lock(mutex_);
    // Targets destroyed since they registered leave now, so the table does not grow without end.
    std::erase_if(entries_,
                  [](const std::shared_ptr<Entry>& e) { return e->isTarget && e->target.isNull(); });
    std::vector<std::shared_ptr<Entry>> hits;
    for (const auto& e : entries_)
        if (e->matches(notification))
            hits.push_back(e);
    return hits;
}

void NotificationCenter::post(const Notification& notification) {
    for (const auto& entry : snapshotFor(notification)) {
        {
            // An observer removed by an earlier observer of this same post hears nothing.
            std::lock_guard lock(mutex_);
            if (entry->removed)
                continue;
        }
        if (entry->isTarget) {
            QObject* target = entry->target.data();
            if (!target)
                continue;
            if (entry->method.parameterCount() == 1)
                entry->method.invoke(target, Qt::DirectConnection,
                                     Q_ARG(platform::Notification, notification));
            else
                entry->method.invoke(target, Qt::DirectConnection);
        } else if (entry->queue) {
            entry->queue->addOperation([block = entry->block, notification] { block(notification); });
        } else {
            entry->block(notification);
        }
    }
}

void NotificationCenter::post(const QString& name, QObject* object, const QVariantMap& userInfo) {
    post(Notification{name, object, userInfo});
}

} // namespace platform
