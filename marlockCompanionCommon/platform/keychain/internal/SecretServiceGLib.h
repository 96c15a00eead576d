#pragma once

// Owning pointers for the GLib and libsecret values the Secret Service backend handles. Include
// <libsecret/secret.h> first.
#include <memory>

namespace platform::internal::glib {

struct ObjectUnref {
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
struct VariantUnref {
    void operator()(GVariant* variant) const { g_variant_unref(variant); }
};
struct StrvFree {
    void operator()(gchar** strings) const { g_strfreev(strings); }
};

using ServicePtr = std::unique_ptr<SecretService, ObjectUnref>;
using HashTablePtr = std::unique_ptr<GHashTable, HashTableUnref>;
using ErrorPtr = std::unique_ptr<GError, ErrorFree>;
using ValuePtr = std::unique_ptr<SecretValue, ValueUnref>;
using VariantPtr = std::unique_ptr<GVariant, VariantUnref>;
using StrvPtr = std::unique_ptr<gchar*, StrvFree>;

} // namespace platform::internal::glib
