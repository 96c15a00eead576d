// The Secret Service keychain backend, on libsecret. GLib comes first: Qt's keyword macros
// ("signals") would otherwise rewrite GDBus declarations.
#include <libsecret/secret.h>

#include "marlockCompanionCommon/platform/keychain/KeychainBackend.h"

#include <algorithm>

namespace platform {
namespace {

const char* const kSchemaName = "org.marlock.Keychain";
const char* const kClass = "class";
const char* const kService = "service";
const char* const kAccount = "account";
const char* const kAccessible = "accessible";
const char* const kAccessLabel = "access-label";
const char* const kTrustedApplications = "trusted-applications";
const char* const kContentType = "application/octet-stream";

const SecretSchema* schema() {
    static const SecretSchema instance = [] {
        SecretSchema s{};
        s.name = kSchemaName;
        s.flags = SECRET_SCHEMA_NONE;
        const char* names[] = {kClass, kService, kAccount, kAccessible, kAccessLabel, kTrustedApplications};
        for (std::size_t i = 0; i < std::size(names); ++i)
            s.attributes[i] = {names[i], SECRET_SCHEMA_ATTRIBUTE_STRING};
        return s;
    }();
    return &instance;
}

struct GObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
struct HashTableUnref {
    void operator()(GHashTable* table) const { g_hash_table_unref(table); }
};
struct ErrorFree {
    void operator()(GError* error) const { g_error_free(error); }
};
struct ValueUnref {
    void operator()(SecretValue* value) const { secret_value_unref(value); }
};
struct ItemListFree {
    void operator()(GList* list) const { g_list_free_full(list, g_object_unref); }
};
using ServicePtr = std::unique_ptr<SecretService, GObjectUnref>;
using HashTablePtr = std::unique_ptr<GHashTable, HashTableUnref>;
using ErrorPtr = std::unique_ptr<GError, ErrorFree>;
using ValuePtr = std::unique_ptr<SecretValue, ValueUnref>;
using ItemListPtr = std::unique_ptr<GList, ItemListFree>;

HashTablePtr newAttributes() {
    return HashTablePtr(g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free));
}

void setAttribute(GHashTable* table, const char* name, const QString& value) {
    g_hash_table_replace(table, g_strdup(name), g_strdup(value.toUtf8().constData()));
}

QString attribute(GHashTable* table, const char* name) {
    return QString::fromUtf8(static_cast<const char*>(g_hash_table_lookup(table, name)));
}

void setAccessAttributes(GHashTable* table, const KeychainAccess& access) {
    setAttribute(table, kAccessLabel, access.label);
    // Paths are joined by newlines: a separator no installed program path uses in practice.
    setAttribute(table, kTrustedApplications, access.trustedApplications.join(QLatin1Char('\n')));
}

HashTablePtr queryAttributes(const KeychainQuery& query) {
    HashTablePtr table = newAttributes();
    setAttribute(table.get(), kClass, query.itemClass);
    if (query.service)
        setAttribute(table.get(), kService, *query.service);
    if (query.account)
        setAttribute(table.get(), kAccount, *query.account);
    return table;
}

QString labelFor(const KeychainItem& item) {
    if (item.access)
        return item.access->label;
    return item.service.isEmpty() ? item.account : QStringLiteral("%1 (%2)").arg(item.account, item.service);
}

// What a libsecret or D-Bus failure means in the keychain's numbering.
KeychainStatus statusFor(const GError* error) {
    if (error->domain == SECRET_ERROR) {
        switch (error->code) {
        case SECRET_ERROR_IS_LOCKED:
            return KeychainStatusCode::authFailed;
        case SECRET_ERROR_NO_SUCH_OBJECT:
            return KeychainStatusCode::itemNotFound;
        case SECRET_ERROR_ALREADY_EXISTS:
            return KeychainStatusCode::duplicateItem;
        default:
            return KeychainStatusCode::internalComponent;
        }
    }
    if (error->domain == G_IO_ERROR && error->code == G_IO_ERROR_CANCELLED)
        return KeychainStatusCode::userCanceled;
    if (error->domain == G_DBUS_ERROR) {
        switch (error->code) {
        case G_DBUS_ERROR_ACCESS_DENIED:
        case G_DBUS_ERROR_AUTH_FAILED:
            return KeychainStatusCode::authFailed;
        case G_DBUS_ERROR_SERVICE_UNKNOWN:
        case G_DBUS_ERROR_NAME_HAS_NO_OWNER:
        case G_DBUS_ERROR_NO_SERVER:
        case G_DBUS_ERROR_DISCONNECTED:
        case G_DBUS_ERROR_SPAWN_SERVICE_NOT_FOUND:
        case G_DBUS_ERROR_SPAWN_EXEC_FAILED:
        case G_DBUS_ERROR_SPAWN_CHILD_EXITED:
        case G_DBUS_ERROR_SPAWN_FAILED:
            return KeychainStatusCode::notAvailable;
        default:
            break;
        }
    }
    return KeychainStatusCode::internalComponent;
}

KeychainItem itemFrom(SecretItem* secretItem) {
    HashTablePtr attributes(secret_item_get_attributes(secretItem));
    KeychainItem item;
    item.itemClass = attribute(attributes.get(), kClass);
    item.service = attribute(attributes.get(), kService);
    item.account = attribute(attributes.get(), kAccount);
    item.accessible = attribute(attributes.get(), kAccessible);
    if (g_hash_table_contains(attributes.get(), kAccessLabel)) {
        const QString paths = attribute(attributes.get(), kTrustedApplications);
        item.access = KeychainAccess{attribute(attributes.get(), kAccessLabel),
                                     paths.split(QLatin1Char('\n'), Qt::SkipEmptyParts)};
    }
    return item;
}

class SecretServiceKeychainBackend final : public KeychainBackend {
public:
    KeychainStatus find(const KeychainQuery& query, bool withData,
                        std::vector<KeychainRecord>* out) override {
        ServicePtr service;
        ItemListPtr items;
        if (const KeychainStatus status = search(query, &service, &items);
            status != KeychainStatusCode::success)
            return status;
        // One call fetches every secret.
        GError* rawError = nullptr;
        if (withData && !secret_item_load_secrets_sync(items.get(), nullptr, &rawError))
            return statusFor(ErrorPtr(rawError).get());
        std::vector<std::pair<guint64, KeychainRecord>> found;
        for (GList* node = items.get(); node; node = node->next) {
            auto* secretItem = static_cast<SecretItem*>(node->data);
            KeychainRecord record{itemFrom(secretItem), {}};
            // The content type that comes back is not reliable: the secret is bytes.
            if (withData) {
                ValuePtr value{secret_item_get_secret(secretItem)};
                if (!value)
                    return KeychainStatusCode::authFailed;
                gsize length = 0;
                const gchar* bytes = secret_value_get(value.get(), &length);
                record.data = QByteArray(bytes, static_cast<qsizetype>(length));
            }
            found.emplace_back(secret_item_get_created(secretItem), std::move(record));
        }
        std::stable_sort(found.begin(), found.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        if (out) {
            out->clear();
            for (auto& entry : found)
                out->push_back(std::move(entry.second));
        }
        return KeychainStatusCode::success;
    }

    KeychainStatus add(const KeychainRecord& record) override {
        const KeychainQuery identity{record.item.itemClass, record.item.service, record.item.account};
        const KeychainStatus existing = find(identity, false, nullptr);
        if (existing == KeychainStatusCode::success)
            return KeychainStatusCode::duplicateItem;
        if (existing != KeychainStatusCode::itemNotFound)
            return existing;
        HashTablePtr attributes = queryAttributes(identity);
        setAttribute(attributes.get(), kAccessible, record.item.accessible);
        if (record.item.access)
            setAccessAttributes(attributes.get(), *record.item.access);
        ValuePtr value(secret_value_new(record.data.constData(), record.data.size(), kContentType));
        GError* rawError = nullptr;
        // Stores in the default collection, unlocking it (with a prompt) when needed.
        secret_password_storev_binary_sync(schema(), attributes.get(), SECRET_COLLECTION_DEFAULT,
                                           labelFor(record.item).toUtf8().constData(), value.get(), nullptr,
                                           &rawError);
        if (rawError)
            return statusFor(ErrorPtr(rawError).get());
        return KeychainStatusCode::success;
    }

    KeychainStatus update(const KeychainQuery& query, const KeychainAttributes& changes) override {
        ServicePtr service;
        ItemListPtr items;
        if (const KeychainStatus status = search(query, &service, &items);
            status != KeychainStatusCode::success)
            return status;
        for (GList* node = items.get(); node; node = node->next) {
            auto* secretItem = static_cast<SecretItem*>(node->data);
            GError* rawError = nullptr;
            if (changes.data) {
                ValuePtr value(
                    secret_value_new(changes.data->constData(), changes.data->size(), kContentType));
                if (!secret_item_set_secret_sync(secretItem, value.get(), nullptr, &rawError))
                    return statusFor(ErrorPtr(rawError).get());
            }
            // Attributes and label are written only when they change: each write is a round trip
            // and a save of the whole keyring.
            const KeychainItem before = itemFrom(secretItem);
            KeychainItem item = before;
            if (changes.accessible)
                item.accessible = *changes.accessible;
            if (changes.access)
                item.access = changes.access;
            if (item != before) {
                HashTablePtr attributes = queryAttributes({item.itemClass, item.service, item.account});
                setAttribute(attributes.get(), kAccessible, item.accessible);
                if (item.access)
                    setAccessAttributes(attributes.get(), *item.access);
                if (!secret_item_set_attributes_sync(secretItem, schema(), attributes.get(), nullptr,
                                                     &rawError))
                    return statusFor(ErrorPtr(rawError).get());
            }
            const QByteArray label = labelFor(item).toUtf8();
            gchar* currentLabel = secret_item_get_label(secretItem);
            const bool sameLabel = currentLabel && label == currentLabel;
            g_free(currentLabel);
            if (!sameLabel && !secret_item_set_label_sync(secretItem, label.constData(), nullptr, &rawError))
                return statusFor(ErrorPtr(rawError).get());
        }
        return KeychainStatusCode::success;
    }

    KeychainStatus remove(const KeychainQuery& query) override {
        ServicePtr service;
        ItemListPtr items;
        if (const KeychainStatus status = search(query, &service, &items);
            status != KeychainStatusCode::success)
            return status;
        for (GList* node = items.get(); node; node = node->next) {
            GError* rawError = nullptr;
            if (!secret_item_delete_sync(static_cast<SecretItem*>(node->data), nullptr, &rawError))
                return statusFor(ErrorPtr(rawError).get());
        }
        return KeychainStatusCode::success;
    }

private:
    // The process's connection to the Secret Service; notAvailable without a bus or a service.
    static KeychainStatus connect(ServicePtr* service) {
        GError* rawError = nullptr;
        SecretService* connected = secret_service_get_sync(SECRET_SERVICE_OPEN_SESSION, nullptr, &rawError);
        if (rawError) {
            ErrorPtr error(rawError);
            if (connected)
                g_object_unref(connected);
            const KeychainStatus status = statusFor(error.get());
            // Failing to reach the bus at all is a service that is not available.
            return status == KeychainStatusCode::internalComponent ? KeychainStatusCode::notAvailable
                                                                   : status;
        }
        if (!connected)
            return KeychainStatusCode::notAvailable;
        service->reset(connected);
        return KeychainStatusCode::success;
    }

    // The items matching `query`, unlocked. A lookup in a locked collection looks exactly like a
    // missing item to the simple libsecret calls, so this searches without unlocking first: a
    // locked match that stays locked after asking is authFailed, no match at all is itemNotFound.
    static KeychainStatus search(const KeychainQuery& query, ServicePtr* service, ItemListPtr* items) {
        if (const KeychainStatus status = connect(service); status != KeychainStatusCode::success)
            return status;
        HashTablePtr attributes = queryAttributes(query);
        GError* rawError = nullptr;
        items->reset(secret_service_search_sync(service->get(), schema(), attributes.get(), SECRET_SEARCH_ALL,
                                                nullptr, &rawError));
        if (rawError)
            return statusFor(ErrorPtr(rawError).get());
        if (!*items)
            return KeychainStatusCode::itemNotFound;
        GList* locked = nullptr;
        for (GList* node = items->get(); node; node = node->next) {
            if (secret_item_get_locked(static_cast<SecretItem*>(node->data)))
                locked = g_list_prepend(locked, node->data);
        }
        if (!locked)
            return KeychainStatusCode::success;
        const guint lockedCount = g_list_length(locked);
        const gint unlocked = secret_service_unlock_sync(service->get(), locked, nullptr, nullptr, &rawError);
        g_list_free(locked);
        if (rawError) {
            ErrorPtr error(rawError);
            const KeychainStatus status = statusFor(error.get());
            return status == KeychainStatusCode::notAvailable ? status : KeychainStatusCode::authFailed;
        }
        // A dismissed prompt unlocks nothing and reports no error.
        if (unlocked < 0 || static_cast<guint>(unlocked) < lockedCount)
            return KeychainStatusCode::authFailed;
        return KeychainStatusCode::success;
    }
};

} // namespace

std::unique_ptr<KeychainBackend> makeSecretServiceKeychainBackend() {
    return std::make_unique<SecretServiceKeychainBackend>();
}

} // namespace platform
