#pragma once

#include "marlockCompanionCommon/RNCryptor/CryptorOperation_p.h"

#include <QByteArray>
#include <QByteArrayView>

#include <memory>

struct evp_cipher_ctx_st;

namespace RNCryptor::internal {

// A streaming AES-CBC cipher with PKCS#7 padding in one direction. The key length picks the AES
// variant (32 bytes: AES-256, the only one the container uses); the IV is one 16-byte block.
//
// Output follows the block cipher: encryption keeps an incomplete block back until more data or
// the final call, and decryption keeps the last whole block back until the final call (it may
// be the padding), so `update` can return nothing. Status results of the cipher are not
// examined: callers guarantee the sizes, and a bad padding shows as a short final output, which
// the container's MAC check has already caught.
class Engine {
public:
    Engine(CryptorOperation operation, QByteArrayView key, QByteArrayView iv);
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    // Output size needed for `inputLength` more bytes, asked as if this were the final call:
    // an upper bound for both the next update and the final output.
    [[nodiscard]] qsizetype outputLength(qsizetype inputLength) const;

    // Resizes the scratch buffer to outputLength(dataLength) and returns that size.
    qsizetype sizeBuffer(qsizetype dataLength);

    // Cipher output for this piece (may be empty). The result is the caller's own copy.
    [[nodiscard]] QByteArray update(QByteArrayView data);

    // The last output: the padding block when encrypting, the last block without its padding
    // when decrypting. Called once per stream.
    [[nodiscard]] QByteArray finalData();

    // The same two steps writing straight after the end of `out`, for callers that assemble
    // one output from several pieces without copying each.
    void appendUpdate(QByteArrayView data, QByteArray& out);
    void appendFinal(QByteArray& out);

private:
    qsizetype cipherUpdate(QByteArrayView data, char* out);
    qsizetype cipherFinal(char* out);

    struct ContextDeleter {
        void operator()(evp_cipher_ctx_st* context) const;
    };

    CryptorOperation operation_;
    std::unique_ptr<evp_cipher_ctx_st, ContextDeleter> cryptor_;
    QByteArray buffer_;
    // Bytes the cipher has taken in but not yet given out: every byte in comes out once, so this
    // is exact, and it is what the output-size query needs.
    qsizetype held_ = 0;
};

} // namespace RNCryptor::internal
