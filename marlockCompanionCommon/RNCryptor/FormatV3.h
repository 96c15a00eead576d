#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QByteArray>
#include <QString>
#include <QtGlobal>

namespace RNCryptor {

// Constants of the version-3 container and its password-based key derivation.
//
// Password container: 3, 1, encryption salt (8), HMAC salt (8), IV (16), AES-256-CBC ciphertext
// (PKCS#7, a positive multiple of 16), HMAC-SHA256 (32) over everything before it.
// Key container: 3, 0, IV (16), ciphertext, HMAC-SHA256 (32). There is no length field: the
// MAC is always the last 32 bytes.
struct MCC_EXPORT FormatV3 {
    FormatV3() = delete;

    // First byte of every container.
    static constexpr quint8 formatVersion = 3;
    // Length of the encryption key and of the HMAC key (AES-256).
    static constexpr int keySize = 32;
    // Length of each salt of a password container.
    static constexpr int saltSize = 8;
    // Length of the IV (one AES block).
    static constexpr int ivSize = 16;
    // Length of the MAC at the end of every container.
    static constexpr int hmacSize = 32;
    // Header of a key container: version, options, IV.
    static constexpr int keyHeaderSize = 1 + 1 + ivSize;
    // Header of a password container: version, options, two salts, IV.
    static constexpr int passwordHeaderSize = 1 + 1 + saltSize + saltSize + ivSize;

    // Derives a 32-byte key from `password` (its UTF-8 bytes, not normalised) and `salt` (all of
    // it, whatever its length) with PBKDF2-HMAC-SHA1 and 10,000 rounds. Deliberately slow (a few
    // milliseconds). The same password and salt always give the same key. Stops the process if
    // the derivation itself fails.
    [[nodiscard]] static QByteArray makeKey(const QString& password, const QByteArray& salt);
};

} // namespace RNCryptor
