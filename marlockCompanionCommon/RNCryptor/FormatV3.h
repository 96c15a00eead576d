#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QByteArray>
#include <QString>
#include <QtGlobal>

namespace RNCryptor {

// Sizes of the version-3 container, and the key derivation its password variant uses. Code that
// takes a container apart or builds one by hand uses these instead of bare numbers:
//
//   password container  3 | 1 | encryption salt 8 | HMAC salt 8 | IV 16 | ciphertext | MAC 32
//   key container       3 | 0 | IV 16 | ciphertext | MAC 32
//
// The ciphertext is AES-256-CBC with PKCS#7 padding, so a whole number of 16-byte blocks and
// never empty; the MAC is HMAC-SHA256 of all bytes before it. Nothing records the length, so a
// reader can only find the MAC by keeping the newest 32 bytes aside until the stream ends.
struct MCC_EXPORT FormatV3 {
    FormatV3() = delete;

    // The version byte that opens a container of this format.
    static constexpr quint8 formatVersion = 3;
    // AES-256 key and HMAC key alike.
    static constexpr int keySize = 32;
    // Each of the two salts.
    static constexpr int saltSize = 8;
    // One AES block.
    static constexpr int ivSize = 16;
    // An HMAC-SHA256 value, the container's last bytes.
    static constexpr int hmacSize = 32;
    // Header of a key container: version, options, IV.
    static constexpr int keyHeaderSize = 1 + 1 + ivSize;
    // Header of a password container: version, options, two salts, IV.
    static constexpr int passwordHeaderSize = 1 + 1 + saltSize + saltSize + ivSize;

    // A 32-byte key from `password` and `salt`: PBKDF2-HMAC-SHA1 over the password's UTF-8 bytes
    // (not normalised, so "é" typed two ways gives two keys) and the whole salt, 10,000 rounds.
    // Other implementations of the format derive the same key, which is what lets them open our
    // containers. The rounds make each call cost a few milliseconds on purpose. Stops the
    // process if OpenSSL cannot derive at all.
    [[nodiscard]] static QByteArray makeKey(const QString& password, const QByteArray& salt);
};

} // namespace RNCryptor
