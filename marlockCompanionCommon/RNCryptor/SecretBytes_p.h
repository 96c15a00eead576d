#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringView>

#include <memory>
#include <vector>

namespace RNCryptor::internal {

// Overwrites `size` bytes at `data` with zeros, in a way the compiler may not drop as a dead
// store (it would, for a plain memset right before the memory is freed).
void cleanse(void* data, size_t size);

// Cleanses the bytes of `bytes` when this object is their only holder, then empties it.
// A shared buffer belongs to someone else as well; it is released untouched (its last holder
// decides), since wiping it would corrupt the other holder's copy.
void wipe(QByteArray& bytes);
void wipe(QString& text);

// Key material or a password in memory of its own that is cleansed before it is given back:
// derived keys between derivation and the moment the cipher and HMAC contexts have taken them,
// the credential a decryptor keeps until the header arrives. The allocator only exists so that
// a test can look at the bytes as they are handed back.
template <typename Allocator = std::allocator<char>> class BasicSecretBytes {
public:
    explicit BasicSecretBytes(QByteArrayView bytes, const Allocator& allocator = Allocator())
        : bytes_(bytes.begin(), bytes.end(), allocator) {}
    // Takes over a temporary: its bytes are copied here and the temporary is wiped.
    explicit BasicSecretBytes(QByteArray&& bytes, const Allocator& allocator = Allocator())
        : BasicSecretBytes(QByteArrayView(bytes), allocator) {
        wipe(bytes);
    }
    // The UTF-16 code units of a password.
    static BasicSecretBytes fromText(QStringView text, const Allocator& allocator = Allocator()) {
        return BasicSecretBytes(QByteArrayView(reinterpret_cast<const char*>(text.utf16()),
                                               text.size() * qsizetype(sizeof(char16_t))),
                                allocator);
    }

    ~BasicSecretBytes() { cleanse(bytes_.data(), bytes_.size()); }
    BasicSecretBytes(BasicSecretBytes&&) noexcept = default; // leaves the source empty
    BasicSecretBytes& operator=(BasicSecretBytes&&) = delete;
    BasicSecretBytes(const BasicSecretBytes&) = delete;
    BasicSecretBytes& operator=(const BasicSecretBytes&) = delete;

    QByteArrayView bytes() const { return {bytes_.data(), qsizetype(bytes_.size())}; }

    // The bytes read as the UTF-16 text fromText() stored: a view that does not own them, valid
    // as long as this object, so the text never gets a copy that would escape the cleansing.
    QString text() const {
        return QString::fromRawData(reinterpret_cast<const QChar*>(bytes_.data()),
                                    qsizetype(bytes_.size() / sizeof(char16_t)));
    }

private:
    std::vector<char, Allocator> bytes_;
};

using SecretBytes = BasicSecretBytes<>;

} // namespace RNCryptor::internal
