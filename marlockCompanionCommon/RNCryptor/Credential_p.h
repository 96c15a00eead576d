#pragma once

#include "marlockCompanionCommon/RNCryptor/SecretBytes_p.h"

#include <QByteArrayView>
#include <QString>

#include <optional>

namespace RNCryptor::internal {

// What a version-3 decryptor holds to open a container: a password, or the two 32-byte keys.
// Both live in memory of their own, cleansed when the credential goes away.
class Credential {
public:
    [[nodiscard]] static Credential password(QStringView password);
    [[nodiscard]] static Credential keys(QByteArrayView encryptionKey, QByteArrayView hmacKey);
    Credential(Credential&&) = default;
    Credential& operator=(Credential&&) = delete;
    Credential(const Credential&) = delete;
    Credential& operator=(const Credential&) = delete;

    bool isPassword() const { return password_.has_value(); }
    // A view of the stored password, valid as long as the credential.
    QString passwordText() const { return password_ ? password_->text() : QString(); }
    QByteArrayView encryptionKey() const { return encryptionKey_.bytes(); }
    QByteArrayView hmacKey() const { return hmacKey_.bytes(); }

private:
    Credential(std::optional<SecretBytes> password, SecretBytes encryptionKey, SecretBytes hmacKey)
        : password_(std::move(password))
        , encryptionKey_(std::move(encryptionKey))
        , hmacKey_(std::move(hmacKey)) {}

    std::optional<SecretBytes> password_;
    SecretBytes encryptionKey_;
    SecretBytes hmacKey_;
};

} // namespace RNCryptor::internal
