#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStore.h"

#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "marlockCompanionCommon/platform/runtime/NotificationCenter.h"
#include "marlockCompanionCommon/platform/runtime/SystemLog.h"
#include "marlockCompanionCommon/platform/storage/UserDefaults.h"
#include "marlockCompanionCommon/platform/storage/webdav/WebdavConfiguration.h"

#include <QDir>
#include <QMap>
#include <QTimer>

#include <deque>

namespace platform {
namespace {

using Reason = UbiquitousKeyValueStoreChangeReason;

qsizetype keyLength(const QString& key) {
    return key.toUtf8().size();
}

// $XDG_DATA_HOME, or ~/.local/share when it is unset or relative (the XDG base directory rules).
QString dataHome() {
    const QString configured = qEnvironmentVariable("XDG_DATA_HOME");
    if (!configured.isEmpty() && QDir::isAbsolutePath(configured))
        return QDir::cleanPath(configured);
    return QDir::homePath() + QStringLiteral("/.local/share");
}

} // namespace

// The store's state: the replica of the storage's values, the writes the backend has not
// finished yet, and the announcements waiting for the next pass of the event loop.
class UbiquitousKeyValueStore::Replica final : public UbiquitousKeyValueStoreBackend::Listener {
public:
    Replica(UbiquitousKeyValueStore* owner, std::unique_ptr<UbiquitousKeyValueStoreBackend> backend)
        : owner_(owner)
        , backend_(std::move(backend)) {
        flush_.setSingleShot(true);
        flush_.setInterval(0);
        QObject::connect(&flush_, &QTimer::timeout, owner, [this] { postAnnouncements(); });
        values_ = backend_->open(this);
        for (auto it = values_.begin(); it != values_.end();) {
            if (it.value().size() > maximumValueSize) {
                announce(Reason::quotaViolationChange, it.key());
                it = values_.erase(it);
            } else {
                ++it;
            }
        }
    }

    UbiquitousKeyValueStoreBackend& backend() { return *backend_; }

    std::optional<QByteArray> value(const QString& key) const {
        const auto it = values_.constFind(key);
        return it == values_.cend() ? std::nullopt : std::optional(it.value());
    }
    QStringList keys() const { return values_.keys(); }

    void write(const QString& key, const std::optional<QByteArray>& value) {
        if (key.isEmpty() || keyLength(key) > maximumKeyLength) {
            systemLog(
                QStringLiteral("Cloud key-value store: refused the key \"%1\": keys are 1 to %2 UTF-8 bytes")
                    .arg(key)
                    .arg(maximumKeyLength));
            return;
        }
        if (value && (value->size() > maximumValueSize || totalWith(key, *value) > maximumTotalSize)) {
            systemLog(
                QStringLiteral("Cloud key-value store: refused %1 bytes under \"%2\": over the quota of "
                               "%3 bytes per value and for the whole store")
                    .arg(value->size())
                    .arg(key)
                    .arg(maximumValueSize));
            announce(Reason::quotaViolationChange, key);
            return;
        }
        // The value before the write comes back should the backend fail to make it.
        pending_[key].push_back(this->value(key));
        if (value)
            values_.insert(key, *value);
        else
            values_.remove(key);
        backend_->write(key, value);
    }

    void backendDidChange(Reason reason, const std::vector<UbiquitousKeyValueStoreBackend::Change>& changes,
                          bool complete) override {
        QSet<QString> reported;
        for (const auto& change : changes) {
            reported.insert(change.key);
            std::optional<QByteArray> value = change.value;
            if (value && value->size() > maximumValueSize) {
                announce(Reason::quotaViolationChange, change.key);
                value.reset();
            }
            apply(reason, change.key, value);
        }
        if (complete)
            for (const QString& key : values_.keys())
                if (!reported.contains(key))
                    apply(reason, key, std::nullopt);
    }

