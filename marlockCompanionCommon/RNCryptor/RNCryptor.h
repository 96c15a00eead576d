#pragma once

// The encrypted container in which token data travels: password-based (or key-based)
// authenticated encryption in the RNCryptor data format, version 3 — AES-256-CBC with PKCS#7
// padding, HMAC-SHA256 over header and ciphertext, keys derived with PBKDF2-HMAC-SHA1 (10,000
// rounds). Containers written here open in any other implementation of that format and the
// reverse.
//
//   const QByteArray container = RNCryptor::encrypt(plaintext, password);
//   try {
//       const QByteArray back = RNCryptor::decrypt(container, password);
//   } catch (const RNCryptor::Error& error) { … }

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/RNCryptor/Decryptor.h"
#include "marlockCompanionCommon/RNCryptor/DecryptorV3.h"
#include "marlockCompanionCommon/RNCryptor/Encryptor.h"
#include "marlockCompanionCommon/RNCryptor/EncryptorV3.h"
#include "marlockCompanionCommon/RNCryptor/Error.h"
#include "marlockCompanionCommon/RNCryptor/FormatV3.h"

#include <QByteArray>
#include <QString>

namespace RNCryptor {

// `length` bytes from the system's secure random source. Stops the process if the source fails.
[[nodiscard]] MCC_EXPORT QByteArray randomData(qsizetype length);

// A password container of `data`: 34 + 16 × (⌊size / 16⌋ + 1) + 32 bytes, with fresh salts and
// IV. Costs two key derivations. An empty password stops the process.
[[nodiscard]] MCC_EXPORT QByteArray encrypt(const QByteArray& data, const QString& password);

// The plaintext of a password container. Costs two key derivations once the header is valid.
// Throws RNCryptor::Error (unknownHeader, messageTooShort, invalidCredentialType, hmacMismatch).
[[nodiscard]] MCC_EXPORT QByteArray decrypt(const QByteArray& data, const QString& password);

} // namespace RNCryptor
