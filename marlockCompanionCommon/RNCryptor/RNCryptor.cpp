#include "marlockCompanionCommon/RNCryptor/RNCryptor.h"

#include "marlockCompanionCommon/RNCryptor/Fatal_p.h"
#include "marlockCompanionCommon/RNCryptor/OpenSSLStatus_p.h"

#include <openssl/rand.h>

#include <algorithm>
#include <climits>

namespace RNCryptor {

using namespace internal;

QByteArray randomData(qsizetype length) {
    QByteArray bytes(length, '\0');
    int result = 1;
    for (qsizetype filled = 0; filled < length && result == 1;) {
        const qsizetype piece = std::min<qsizetype>(length - filled, INT_MAX);
        result = RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data() + filled), static_cast<int>(piece));
        filled += piece;
    }
    const int status = openSSLStatus(result);
    if (status != 0)
        cryptorFatalError(
            QStringLiteral("SECURITY FAILURE: Could not generate secure random numbers: %1.").arg(status));
    return bytes;
}

QByteArray encrypt(const QByteArray& data, const QString& password) {
    return Encryptor(password).encrypt(data);
}

QByteArray decrypt(const QByteArray& data, const QString& password) {
    return Decryptor(password).decrypt(data);
}

} // namespace RNCryptor
