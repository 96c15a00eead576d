#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// A second, deliberately plain implementation of the version-3 container, written from its byte
// layout with OpenSSL's one-shot primitives and nothing from the library. The tests build
// containers with it for the library to open, and open the library's containers with it.
namespace reference {

QByteArray pbkdf2Key(const QString& password, const QByteArray& salt);
QByteArray hmacSha256(const QByteArray& key, const QByteArray& data);

QByteArray encryptWithPassword(const QByteArray& plaintext, const QString& password,
                               const QByteArray& encryptionSalt, const QByteArray& hmacSalt,
                               const QByteArray& iv);
QByteArray encryptWithKeys(const QByteArray& plaintext, const QByteArray& encryptionKey,
                           const QByteArray& hmacKey, const QByteArray& iv);

// The plaintext, or nothing when the layout, options byte, MAC or padding is wrong.
std::optional<QByteArray> decryptWithPassword(const QByteArray& container, const QString& password);
std::optional<QByteArray> decryptWithKeys(const QByteArray& container, const QByteArray& encryptionKey,
                                          const QByteArray& hmacKey);

// Fixed, recognisable bytes for salts, IVs and keys.
QByteArray pattern(int length, int seed);

} // namespace reference
