#include "marlockCompanionCommon/RNCryptor/Engine_p.h"

#include "marlockCompanionCommon/RNCryptor/Fatal_p.h"
#include "marlockCompanionCommon/RNCryptor/OpenSSLStatus_p.h"
#include "marlockCompanionCommon/RNCryptor/SecretBytes_p.h"

#include <openssl/err.h>
#include <openssl/evp.h>

#include <algorithm>
#include <climits>

namespace RNCryptor::internal {

namespace {

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
    cryptorPrecondition(key.size() == 16 || key.size() == 24 || key.size() == 32,
                        "AES key must be 16, 24 or 32 bytes");
    cryptorPrecondition(iv.size() == blockSize, "IV must be 16 bytes");
    const EVP_CIPHER* cipher = cipherForKeyLength(key.size());
    int result = 0;
    if (cipher)
        cryptor_.reset(EVP_CIPHER_CTX_new());
    if (cryptor_)
        result =
            EVP_CipherInit_ex2(cryptor_.get(), cipher, reinterpret_cast<const unsigned char*>(key.data()),
                               reinterpret_cast<const unsigned char*>(iv.data()),
                               operation == CryptorOperation::encrypt ? 1 : 0, nullptr);
    // Going on without a cipher would write containers without ciphertext.
    if (const int status = openSSLStatus(result); status != 0)
        cryptorFatalError(QStringLiteral("SECURITY FAILURE: Could not set up AES-CBC (%1).").arg(status));
}

Engine::~Engine() {
    // When decrypting, the scratch buffer holds plaintext.
    wipe(buffer_);
}

qsizetype Engine::sizeBuffer(qsizetype dataLength) {
    const qsizetype size = outputLength(dataLength);
    buffer_.resize(size);
    return size;
}

QByteArray Engine::update(QByteArrayView data) {
    sizeBuffer(data.size());
    return QByteArray(buffer_.constData(), cipherUpdate(data, buffer_.data()));
}

QByteArray Engine::finalData() {
    sizeBuffer(0);
    buffer_.resize(cipherFinal(buffer_.data()));
    return std::exchange(buffer_, QByteArray());
}

void Engine::appendUpdate(QByteArrayView data, QByteArray& out) {
    if (data.isEmpty())
        return;
    if (updateLength(data.size()) == 0) {
        // The cipher only takes the bytes in; should it write anyway, nothing is lost.
        if (const qsizetype bound = outputLength(data.size()); buffer_.size() < bound)
            buffer_.resize(bound);
        const qsizetype written = cipherUpdate(data, buffer_.data());
        if (written > 0)
            out.append(buffer_.constData(), written);
        return;
    }
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
    int written = 0;
    // A bad padding queues OpenSSL's "bad decrypt" on this thread's error queue, where the next
    // OpenSSL user of the thread would take it for its own failure: it is dropped here, and
    // only it, since errors queued before are someone else's.
    ERR_set_mark();
    EVP_CipherFinal_ex(cryptor_.get(), reinterpret_cast<unsigned char*>(out), &written);
    ERR_pop_to_mark();
    held_ = 0;
    return written;
}

} // namespace RNCryptor::internal
