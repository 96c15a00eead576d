#include "tests/RNCryptor/ReferenceContainer.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

namespace reference {

namespace {

const unsigned char* bytes(const QByteArray& data) {
    return reinterpret_cast<const unsigned char*>(data.constData());
}

// Nothing when the padding is wrong.
std::optional<QByteArray> aes256cbc(bool encrypting, const QByteArray& input, const QByteArray& key,
                                    const QByteArray& iv) {
    QByteArray output(input.size() + 16, '\0');
    auto* out = reinterpret_cast<unsigned char*>(output.data());
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    int first = 0, last = 0;
    const bool ok =
        EVP_CipherInit_ex(context, EVP_aes_256_cbc(), nullptr, bytes(key), bytes(iv), encrypting) == 1 &&
        EVP_CipherUpdate(context, out, &first, bytes(input), int(input.size())) == 1 &&
        EVP_CipherFinal_ex(context, out + first, &last) == 1;
    EVP_CIPHER_CTX_free(context);
    output.resize(first + last);
    return ok ? std::optional(output) : std::nullopt;
}

QByteArray seal(const QByteArray& header, const QByteArray& plaintext, const QByteArray& encryptionKey,
                const QByteArray& hmacKey, const QByteArray& iv) {
    const QByteArray container = header + aes256cbc(true, plaintext, encryptionKey, iv).value();
    return container + hmacSha256(hmacKey, container);
}

std::optional<QByteArray> open(const QByteArray& container, int headerSize, const QByteArray& encryptionKey,
                               const QByteArray& hmacKey, const QByteArray& iv) {
    const QByteArray signedPart = container.first(container.size() - 32);
    const QByteArray mac = container.last(32);
    const QByteArray expected = hmacSha256(hmacKey, signedPart);
    if (CRYPTO_memcmp(mac.constData(), expected.constData(), 32) != 0)
        return std::nullopt;
    return aes256cbc(false, signedPart.sliced(headerSize), encryptionKey, iv);
}

} // namespace

QByteArray hmacSha256(const QByteArray& key, const QByteArray& data) {
    QByteArray mac(32, '\0');
    unsigned int length = 0;
    HMAC(EVP_sha256(), key.constData(), int(key.size()), bytes(data), size_t(data.size()),
         reinterpret_cast<unsigned char*>(mac.data()), &length);
    return mac;
}

QByteArray pbkdf2Key(const QString& password, const QByteArray& salt) {
    const QByteArray utf8 = password.toUtf8();
    QByteArray key(32, '\0');
    PKCS5_PBKDF2_HMAC(utf8.constData(), int(utf8.size()), bytes(salt), int(salt.size()), 10000, EVP_sha1(),
                      32, reinterpret_cast<unsigned char*>(key.data()));
    return key;
}

QByteArray encryptWithPassword(const QByteArray& plaintext, const QString& password,
                               const QByteArray& encryptionSalt, const QByteArray& hmacSalt,
                               const QByteArray& iv) {
    const QByteArray header = QByteArray("\x03\x01", 2) + encryptionSalt + hmacSalt + iv;
    return seal(header, plaintext, pbkdf2Key(password, encryptionSalt), pbkdf2Key(password, hmacSalt), iv);
}

QByteArray encryptWithKeys(const QByteArray& plaintext, const QByteArray& encryptionKey,
                           const QByteArray& hmacKey, const QByteArray& iv) {
    return seal(QByteArray("\x03\x00", 2) + iv, plaintext, encryptionKey, hmacKey, iv);
}

std::optional<QByteArray> decryptWithPassword(const QByteArray& container, const QString& password) {
    if (container.size() < 34 + 16 + 32 || container[0] != 3 || container[1] != 1)
        return std::nullopt;
    return open(container, 34, pbkdf2Key(password, container.sliced(2, 8)),
                pbkdf2Key(password, container.sliced(10, 8)), container.sliced(18, 16));
}

std::optional<QByteArray> decryptWithKeys(const QByteArray& container, const QByteArray& encryptionKey,
                                          const QByteArray& hmacKey) {
    if (container.size() < 18 + 16 + 32 || container[0] != 3 || container[1] != 0)
        return std::nullopt;
    return open(container, 18, encryptionKey, hmacKey, container.sliced(2, 16));
}

QByteArray pattern(int length, int seed) {
    QByteArray result(length, '\0');
    for (int i = 0; i < length; ++i)
        result[i] = char((seed * 37 + i * 11) & 0xff);
    return result;
}

} // namespace reference
