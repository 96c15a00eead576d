#include "marlockCompanionCommon/RNCryptor/Credential_p.h"

#include "marlockCompanionCommon/RNCryptor/SecretBytes_p.h"

namespace RNCryptor::internal {

Credential Credential::password(const QString& password) {
    Credential credential;
    credential.isPassword_ = true;
    credential.password_ = QString(password.constData(), password.size());
    return credential;
}

Credential Credential::keys(const QByteArray& encryptionKey, const QByteArray& hmacKey) {
    Credential credential;
    // Own copies, so that the wipe on destruction reaches them.
    credential.encryptionKey_ = QByteArray(encryptionKey.constData(), encryptionKey.size());
    credential.hmacKey_ = QByteArray(hmacKey.constData(), hmacKey.size());
    return credential;
}

Credential::~Credential() {
    wipe(password_);
    wipe(encryptionKey_);
    wipe(hmacKey_);
}

} // namespace RNCryptor::internal
