#include "marlockCompanionCommon/RNCryptor/EncryptorV3.h"

#include "marlockCompanionCommon/RNCryptor/Engine_p.h"
#include "marlockCompanionCommon/RNCryptor/Fatal_p.h"
#include "marlockCompanionCommon/RNCryptor/FormatV3.h"
#include "marlockCompanionCommon/RNCryptor/HMACV3_p.h"
#include "marlockCompanionCommon/RNCryptor/RNCryptor.h"
#include "marlockCompanionCommon/RNCryptor/SecretBytes_p.h"

namespace RNCryptor {

using namespace internal;

namespace {

QByteArray passwordHeader(const QByteArray& encryptionSalt, const QByteArray& hmacSalt,
                          const QByteArray& iv) {
    QByteArray header;
    header.reserve(2 + encryptionSalt.size() + hmacSalt.size() + iv.size());
    header.append(char(FormatV3::formatVersion)).append(char(1));
    header.append(encryptionSalt).append(hmacSalt).append(iv);
    return header;
}

QByteArray keyHeader(const QByteArray& iv) {
    QByteArray header;
    header.reserve(2 + iv.size());
    header.append(char(FormatV3::formatVersion)).append(char(0)).append(iv);
    return header;
}

} // namespace

EncryptorV3::EncryptorV3(const QString& password) {
    // Drawn in this order: encryption salt, HMAC salt, IV.
    const QByteArray encryptionSalt = randomData(FormatV3::saltSize);
    const QByteArray hmacSalt = randomData(FormatV3::saltSize);
    const QByteArray iv = randomData(FormatV3::ivSize);
    const SecretBytes encryptionKey(FormatV3::makeKey(password, encryptionSalt));
    const SecretBytes hmacKey(FormatV3::makeKey(password, hmacSalt));
    start(encryptionKey.bytes(), hmacKey.bytes(), iv, passwordHeader(encryptionSalt, hmacSalt, iv));
}

EncryptorV3::EncryptorV3(const QString& password, const QByteArray& encryptionSalt,
                         const QByteArray& hmacSalt, const QByteArray& iv) {
    const SecretBytes encryptionKey(FormatV3::makeKey(password, encryptionSalt));
    const SecretBytes hmacKey(FormatV3::makeKey(password, hmacSalt));
    start(encryptionKey.bytes(), hmacKey.bytes(), iv, passwordHeader(encryptionSalt, hmacSalt, iv));
}

EncryptorV3::EncryptorV3(const QByteArray& encryptionKey, const QByteArray& hmacKey)
    : EncryptorV3(encryptionKey, hmacKey, randomData(FormatV3::ivSize)) {}

EncryptorV3::EncryptorV3(const QByteArray& encryptionKey, const QByteArray& hmacKey, const QByteArray& iv) {
    start(encryptionKey, hmacKey, iv, keyHeader(iv));
}

EncryptorV3::~EncryptorV3() = default;

void EncryptorV3::start(QByteArrayView encryptionKey, QByteArrayView hmacKey, QByteArrayView iv,
                        QByteArray header) {
    cryptorPrecondition(encryptionKey.size() == FormatV3::keySize, "encryption key must be 32 bytes");
    cryptorPrecondition(hmacKey.size() == FormatV3::keySize, "HMAC key must be 32 bytes");
    cryptorPrecondition(iv.size() == FormatV3::ivSize, "IV must be 16 bytes");
    hmac_ = std::make_unique<HMACV3>(hmacKey);
    engine_ = std::make_unique<Engine>(CryptorOperation::encrypt, encryptionKey, iv);
    pendingHeader_ = std::move(header);
}

// Every output starts here: the header leads the first one, even when the cipher has nothing
// yet. The cipher then writes straight after it, and the MAC takes the output in stream order.
// Without a header and with no room asked for, the output stays unallocated.
QByteArray EncryptorV3::takeHeader(qsizetype room) {
    QByteArray output;
    if (pendingHeader_) {
        output = std::move(*pendingHeader_);
        pendingHeader_.reset();
    }
    if (room > 0)
        output.reserve(output.size() + room);
    return output;
}

QByteArray EncryptorV3::encrypt(const QByteArray& data) {
    QByteArray output = takeHeader(engine_->outputLength(data.size()) + FormatV3::hmacSize);
    engine_->appendUpdate(data, output);
    engine_->appendFinal(output);
    hmac_->update(output);
    output.append(hmac_->finalData());
    return output;
}

QByteArray EncryptorV3::update(const QByteArray& data) {
    // Most small pieces complete no block: they then cost no allocation.
    const qsizetype room = engine_->updateLength(data.size()) > 0 ? engine_->outputLength(data.size()) : 0;
    QByteArray output = takeHeader(room);
    engine_->appendUpdate(data, output);
    hmac_->update(output);
    return output;
}

QByteArray EncryptorV3::finalData() {
    QByteArray output = takeHeader(engine_->outputLength(0) + FormatV3::hmacSize);
    engine_->appendFinal(output);
    hmac_->update(output);
    output.append(hmac_->finalData());
    return output;
}

} // namespace RNCryptor
