#include "marlockCompanionCommon/RNCryptor/DecryptorEngineV3_p.h"

#include "marlockCompanionCommon/RNCryptor/ConsistentTime_p.h"
#include "marlockCompanionCommon/RNCryptor/Error.h"
#include "marlockCompanionCommon/RNCryptor/Fatal_p.h"
#include "marlockCompanionCommon/RNCryptor/FormatV3.h"

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
    const OverflowingBuffer::Release released = buffer_.release(data);
    hmac_.update(released.held);
    hmac_.update(released.fresh);
    QByteArray plaintext;
    plaintext.reserve(engine_.outputLength(released.held.size() + released.fresh.size()));
    engine_.appendUpdate(released.held, plaintext);
    engine_.appendUpdate(released.fresh, plaintext);
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
