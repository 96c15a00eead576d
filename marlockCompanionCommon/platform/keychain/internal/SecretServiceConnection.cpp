// Works on object paths (libsecret's D-Bus path calls, plus plain GDBus calls for properties and
// writes) rather than on libsecret's item objects: building an item object fetches all of its
// properties, a round trip per item that most keychain operations never look at.
//
// GLib comes first: Qt's keyword macros ("signals") would otherwise rewrite GDBus declarations.
#define SECRET_API_SUBJECT_TO_CHANGE
#include <libsecret/secret.h>

#include "marlockCompanionCommon/platform/keychain/internal/SecretServiceConnection.h"

#include "marlockCompanionCommon/platform/keychain/internal/SecretServiceGLib.h"
#include "marlockCompanionCommon/platform/keychain/internal/SecretServiceStatus.h"

namespace platform::internal {

using namespace glib;
namespace Code = KeychainStatusCode;

struct SecretServiceConnection::Handle {
    ServicePtr service;
};

namespace {

const char* const kItemInterface = "org.freedesktop.Secret.Item";
const char* const kPropertiesInterface = "org.freedesktop.DBus.Properties";
const char* const kContentType = "application/octet-stream";

HashTablePtr attributeTable(const SecretAttributes& attributes) {
    HashTablePtr table(g_hash_table_new(g_str_hash, g_str_equal));
    for (const auto& [name, value] : attributes)
        g_hash_table_insert(table.get(), const_cast<char*>(name.c_str()), const_cast<char*>(value.c_str()));
    return table;
}

GVariant* attributeVariant(const SecretAttributes& attributes) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
    for (const auto& [name, value] : attributes)
        g_variant_builder_add(&builder, "{ss}", name.c_str(), value.c_str());
    return g_variant_builder_end(&builder);
}

ValuePtr secretValue(const QByteArray& bytes) {
    return ValuePtr(secret_value_new(bytes.constData(), bytes.size(), kContentType));
}

std::vector<const gchar*> pathArray(const std::vector<std::string>& paths) {
    std::vector<const gchar*> array;
    for (const std::string& path : paths)
        array.push_back(path.c_str());
    array.push_back(nullptr);
    return array;
}

void appendPaths(gchar** paths, std::vector<std::string>* out) {
    for (gchar** p = paths; p && *p; ++p)
        out->emplace_back(*p);
}

// One method call on an item; `parameters` is consumed.
KeychainStatus callItem(SecretService* service, const std::string& item, const char* interface,
                        const char* method, GVariant* parameters, VariantPtr* reply = nullptr) {
    GDBusProxy* proxy = G_DBUS_PROXY(service);
    GError* rawError = nullptr;
    VariantPtr result(g_dbus_connection_call_sync(
        g_dbus_proxy_get_connection(proxy), g_dbus_proxy_get_name(proxy), item.c_str(), interface, method,
        parameters, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &rawError));
    if (rawError)
        return reportSecretServiceFailure(method, ErrorPtr(rawError).get(), SecretServiceTarget::item);
    if (reply)
        *reply = std::move(result);
    return Code::success;
}

KeychainStatus setProperty(SecretService* service, const std::string& item, const char* name,
                           GVariant* value) {
    return callItem(service, item, kPropertiesInterface, "Set",
                    g_variant_new("(ssv)", kItemInterface, name, value));
}

} // namespace

SecretServiceConnection::SecretServiceConnection(std::unique_ptr<Handle> handle)
    : handle_(std::move(handle)) {}

SecretServiceConnection::~SecretServiceConnection() = default;

KeychainStatus SecretServiceConnection::open(std::unique_ptr<SecretServiceConnection>* connection) {
    GError* rawError = nullptr;
    // A service object of our own rather than libsecret's shared one, so that a connection that
    // went bad can be dropped and opened again.
    ServicePtr service(secret_service_open_sync(SECRET_TYPE_SERVICE, nullptr, SECRET_SERVICE_OPEN_SESSION,
                                                nullptr, &rawError));
    if (rawError)
        return reportSecretServiceFailure("OpenSession", ErrorPtr(rawError).get(),
                                          SecretServiceTarget::connection);
    auto handle = std::make_unique<Handle>();
    handle->service = std::move(service);
    connection->reset(new SecretServiceConnection(std::move(handle)));
    return Code::success;
}

KeychainStatus SecretServiceConnection::search(const SecretAttributes& attributes,
                                               SecretSearchResult* result) const {
    HashTablePtr table = attributeTable(attributes);
    GError* rawError = nullptr;
    gchar** unlocked = nullptr;
    gchar** locked = nullptr;
    // No schema: the attributes are matched as given (the caller includes the schema's name).
    secret_service_search_for_dbus_paths_sync(handle_->service.get(), nullptr, table.get(), nullptr,
                                              &unlocked, &locked, &rawError);
    StrvPtr ownUnlocked(unlocked), ownLocked(locked);
    if (rawError)
        return reportSecretServiceFailure("SearchItems", ErrorPtr(rawError).get(),
                                          SecretServiceTarget::service);
    appendPaths(unlocked, &result->unlocked);
    appendPaths(locked, &result->locked);
    return Code::success;
}

