// The in-memory keychain backend: items in a vector under a mutex, for unit tests.
#include "marlockCompanionCommon/platform/keychain/KeychainBackend.h"

#include <algorithm>
#include <mutex>

namespace platform {
namespace {

bool matches(const KeychainQuery& query, const KeychainItem& item) {
    return item.itemClass == query.itemClass && (!query.service || *query.service == item.service) &&
           (!query.account || *query.account == item.account);
}

class MemoryKeychainBackend final : public KeychainBackend {
public:
    KeychainStatus find(const KeychainQuery& query, const KeychainMatch& match,
                        std::vector<KeychainRecord>* out) override {
        std::lock_guard lock(mutex_);
        std::vector<KeychainRecord> found;
        // Kept in the order they were added: oldest first.
        for (const KeychainRecord& record : records_) {
            if (!matches(query, record.item))
                continue;
            found.push_back(record);
            if (!match.data)
                found.back().data.clear();
            if (match.limitOne)
                break;
        }
        if (found.empty())
            return KeychainStatusCode::itemNotFound;
        if (out)
            *out = std::move(found);
        return KeychainStatusCode::success;
    }

    KeychainStatus add(const KeychainRecord& record) override {
        std::lock_guard lock(mutex_);
        const KeychainQuery identity{record.item.itemClass, record.item.service, record.item.account};
        if (std::any_of(records_.begin(), records_.end(),
                        [&](const KeychainRecord& other) { return matches(identity, other.item); }))
            return KeychainStatusCode::duplicateItem;
        records_.push_back(record);
        return KeychainStatusCode::success;
    }

    KeychainStatus update(const KeychainQuery& query, const KeychainAttributes& changes) override {
        std::lock_guard lock(mutex_);
        bool any = false;
        for (KeychainRecord& record : records_) {
            if (!matches(query, record.item))
                continue;
            any = true;
            if (changes.data)
                record.data = *changes.data;
            if (changes.accessible)
                record.item.accessible = *changes.accessible;
            if (changes.access)
                record.item.access = changes.access;
        }
        return any ? KeychainStatusCode::success : KeychainStatusCode::itemNotFound;
    }

    KeychainStatus remove(const KeychainQuery& query) override {
        std::lock_guard lock(mutex_);
        const auto removed =
            std::erase_if(records_, [&](const KeychainRecord& r) { return matches(query, r.item); });
        return removed > 0 ? KeychainStatusCode::success : KeychainStatusCode::itemNotFound;
    }

private:
    std::mutex mutex_;
    std::vector<KeychainRecord> records_;
};

} // namespace

std::unique_ptr<KeychainBackend> makeMemoryKeychainBackend() {
    return std::make_unique<MemoryKeychainBackend>();
}

} // namespace platform
