#pragma once

#include "marlockCompanionCommon/RNCryptor/CryptorOperation_p.h"

#include <QByteArray>
#include <QByteArrayView>

#include <memory>

struct evp_cipher_ctx_st;

namespace RNCryptor::internal {

// One direction of AES-CBC with PKCS#7 padding, fed any number of pieces. The key length picks
// the AES variant (the container always passes 32 bytes, so AES-256); the IV is one 16-byte block.
//
// Output lags the input the way the block cipher must: an encryptor can only write whole
// blocks, and a decryptor keeps the last whole block to itself until the final call because that
// block may turn out to be the padding. So `update` often returns nothing. A cipher that cannot
// be set up (no AES-CBC in OpenSSL) stops the process; the results of update and final are not
// examined: callers guarantee the sizes, and a bad padding shows as a short final output, which
// the container's MAC check has already judged.
class Engine {
public:
    Engine(CryptorOperation operation, QByteArrayView key, QByteArrayView iv);
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    // Output size needed for `inputLength` more bytes, asked as if this were the final call:
    // an upper bound for both the next update and the final output.
    [[nodiscard]] qsizetype outputLength(qsizetype inputLength) const {
        const qsizetype pending = held_ + inputLength;
        if (operation_ == CryptorOperation::encrypt)
            return pending / blockSize * blockSize + blockSize; // whole blocks, then the padding block
        return pending;
    }

    // Exactly how many bytes an update with `inputLength` bytes will write.
    [[nodiscard]] qsizetype updateLength(qsizetype inputLength) const {
        const qsizetype pending = held_ + inputLength;
        if (operation_ == CryptorOperation::encrypt)
            return pending / blockSize * blockSize;
        // Every whole block but the last, which might be the padding.
        return pending > 0 ? (pending - 1) / blockSize * blockSize : 0;
    }

    // Resizes the scratch buffer to outputLength(dataLength) and returns that size.
    qsizetype sizeBuffer(qsizetype dataLength);

    // Cipher output for this piece (may be empty). The result is the caller's own copy.
    [[nodiscard]] QByteArray update(QByteArrayView data);

    // The last output: the padding block when encrypting, the last block without its padding
    // when decrypting. Called once per stream.
    [[nodiscard]] QByteArray finalData();

    // The same two steps writing straight after the end of `out`, for callers that assemble
    // one output from several pieces without copying each. An update that writes nothing leaves
    // `out` untouched: no allocation for the many small pieces that complete no block.
    void appendUpdate(QByteArrayView data, QByteArray& out);
    void appendFinal(QByteArray& out);

private:
    static constexpr qsizetype blockSize = 16;

    qsizetype cipherUpdate(QByteArrayView data, char* out);
    qsizetype cipherFinal(char* out);

    struct ContextDeleter {
        void operator()(evp_cipher_ctx_st* context) const;
    };

    CryptorOperation operation_;
    std::unique_ptr<evp_cipher_ctx_st, ContextDeleter> cryptor_;
    // Scratch output: sized for each call of update() and finalData(), and the place where an
    // appendUpdate() that is to write nothing lets the cipher write (it only grows then).
    QByteArray buffer_;
    // Bytes the cipher has taken in but not yet given out: every byte in comes out once, so this
    // is exact, and it is what the output-size query needs.
    qsizetype held_ = 0;
};

} // namespace RNCryptor::internal
