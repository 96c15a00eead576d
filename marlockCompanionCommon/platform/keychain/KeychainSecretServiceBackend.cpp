// The Secret Service keychain backend: keychain semantics (identity, duplicates, locked versus
// missing, oldest first) over a SecretServiceConnection, making only the calls each operation
// needs. A read of one item is a search and one secret fetch, the same two calls libsecret's own
// lookup makes; an update searches and writes the secret in place.
#include "marlockCompanionCommon/platform/keychain/KeychainBackend.h"
#include "marlockCompanionCommon/platform/keychain/internal/SecretServiceConnection.h"

#include <algorithm>
#include <mutex>

namespace platform {
namespace {

using internal::SecretAttributes;
using internal::SecretItemProperties;
using internal::SecretSearchResult;
using internal::SecretServiceConnection;
using Connection = std::shared_ptr<const SecretServiceConnection>;
namespace Code = KeychainStatusCode;

const char* const kSchemaName = "org.marlock.Keychain";
// libsecret's attribute for the schema an item was stored under; its lookups match on it.
const char* const kSchemaAttribute = "xdg:schema";
const char* const kClass = "class";
const char* const kService = "service";
const char* const kAccount = "account";
const char* const kAccessible = "accessible";
const char* const kAccessLabel = "access-label";
const char* const kTrustedApplications = "trusted-applications";
// The user's default collection, through its alias: the collection libsecret's own store uses.
const char* const kDefaultCollection = "/org/freedesktop/secrets/aliases/default";

SecretAttributes queryAttributes(const KeychainQuery& query) {
    SecretAttributes attributes{{kSchemaAttribute, kSchemaName}, {kClass, query.itemClass.toStdString()}};
    if (query.service)
        attributes[kService] = query.service->toStdString();
    if (query.account)
        attributes[kAccount] = query.account->toStdString();
    return attributes;
}

SecretAttributes itemAttributes(const KeychainItem& item) {
    SecretAttributes attributes = queryAttributes({item.itemClass, item.service, item.account});
    attributes[kAccessible] = item.accessible.toStdString();
    if (item.access) {
        attributes[kAccessLabel] = item.access->label.toStdString();
        // Paths are joined by newlines: a separator no installed program path uses in practice.
        attributes[kTrustedApplications] =
            item.access->trustedApplications.join(QLatin1Char('\n')).toStdString();
    }
    return attributes;
}

QString text(const SecretAttributes& attributes, const char* name) {
    const auto found = attributes.find(name);
    return found == attributes.end() ? QString() : QString::fromStdString(found->second);
}

KeychainItem itemFrom(const SecretAttributes& attributes) {
    KeychainItem item;
    item.itemClass = text(attributes, kClass);
    item.service = text(attributes, kService);
    item.account = text(attributes, kAccount);
    item.accessible = text(attributes, kAccessible);
    if (attributes.count(kAccessLabel))
        item.access = KeychainAccess{
            text(attributes, kAccessLabel),
            text(attributes, kTrustedApplications).split(QLatin1Char('\n'), Qt::SkipEmptyParts)};
    return item;
}

std::string labelFor(const KeychainItem& item) {
    if (item.access)
        return item.access->label.toStdString();
    return (item.service.isEmpty() ? item.account : QStringLiteral("%1 (%2)").arg(item.account, item.service))
        .toStdString();
}

// A search result on its way to the caller.
struct Match {
    std::string path;
    quint64 created = 0;
    KeychainRecord record;
};

class SecretServiceKeychainBackend final : public KeychainBackend {
public:
    KeychainStatus find(const KeychainQuery& query, const KeychainMatch& match,
                        std::vector<KeychainRecord>* out) override {
        return retried([&](const SecretServiceConnection& connection) {
            return findItems(connection, query, match, out);
        });
    }
    KeychainStatus add(const KeychainRecord& record) override {
        return retried(
            [&](const SecretServiceConnection& connection) { return addItem(connection, record); });
    }
    KeychainStatus update(const KeychainQuery& query, const KeychainAttributes& changes) override {
        return retried([&](const SecretServiceConnection& connection) {
            return updateItems(connection, query, changes);
        });
    }
    KeychainStatus remove(const KeychainQuery& query) override {
        return retried(
            [&](const SecretServiceConnection& connection) { return removeItems(connection, query); });
    }

private:
    // Runs `operation` on the connection, opened on first use and kept: opening one costs two
    // round trips and a key exchange. When the service is gone from under a kept connection (a
    // daemon that restarted knows nothing of our session), the connection is dropped and the
    // operation runs once more on a new one; every operation is safe to repeat. A restarted
    // gnome-keyring refuses a secret wrapped for the old session with an error libsecret hands on
    // without its name, so an unexplained failure on a kept connection is retried the same way.
    template <typename Operation> KeychainStatus retried(const Operation& operation) {
        for (int attempt = 0;; ++attempt) {
            Connection connection;
            bool kept = false;
            if (const KeychainStatus status = connect(&connection, &kept); status != Code::success)
                return status;
            const KeychainStatus status = operation(*connection);
            if (status != Code::notAvailable && status != Code::internalComponent)
                return status;
            drop(connection);
            if (!kept || attempt > 0)
                return status;
        }
    }

    KeychainStatus connect(Connection* connection, bool* kept) {
        std::lock_guard lock(mutex_);
        *kept = connection_ != nullptr;
        if (!connection_) {
            std::unique_ptr<SecretServiceConnection> opened;
            if (const KeychainStatus status = SecretServiceConnection::open(&opened); status != Code::success)
                return status;
            connection_ = std::move(opened);
        }
        *connection = connection_;
        return Code::success;
    }

    void drop(const Connection& connection) {
        std::lock_guard lock(mutex_);
        if (connection_ == connection)
            connection_.reset();
    }

