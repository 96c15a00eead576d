#include "marlockCompanionCommon/RNCryptor/DecryptorEngineV3_p.h"

#include "marlockCompanionCommon/RNCryptor/ConsistentTime_p.h"
#include "marlockCompanionCommon/RNCryptor/Error.h"
#include "marlockCompanionCommon/RNCryptor/Fatal_p.h"
#include "marlockCompanionCommon/RNCryptor/FormatV3.h"

#include <algorithm>

namespace RNCryptor::internal {

namespace {

QByteArrayView checkedHMACKey(QByteArrayView encryptionKey, QByteArrayView hmacKey, QByteArrayView iv) {
    cryptorPrecondition(encryptionKey.size() == RNCryptor::FormatV3::keySize,
                        "encryption key must be 32 bytes");
    cryptorPrecondition(hmacKey.size() == RNCryptor::FormatV3::keySize, "HMAC key must be 32 bytes");
    cryptorPrecondition(iv.size() == RNCryptor::FormatV3::ivSize, "IV must be 16 bytes");
    return hmacKey;
}

} // namespace

DecryptorEngineV3::DecryptorEngineV3(QByteArrayView encryptionKey, QByteArrayView hmacKey, QByteArrayView iv,
                                     QByteArrayView header)
    : buffer_(RNCryptor::FormatV3::hmacSize)
    , hmac_(checkedHMACKey(encryptionKey, hmacKey, iv))
    , engine_(CryptorOperation::decrypt, encryptionKey, iv) {
    hmac_.update(header);
}

QByteArray DecryptorEngineV3::update(QByteArrayView data) {
    QByteArray plaintext;
    // Room for this call's plaintext in one allocation, and none at all when no block is complete
    // yet (most calls, when the stream comes in small pieces).
    const qsizetype released = std::max<qsizetype>(0, buffer_.size() + data.size() - buffer_.capacity());
    if (engine_.updateLength(released) > 0)
        plaintext.reserve(engine_.outputLength(released));
    buffer_.release(data, [&](QByteArrayView part) {
        hmac_.update(part);
        engine_.appendUpdate(part, plaintext);
    });
    return plaintext;
}

QByteArray DecryptorEngineV3::finalData() {
    const QByteArray computed = hmac_.finalData();
    const QByteArray received = buffer_.finalData();
    if (!isEqualInConsistentTime(computed, received))
        throw RNCryptor::Error(RNCryptor::Error::hmacMismatch);
    return engine_.finalData();
}

} // namespace RNCryptor::internal
