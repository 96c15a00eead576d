#include "marlockCompanionCommon/RNCryptor/Credential_p.h"

namespace RNCryptor::internal {

Credential Credential::password(QStringView password) {
    return Credential(SecretBytes::fromText(password), SecretBytes(QByteArrayView()),
                      SecretBytes(QByteArrayView()));
}

Credential Credential::keys(QByteArrayView encryptionKey, QByteArrayView hmacKey) {
    return Credential(std::nullopt, SecretBytes(encryptionKey), SecretBytes(hmacKey));
}

} // namespace RNCryptor::internal