    static KeychainStatus findItems(const SecretServiceConnection& connection, const KeychainQuery& query,
                                    const KeychainMatch& match, std::vector<KeychainRecord>* out) {
        std::vector<std::string> paths;
        if (const KeychainStatus status = searchUnlocked(connection, query, &paths); status != Code::success)
            return status;
        std::vector<Match> found;
        // A single match needs no age, and attributes only when asked for: no property fetch.
        const bool needProperties = match.attributes || (match.limitOne && paths.size() > 1);
        for (std::string& path : paths) {
            SecretItemProperties properties;
            if (needProperties)
                if (const KeychainStatus status = connection.properties(path, &properties);
                    status != Code::success)
                    return status;
            found.push_back({std::move(path), properties.created, {itemFrom(properties.attributes), {}}});
        }
        std::stable_sort(found.begin(), found.end(),
                         [](const Match& a, const Match& b) { return a.created < b.created; });
        if (match.limitOne)
            found.resize(1);
        if (match.data) {
            std::vector<std::string> wanted;
            for (const Match& entry : found)
                wanted.push_back(entry.path);
            std::map<std::string, QByteArray> secrets;
            if (const KeychainStatus status = connection.secrets(wanted, &secrets); status != Code::success)
                return status;
            for (Match& entry : found)
                entry.record.data = secrets[entry.path];
        }
        if (out) {
            out->clear();
            for (Match& entry : found)
                out->push_back(std::move(entry.record));
        }
        return Code::success;
    }

    static KeychainStatus addItem(const SecretServiceConnection& connection, const KeychainRecord& record) {
        // A match is a duplicate whether or not its collection is locked: no need to unlock it.
        SecretSearchResult existing;
        if (const KeychainStatus status = connection.search(
                queryAttributes({record.item.itemClass, record.item.service, record.item.account}),
                &existing);
            status != Code::success)
            return status;
        if (!existing.unlocked.empty() || !existing.locked.empty())
            return Code::duplicateItem;
        // Creating replaces an item with exactly these attributes: should another process add the
        // same item between the search and here, the keychain still ends up with one, not two.
        const auto create = [&] {
            return connection.createItem(kDefaultCollection, labelFor(record.item),
                                         itemAttributes(record.item), record.data);
        };
        KeychainStatus status = create();
        if (status == Code::authFailed) {
            // A locked default collection: ask to unlock it (the service may prompt), then again.
            status = connection.unlock({kDefaultCollection});
            if (status == Code::success)
                status = create();
        }
        return status;
    }

    static KeychainStatus updateItems(const SecretServiceConnection& connection, const KeychainQuery& query,
                                      const KeychainAttributes& changes) {
        std::vector<std::string> paths;
        if (const KeychainStatus status = searchUnlocked(connection, query, &paths); status != Code::success)
            return status;
        for (const std::string& path : paths) {
            if (changes.data)
                if (const KeychainStatus status = connection.setSecret(path, *changes.data);
                    status != Code::success)
                    return status;
            if (changes.accessible || changes.access)
                if (const KeychainStatus status = updateAttributes(connection, path, changes);
                    status != Code::success)
                    return status;
        }
        return Code::success;
    }

    // Applies the accessibility and access object of `changes`. Attributes and label are written
    // only when they differ: each write is a round trip and a save of the whole keyring.
    static KeychainStatus updateAttributes(const SecretServiceConnection& connection, const std::string& path,
                                           const KeychainAttributes& changes) {
        SecretItemProperties properties;
        if (const KeychainStatus status = connection.properties(path, &properties); status != Code::success)
            return status;
        KeychainItem item = itemFrom(properties.attributes);
        if (changes.accessible)
            item.accessible = *changes.accessible;
        if (changes.access)
            item.access = changes.access;
        // Attributes another program added stay.
        SecretAttributes attributes = properties.attributes;
        for (auto& [name, value] : itemAttributes(item))
            attributes[name] = std::move(value);
        if (attributes != properties.attributes)
            if (const KeychainStatus status = connection.setAttributes(path, attributes);
                status != Code::success)
                return status;
        const std::string label = labelFor(item);
        return label == properties.label ? Code::success : connection.setLabel(path, label);
    }

    static KeychainStatus removeItems(const SecretServiceConnection& connection, const KeychainQuery& query) {
        std::vector<std::string> paths;
        if (const KeychainStatus status = searchUnlocked(connection, query, &paths); status != Code::success)
            return status;
        for (const std::string& path : paths)
            if (const KeychainStatus status = connection.deleteItem(path); status != Code::success)
                return status;
        return Code::success;
    }

    // The items matching `query`, every one of them unlocked. A lookup in a locked collection looks
    // like a missing item to libsecret's simple calls; the search tells them apart: a locked match
    // that stays locked after asking is authFailed, no match at all is itemNotFound.
    static KeychainStatus searchUnlocked(const SecretServiceConnection& connection,
                                         const KeychainQuery& query, std::vector<std::string>* paths) {
        SecretSearchResult result;
        if (const KeychainStatus status = connection.search(queryAttributes(query), &result);
            status != Code::success)
            return status;
        if (result.unlocked.empty() && result.locked.empty())
            return Code::itemNotFound;
        if (!result.locked.empty())
            if (const KeychainStatus status = connection.unlock(result.locked); status != Code::success)
                return status;
        *paths = std::move(result.unlocked);
        paths->insert(paths->end(), result.locked.begin(), result.locked.end());
        return Code::success;
    }

    std::mutex mutex_;
    Connection connection_;
};

} // namespace

std::unique_ptr<KeychainBackend> makeSecretServiceKeychainBackend() {
    return std::make_unique<SecretServiceKeychainBackend>();
}

} // namespace platform
