#pragma once

#include <QByteArray>
#include <QString>

namespace RNCryptor::internal {

// Overwrites the bytes of `bytes` when this object is their only holder, then empties it.
// A shared buffer belongs to someone else as well; it is released untouched (its last holder
// decides), since wiping it would corrupt the other holder's copy.
void wipe(QByteArray& bytes);
void wipe(QString& text);

// Key material that is wiped when it goes out of scope: derived keys live in one of these
// between derivation and the moment the cipher and HMAC contexts have taken them.
class SecretBytes {
public:
    explicit SecretBytes(QByteArray bytes)
        : bytes_(std::move(bytes)) {}
    ~SecretBytes() { wipe(bytes_); }
    SecretBytes(const SecretBytes&) = delete;
    SecretBytes& operator=(const SecretBytes&) = delete;

    const QByteArray& bytes() const { return bytes_; }

private:
    QByteArray bytes_;
};

} // namespace RNCryptor::internal
