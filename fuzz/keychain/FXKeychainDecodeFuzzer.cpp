// Feeds arbitrary item bytes to FXKeychain's decoding, as another program could have stored them
// in the keychain. Every input gives a value or nothing, never a crash, and never the content of
// a keyed archive.
#include "marlockCompanionCommon/keychain/internal/FXKeychainCoding.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    std::optional<platform::Error> parseError;
    const QVariant value = fxkeychain::decode(bytes, &parseError);
    if (value.metaType().id() == QMetaType::QVariantMap &&
        value.toMap().contains(QStringLiteral("$archiver")))
        abort();
    // What decodes can be stored again (strings with NUL characters aside); what is stored reads
    // back as a value that stores as the same bytes.
    if (value.isValid()) {
        platform::Error error;
        if (const std::optional<QByteArray> encoded = fxkeychain::encode(value, &error)) {
            const QVariant reread = fxkeychain::decode(*encoded, nullptr);
            if (!reread.isValid() || fxkeychain::encode(reread, nullptr) != encoded)
                abort();
        }
    }
    return 0;
}
