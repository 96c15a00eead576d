#pragma once

#include "marlockCompanionCommon/RNCryptor/Engine_p.h"
#include "marlockCompanionCommon/RNCryptor/HMACV3_p.h"
#include "marlockCompanionCommon/RNCryptor/OverflowingBuffer_p.h"

#include <QByteArray>
#include <QByteArrayView>

namespace RNCryptor::internal {

// The reading side of a version-3 container once its header has been parsed: the body (the
// ciphertext followed by the 32-byte MAC) goes through an overflowing buffer that keeps the last
// 32 bytes back, since they are the MAC; everything released is MACed and deciphered.
class DecryptorEngineV3 {
public:
    // Keys of 32 bytes and an IV of 16 (anything else stops the process); `header` is the whole
    // header as received, which the MAC covers first.
    DecryptorEngineV3(QByteArrayView encryptionKey, QByteArrayView hmacKey, QByteArrayView iv,
                      QByteArrayView header);
    DecryptorEngineV3(const DecryptorEngineV3&) = delete;
    DecryptorEngineV3& operator=(const DecryptorEngineV3&) = delete;

    // Takes the next piece of the body; returns plaintext not yet authenticated.
    [[nodiscard]] QByteArray update(QByteArrayView data);

    // Checks the MAC and returns the last plaintext; throws RNCryptor::Error::hmacMismatch when
    // the held-back bytes are not the MAC of what came before (the cipher is then not finished).
    [[nodiscard]] QByteArray finalData();

private:
    OverflowingBuffer buffer_;
    HMACV3 hmac_;
    Engine engine_;
};

} // namespace RNCryptor::internal
