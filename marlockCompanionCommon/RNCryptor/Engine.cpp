#include "marlockCompanionCommon/RNCryptor/Engine_p.h"

#include "marlockCompanionCommon/RNCryptor/SecretBytes_p.h"

#include <openssl/evp.h>

#include <algorithm>
#include <climits>

namespace RNCryptor::internal {

namespace {

constexpr qsizetype blockSize = 16;
// The cipher counts in int; longer input goes through in pieces of this size (a block multiple).
constexpr qsizetype maximumPiece = qsizetype(1) << 30;

// Fetched once per process: the implementation lookup is the costly part of creating a context.
const EVP_CIPHER* cipherForKeyLength(qsizetype keyLength) {
    static const EVP_CIPHER* aes128 = EVP_CIPHER_fetch(nullptr, "AES-128-CBC", nullptr);
    static const EVP_CIPHER* aes192 = EVP_CIPHER_fetch(nullptr, "AES-192-CBC", nullptr);
    static const EVP_CIPHER* aes256 = EVP_CIPHER_fetch(nullptr, "AES-256-CBC", nullptr);
    switch (keyLength) {
    case 16:
        return aes128;
    case 24:
        return aes192;
    case 32:
        return aes256;
    default:
        return nullptr;
    }
}

} // namespace

void Engine::ContextDeleter::operator()(evp_cipher_ctx_st* context) const {
    EVP_CIPHER_CTX_free(context); // clears the expanded key schedule as well
}

Engine::Engine(CryptorOperation operation, QByteArrayView key, QByteArrayView iv)
    : operation_(operation) {
    const EVP_CIPHER* cipher = cipherForKeyLength(key.size());
    if (!cipher || iv.size() != blockSize)
        return; // no cryptor: every call gives empty output
    cryptor_.reset(EVP_CIPHER_CTX_new());
    if (!cryptor_)
        return;
    const int encrypting = operation == CryptorOperation::encrypt ? 1 : 0;
    if (EVP_CipherInit_ex2(cryptor_.get(), cipher, reinterpret_cast<const unsigned char*>(key.data()),
                           reinterpret_cast<const unsigned char*>(iv.data()), encrypting, nullptr) != 1)
        cryptor_.reset();
}

Engine::~Engine() {
    // When decrypting, the scratch buffer holds plaintext.
    wipe(buffer_);
}

qsizetype Engine::outputLength(qsizetype inputLength) const {
    const qsizetype pending = held_ + inputLength;
    if (operation_ == CryptorOperation::encrypt)
        return pending / blockSize * blockSize + blockSize; // whole blocks, then the padding block
    return pending;
}

qsizetype Engine::sizeBuffer(qsizetype dataLength) {
    const qsizetype size = outputLength(dataLength);
    // A buffer still shared with a result handed out earlier is replaced, not copied.
    if (buffer_.isDetached())
        buffer_.resize(size);
    else
        buffer_ = QByteArray(size, Qt::Uninitialized);
    return size;
}

QByteArray Engine::update(QByteArrayView data) {
    sizeBuffer(data.size());
    buffer_.resize(cipherUpdate(data, buffer_.data()));
    return buffer_; // shares until the next call, which then writes into a buffer of its own
}

QByteArray Engine::finalData() {
    sizeBuffer(0);
    buffer_.resize(cipherFinal(buffer_.data()));
    return std::exchange(buffer_, QByteArray());
}

void Engine::appendUpdate(QByteArrayView data, QByteArray& out) {
    const qsizetype start = out.size();
    out.resize(start + outputLength(data.size()));
    out.resize(start + cipherUpdate(data, out.data() + start));
}

void Engine::appendFinal(QByteArray& out) {
    const qsizetype start = out.size();
    out.resize(start + outputLength(0));
    out.resize(start + cipherFinal(out.data() + start));
}

qsizetype Engine::cipherUpdate(QByteArrayView data, char* out) {
    if (!cryptor_)
        return 0;
    qsizetype written = 0;
    while (!data.isEmpty()) {
        const qsizetype piece = std::min(data.size(), maximumPiece);
        int pieceWritten = 0;
        EVP_CipherUpdate(cryptor_.get(), reinterpret_cast<unsigned char*>(out + written), &pieceWritten,
                         reinterpret_cast<const unsigned char*>(data.data()), static_cast<int>(piece));
        written += pieceWritten;
        held_ += piece - pieceWritten;
        data = data.sliced(piece);
    }
    return written;
}

qsizetype Engine::cipherFinal(char* out) {
    if (!cryptor_)
        return 0;
    int written = 0;
    EVP_CipherFinal_ex(cryptor_.get(), reinterpret_cast<unsigned char*>(out), &written);
    held_ = 0;
    return written;
}

} // namespace RNCryptor::internal