    void backendDidFinishWrite(const QString& key, bool succeeded) override {
        auto it = pending_.find(key);
        if (it == pending_.end() || it->second.empty())
            return;
        const std::optional<QByteArray> before = std::move(it->second.front());
        it->second.pop_front();
        const bool last = it->second.empty();
        if (last)
            pending_.erase(it);
        // A failed write that a later one has not overtaken leaves what the storage holds.
        if (!succeeded && last) {
            if (before)
                values_.insert(key, *before);
            else
                values_.remove(key);
        }
    }

private:
    // Takes in a value the storage holds, announcing it when it differs from the replica. A key
    // with a write of this store still on its way keeps that write's value: it is the later one.
    void apply(Reason reason, const QString& key, const std::optional<QByteArray>& value) {
        if (pending_.count(key))
            return;
        if (value == this->value(key))
            return;
        if (value)
            values_.insert(key, *value);
        else
            values_.remove(key);
        announce(reason, key);
    }

    qsizetype totalWith(const QString& key, const QByteArray& value) const {
        qsizetype total = keyLength(key) + value.size();
        for (auto it = values_.cbegin(); it != values_.cend(); ++it)
            if (it.key() != key)
                total += keyLength(it.key()) + it.value().size();
        return total;
    }

    void announce(Reason reason, const QString& key) {
        QStringList& keys = announcements_[static_cast<int>(reason)];
        if (!keys.contains(key))
            keys.append(key);
        flush_.start();
    }

    // One notification per reason for everything gathered since the last pass: a burst of file
    // events, or a re-check that found several keys changed, is told once.
    void postAnnouncements() {
        const QMap<int, QStringList> due = std::exchange(announcements_, {});
        for (auto it = due.cbegin(); it != due.cend(); ++it)
            NotificationCenter::defaultCenter().post(
                UbiquitousKeyValueStoreDidChangeExternallyNotification, owner_,
                {{UbiquitousKeyValueStoreChangeReasonKey, qint64(it.key())},
                 {UbiquitousKeyValueStoreChangedKeysKey, it.value()}});
    }

    UbiquitousKeyValueStore* const owner_;
    std::unique_ptr<UbiquitousKeyValueStoreBackend> backend_;
    QHash<QString, QByteArray> values_;
    std::map<QString, std::deque<std::optional<QByteArray>>> pending_;
    QMap<int, QStringList> announcements_;
    QTimer flush_;
};

QString UbiquitousKeyValueStore::defaultFolderPath(bool* isDefault) {
    QString path = qEnvironmentVariable("MARLOCK_CLOUD_FOLDER");
    if (path.isEmpty())
        if (UserDefaults* suite = UserDefaults::suiteNamed(Identity::applicationGroup()))
            path = suite->stringForKey(folderKey);
    if (isDefault)
        *isDefault = path.isEmpty();
    if (path.isEmpty())
        return dataHome() + QStringLiteral("/marlock-companion/cloud");
    return QDir::cleanPath(path);
}

UbiquitousKeyValueStore* UbiquitousKeyValueStore::defaultStore() {
    // Created and used on the main thread only, so a plain static is enough.
    static UbiquitousKeyValueStore* store = [] {
        UserDefaults* suite = UserDefaults::suiteNamed(Identity::applicationGroup());
        if (WebdavConfiguration::isSelected(suite))
            return new UbiquitousKeyValueStore(
                makeWebdavUbiquitousKeyValueStoreBackend(WebdavConfiguration::fromSettings(suite)));
        bool isDefault = false;
        const QString path = defaultFolderPath(&isDefault);
        return new UbiquitousKeyValueStore(makeFolderUbiquitousKeyValueStoreBackend(path, isDefault));
    }();
    return store;
}

UbiquitousKeyValueStore::UbiquitousKeyValueStore(std::unique_ptr<UbiquitousKeyValueStoreBackend> backend,
                                                 QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Replica>(this, std::move(backend))) {}

UbiquitousKeyValueStore::~UbiquitousKeyValueStore() = default;

bool UbiquitousKeyValueStore::synchronize() {
    d->backend().synchronize();
    return true;
}

std::optional<QByteArray> UbiquitousKeyValueStore::dataForKey(const QString& key) {
    d->backend().refresh();
    return d->value(key);
}

void UbiquitousKeyValueStore::setData(const QByteArray& value, const QString& key) {
    d->write(key, value);
}

void UbiquitousKeyValueStore::removeObjectForKey(const QString& key) {
    d->write(key, std::nullopt);
}

QStringList UbiquitousKeyValueStore::allKeys() const {
    return d->keys();
}

} // namespace platform
