#include "marlockCompanionCommon/RNCryptor/FormatV3.h"

#include "marlockCompanionCommon/RNCryptor/Fatal_p.h"
#include "marlockCompanionCommon/RNCryptor/OpenSSLStatus_p.h"
#include "marlockCompanionCommon/RNCryptor/SecretBytes_p.h"

#include <openssl/evp.h>

namespace RNCryptor {

using namespace internal;

namespace {
// Fixed by the format: changing either makes every existing container unreadable.
constexpr int pbkdf2Rounds = 10000;
} // namespace

QByteArray FormatV3::makeKey(const QString& password, const QByteArray& salt) {
    QByteArray key(keySize, '\0');
    SecretBytes passwordBytes(password.toUtf8());
    const int result = PKCS5_PBKDF2_HMAC(
        passwordBytes.bytes().constData(), static_cast<int>(passwordBytes.bytes().size()),
        reinterpret_cast<const unsigned char*>(salt.constData()), static_cast<int>(salt.size()), pbkdf2Rounds,
        EVP_sha1(), keySize, reinterpret_cast<unsigned char*>(key.data()));
    const int status = openSSLStatus(result);
    if (status != 0)
        cryptorFatalError(QStringLiteral("SECURITY FAILURE: Could not derive secure password (%1): %2 bytes.")
                              .arg(status)
                              .arg(key.size()));
    return key;
}

} // namespace RNCryptor
