#pragma once

#include <QByteArray>
#include <QString>

namespace RNCryptor::internal {

// What a version-3 decryptor holds to open a container: a password, or the two 32-byte keys.
// Wiped when destroyed.
class Credential {
public:
    [[nodiscard]] static Credential password(const QString& password);
    [[nodiscard]] static Credential keys(const QByteArray& encryptionKey, const QByteArray& hmacKey);
    ~Credential();
    Credential(Credential&&) = default;
    Credential& operator=(Credential&&) = delete;
    Credential(const Credential&) = delete;
    Credential& operator=(const Credential&) = delete;

    bool isPassword() const { return isPassword_; }
    const QString& passwordText() const { return password_; }
    const QByteArray& encryptionKey() const { return encryptionKey_; }
    const QByteArray& hmacKey() const { return hmacKey_; }

private:
    Credential() = default;

    bool isPassword_ = false;
    QString password_;
    QByteArray encryptionKey_;
    QByteArray hmacKey_;
};

} // namespace RNCryptor::internal