KeychainStatus SecretServiceConnection::unlock(const std::vector<std::string>& paths) const {
    std::vector<const gchar*> array = pathArray(paths);
    GError* rawError = nullptr;
    gchar** unlocked = nullptr;
    const gint count = secret_service_unlock_dbus_paths_sync(handle_->service.get(), array.data(), nullptr,
                                                             &unlocked, &rawError);
    StrvPtr own(unlocked);
    if (rawError) {
        const KeychainStatus status =
            reportSecretServiceFailure("Unlock", ErrorPtr(rawError).get(), SecretServiceTarget::service);
        return status == Code::notAvailable ? status : Code::authFailed;
    }
    // A dismissed prompt unlocks nothing and reports no error.
    return count >= 0 && static_cast<std::size_t>(count) >= paths.size() ? Code::success : Code::authFailed;
}

KeychainStatus SecretServiceConnection::properties(const std::string& item,
                                                   SecretItemProperties* properties) const {
    VariantPtr reply;
    if (const KeychainStatus status = callItem(handle_->service.get(), item, kPropertiesInterface, "GetAll",
                                               g_variant_new("(s)", kItemInterface), &reply);
        status != Code::success)
        return status;
    VariantPtr all(g_variant_get_child_value(reply.get(), 0));
    if (VariantPtr attributes{g_variant_lookup_value(all.get(), "Attributes", G_VARIANT_TYPE("a{ss}"))}) {
        GVariantIter iter;
        g_variant_iter_init(&iter, attributes.get());
        const gchar* name = nullptr;
        const gchar* value = nullptr;
        while (g_variant_iter_next(&iter, "{&s&s}", &name, &value))
            properties->attributes[name] = value;
    }
    if (VariantPtr label{g_variant_lookup_value(all.get(), "Label", G_VARIANT_TYPE_STRING)})
        properties->label = g_variant_get_string(label.get(), nullptr);
    if (VariantPtr created{g_variant_lookup_value(all.get(), "Created", G_VARIANT_TYPE_UINT64)})
        properties->created = g_variant_get_uint64(created.get());
    return Code::success;
}

KeychainStatus SecretServiceConnection::secrets(const std::vector<std::string>& items,
                                                std::map<std::string, QByteArray>* secrets) const {
    std::vector<const gchar*> array = pathArray(items);
    GError* rawError = nullptr;
    HashTablePtr values(secret_service_get_secrets_for_dbus_paths_sync(handle_->service.get(), array.data(),
                                                                       nullptr, &rawError));
    if (rawError)
        return reportSecretServiceFailure("GetSecrets", ErrorPtr(rawError).get(), SecretServiceTarget::item);
    for (const std::string& item : items) {
        auto* value = static_cast<SecretValue*>(g_hash_table_lookup(values.get(), item.c_str()));
        // The service leaves out items that are locked (again, since the search).
        if (!value)
            return Code::authFailed;
        // The content type that comes back is not reliable: the secret is bytes.
        gsize length = 0;
        const gchar* bytes = secret_value_get(value, &length);
        (*secrets)[item] = QByteArray(bytes, static_cast<qsizetype>(length));
    }
    return Code::success;
}

KeychainStatus SecretServiceConnection::setSecret(const std::string& item, const QByteArray& secret) const {
    ValuePtr value = secretValue(secret);
    VariantPtr encoded(
        g_variant_ref_sink(secret_service_encode_dbus_secret(handle_->service.get(), value.get())));
    return callItem(handle_->service.get(), item, kItemInterface, "SetSecret",
                    g_variant_new("(@(oayays))", encoded.get()));
}

KeychainStatus SecretServiceConnection::setAttributes(const std::string& item,
                                                      const SecretAttributes& attributes) const {
    return setProperty(handle_->service.get(), item, "Attributes", attributeVariant(attributes));
}

KeychainStatus SecretServiceConnection::setLabel(const std::string& item, const std::string& label) const {
    return setProperty(handle_->service.get(), item, "Label", g_variant_new_string(label.c_str()));
}

KeychainStatus SecretServiceConnection::createItem(const std::string& collection, const std::string& label,
                                                   const SecretAttributes& attributes,
                                                   const QByteArray& secret) const {
    HashTablePtr properties(g_hash_table_new_full(g_str_hash, g_str_equal, nullptr,
                                                  reinterpret_cast<GDestroyNotify>(g_variant_unref)));
    g_hash_table_insert(properties.get(), const_cast<char*>("org.freedesktop.Secret.Item.Label"),
                        g_variant_ref_sink(g_variant_new_string(label.c_str())));
    g_hash_table_insert(properties.get(), const_cast<char*>("org.freedesktop.Secret.Item.Attributes"),
                        g_variant_ref_sink(attributeVariant(attributes)));
    ValuePtr value = secretValue(secret);
    GError* rawError = nullptr;
    g_free(secret_service_create_item_dbus_path_sync(handle_->service.get(), collection.c_str(),
                                                     properties.get(), value.get(),
                                                     SECRET_ITEM_CREATE_REPLACE, nullptr, &rawError));
    if (rawError)
        return reportSecretServiceFailure("CreateItem", ErrorPtr(rawError).get(),
                                          SecretServiceTarget::collection);
    return Code::success;
}

KeychainStatus SecretServiceConnection::deleteItem(const std::string& item) const {
    GError* rawError = nullptr;
    if (!secret_service_delete_item_dbus_path_sync(handle_->service.get(), item.c_str(), nullptr, &rawError))
        return reportSecretServiceFailure("Delete", ErrorPtr(rawError).get(), SecretServiceTarget::item);
    return Code::success;
}

} // namespace platform::internal
