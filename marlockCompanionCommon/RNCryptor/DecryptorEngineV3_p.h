#pragma once

#include "marlockCompanionCommon/RNCryptor/Engine_p.h"
#include "marlockCompanionCommon/RNCryptor/HMACV3_p.h"
#include "marlockCompanionCommon/RNCryptor/OverflowingBuffer_p.h"

#include <QByteArray>
#include <QByteArrayView>

namespace RNCryptor::internal {

// Reads the body of a version-3 container (ciphertext, then the 32-byte MAC) after DecryptorV3
// has taken the header apart and found the keys. Until the stream ends, any 32 bytes could be
// the MAC, so the newest 32 stay in an overflowing buffer; the bytes pushed out of it are
// ciphertext for certain and go to the MAC and the cipher at once, keeping memory flat however
// long the stream.
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
