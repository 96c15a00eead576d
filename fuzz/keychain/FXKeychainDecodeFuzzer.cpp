// Feeds arbitrary item bytes to FXKeychain's decoding, as another program could have stored them
// in the keychain. Every input gives a value or nothing, never a crash, and never the content of
// a keyed archive.
#include "marlockCompanionCommon/keychain/internal/FXKeychainCoding.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace {

// Equal values, counting NaN equal to NaN (a stored NaN reads back as NaN).
bool sameValue(const QVariant& a, const QVariant& b) {
    if (a.metaType() != b.metaType())
        return false;
    switch (a.metaType().id()) {
    case QMetaType::Double:
        return (std::isnan(a.toDouble()) && std::isnan(b.toDouble())) || a == b;
    case QMetaType::QVariantList: {
        const QVariantList x = a.toList(), y = b.toList();
        if (x.size() != y.size())
            return false;
        for (qsizetype i = 0; i < x.size(); ++i)
            if (!sameValue(x[i], y[i]))
                return false;
        return true;
    }
    case QMetaType::QVariantMap: {
        const QVariantMap x = a.toMap(), y = b.toMap();
        if (x.keys() != y.keys())
            return false;
        for (auto it = x.cbegin(); it != x.cend(); ++it)
            if (!sameValue(it.value(), y.value(it.key())))
                return false;
        return true;
    }
    default:
        return a == b;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    std::optional<platform::Error> parseError;
    const QVariant value = keychain::internal::decode(bytes, &parseError);
    if (value.metaType().id() == QMetaType::QVariantMap &&
        value.toMap().contains(QStringLiteral("$archiver")))
        abort();
    // What decodes can be stored again and reads back equal: a store of it never fails, and
    // never removes the key instead. (Bytes are not compared: the writer shares no objects.)
    if (value.isValid()) {
        platform::Error error;
        const keychain::internal::Encoding encoding = keychain::internal::encode(value, &error);
        if (!encoding.bytes || !sameValue(keychain::internal::decode(*encoding.bytes, nullptr), value))
            abort();
    }
    return 0;
}
