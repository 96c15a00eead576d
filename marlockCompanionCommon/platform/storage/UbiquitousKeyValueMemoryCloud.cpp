#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStoreBackend.h"

#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"

#include <algorithm>

namespace platform {

struct UbiquitousKeyValueMemoryCloud::Private {
    QHash<QString, QByteArray> values;
    std::vector<Backend*> backends;
};

// A backend over the cloud's values. Writes reach the cloud at once and the other backends on a
// later pass of the event loop, the way another process hears of a change some time after it.
class UbiquitousKeyValueMemoryCloud::Backend final : public UbiquitousKeyValueStoreBackend {
public:
    explicit Backend(std::shared_ptr<UbiquitousKeyValueMemoryCloud> cloud)
        : cloud_(std::move(cloud)) {
        cloud_->d->backends.push_back(this);
    }
    ~Backend() override { std::erase(cloud_->d->backends, this); }
    Backend(const Backend&) = delete;
    Backend& operator=(const Backend&) = delete;

    QHash<QString, QByteArray> open(Listener* listener) override {
        listener_ = listener;
        return cloud_->d->values;
    }

    void write(const QString& key, const std::optional<QByteArray>& value) override {
        cloud_->store(key, value);
        listener_->backendDidFinishWrite(key, true);
    }

    void synchronize() override {
        std::vector<Change> all;
        const auto& values = cloud_->d->values;
        for (auto it = values.cbegin(); it != values.cend(); ++it)
            all.push_back({it.key(), it.value()});
        listener_->backendDidChange(UbiquitousKeyValueStoreChangeReason::serverChange, all, true);
    }

    // Reports what the cloud holds for `key` by then, unless this backend has gone in the
    // meantime. Every backend hears of every write, its own included, as a folder's watcher does.
    void tell(const QString& key) {
        std::weak_ptr<UbiquitousKeyValueMemoryCloud> cloud = cloud_;
        dispatchAsyncMain([cloud, this, key] {
            auto alive = cloud.lock();
            if (!alive || std::find(alive->d->backends.begin(), alive->d->backends.end(), this) ==
                              alive->d->backends.end())
                return;
            std::vector<Change> changes(1);
            changes.front().key = key;
            if (const auto it = alive->d->values.constFind(key); it != alive->d->values.cend())
                changes.front().value = it.value();
            listener_->backendDidChange(UbiquitousKeyValueStoreChangeReason::serverChange, changes, false);
        });
    }

private:
    std::shared_ptr<UbiquitousKeyValueMemoryCloud> cloud_;
    Listener* listener_ = nullptr;
};

std::shared_ptr<UbiquitousKeyValueMemoryCloud> UbiquitousKeyValueMemoryCloud::create() {
    return std::shared_ptr<UbiquitousKeyValueMemoryCloud>(new UbiquitousKeyValueMemoryCloud);
}

UbiquitousKeyValueMemoryCloud::UbiquitousKeyValueMemoryCloud()
    : d(std::make_unique<Private>()) {}

UbiquitousKeyValueMemoryCloud::~UbiquitousKeyValueMemoryCloud() = default;

std::unique_ptr<UbiquitousKeyValueStoreBackend> UbiquitousKeyValueMemoryCloud::makeBackend() {
    return std::make_unique<Backend>(shared_from_this());
}

QHash<QString, QByteArray> UbiquitousKeyValueMemoryCloud::values() const {
    return d->values;
}

void UbiquitousKeyValueMemoryCloud::writeFromElsewhere(const QString& key,
                                                       const std::optional<QByteArray>& value) {
    store(key, value);
}

void UbiquitousKeyValueMemoryCloud::store(const QString& key, const std::optional<QByteArray>& value) {
    if (value)
        d->values.insert(key, *value);
    else
        d->values.remove(key);
    for (Backend* backend : d->backends)
        backend->tell(key);
}

} // namespace platform
