#include "marlockCompanionCommon/RNCryptor/DecryptorV3.h"

#include "marlockCompanionCommon/RNCryptor/Credential_p.h"
#include "marlockCompanionCommon/RNCryptor/DecryptorEngineV3_p.h"
#include "marlockCompanionCommon/RNCryptor/Error.h"
#include "marlockCompanionCommon/RNCryptor/Fatal_p.h"
#include "marlockCompanionCommon/RNCryptor/FormatV3.h"
#include "marlockCompanionCommon/RNCryptor/SecretBytes_p.h"

namespace RNCryptor {

using namespace internal;

namespace {
constexpr char passwordOptions = 1;
constexpr char keyOptions = 0;
} // namespace

bool DecryptorV3::canDecrypt(QByteArrayView preamble) {
    return !preamble.isEmpty() && quint8(preamble.front()) == FormatV3::formatVersion;
}

DecryptorV3::DecryptorV3(const QString& password)
    : credential_(std::make_unique<Credential>(Credential::password(password))) {}

DecryptorV3::DecryptorV3(const QByteArray& encryptionKey, const QByteArray& hmacKey) {
    cryptorPrecondition(encryptionKey.size() == FormatV3::keySize, "encryption key must be 32 bytes");
    cryptorPrecondition(hmacKey.size() == FormatV3::keySize, "HMAC key must be 32 bytes");
    credential_ = std::make_unique<Credential>(Credential::keys(encryptionKey, hmacKey));
}

DecryptorV3::~DecryptorV3() = default;

QByteArray DecryptorV3::decrypt(const QByteArray& data) {
    return oneshot(data);
}

QByteArray DecryptorV3::update(const QByteArray& data) {
    if (decryptorEngine_)
        return decryptorEngine_->update(data);

    // Sharing instead of appending to an empty buffer spares a copy of a whole container.
    if (buffer_.isEmpty())
        buffer_ = data;
    else
        buffer_.append(data);
    const qsizetype required =
        credential_->isPassword() ? FormatV3::passwordHeaderSize : FormatV3::keyHeaderSize;
    if (buffer_.size() < required)
        return {};

    // A header that fails leaves everything as it was, so the next update fails the same way.
    decryptorEngine_ = makeEngine(QByteArrayView(buffer_).first(required));
    const QByteArray gathered = std::exchange(buffer_, QByteArray());
    return decryptorEngine_->update(QByteArrayView(gathered).sliced(required));
}

QByteArray DecryptorV3::finalData() {
    if (!decryptorEngine_)
        throw Error(Error::messageTooShort);
    return decryptorEngine_->finalData();
}

std::unique_ptr<internal::DecryptorEngineV3> DecryptorV3::makeEngine(QByteArrayView header) const {
    if (credential_->isPassword())
        return makeEngine(credential_->passwordText(), header);
    return makeEngine(credential_->encryptionKey(), credential_->hmacKey(), header);
}

std::unique_ptr<internal::DecryptorEngineV3> DecryptorV3::makeEngine(const QString& password,
                                                                     QByteArrayView header) {
    cryptorPrecondition(header.size() == FormatV3::passwordHeaderSize, "password header must be 34 bytes");
    // Both checks come before the slow key derivation.
    if (!canDecrypt(header))
        throw Error(Error::unknownHeader);
    if (header[1] != passwordOptions)
        throw Error(Error::invalidCredentialType);
    const QByteArray encryptionSalt = header.sliced(2, FormatV3::saltSize).toByteArray();
    const QByteArray hmacSalt = header.sliced(2 + FormatV3::saltSize, FormatV3::saltSize).toByteArray();
    const QByteArrayView iv = header.sliced(2 + 2 * FormatV3::saltSize, FormatV3::ivSize);
    const SecretBytes encryptionKey(FormatV3::makeKey(password, encryptionSalt));
    const SecretBytes hmacKey(FormatV3::makeKey(password, hmacSalt));
    return std::make_unique<DecryptorEngineV3>(encryptionKey.bytes(), hmacKey.bytes(), iv, header);
}

std::unique_ptr<internal::DecryptorEngineV3>
DecryptorV3::makeEngine(QByteArrayView encryptionKey, QByteArrayView hmacKey, QByteArrayView header) {
    cryptorPrecondition(header.size() == FormatV3::keyHeaderSize, "key header must be 18 bytes");
    cryptorPrecondition(encryptionKey.size() == FormatV3::keySize, "encryption key must be 32 bytes");
    cryptorPrecondition(hmacKey.size() == FormatV3::keySize, "HMAC key must be 32 bytes");
    if (!canDecrypt(header))
        throw Error(Error::unknownHeader);
    if (header[1] != keyOptions)
        throw Error(Error::invalidCredentialType);
    return std::make_unique<DecryptorEngineV3>(encryptionKey, hmacKey, header.sliced(2, FormatV3::ivSize),
                                               header);
}

} // namespace RNCryptor
