// The container beside raw OpenSSL doing the same work. Each iteration runs the library's side
// and then the raw side, timing each on its own, so that load from elsewhere on the machine
// weighs on both alike; the benchmark's time is the library's, and the counters give both sides
// and their ratio (library / OpenSSL):
//   - one-shot password encrypt / decrypt, microseconds per call: two PBKDF2 derivations,
//     AES-256-CBC and HMAC-SHA256 (plus the 32 random bytes of salts and IV when encrypting);
//   - one-shot key-based encrypt / decrypt, nanoseconds per byte;
//   - encrypting and decrypting a key-based container fed in pieces of 1, 7, 16 and 4096 bytes,
//     nanoseconds per byte. The pieces are cut before timing, for both sides alike; the raw side
//     feeds the same pieces to the streaming cipher and MAC calls. The per-byte cost must not
//     grow with the size, and the ratio shows the cost of each update call.
//
//   scripts/build --bench
//   build-bench/bench/RNCryptor/RNCryptor_bench --benchmark_repetitions=5
//       --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true
#include "bench/RNCryptor/Interleaved.h"
#include "marlockCompanionCommon/RNCryptor/RNCryptor.h"

#include <benchmark/benchmark.h>

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <vector>

namespace {

using bench::interleaved;
using bench::perByte;
using bench::perCall;

const QString password = QStringLiteral("benchmark passcode");
const QByteArray encryptionKey(32, 'e');
const QByteArray hmacKey(32, 'h');
const QByteArray fixedIv(16, 'i');

QByteArray payload(qsizetype size) {
    QByteArray data(size, '\0');
    for (qsizetype i = 0; i < size; ++i)
        data[i] = char(i * 131 + 7);
    return data;
}

unsigned char* writable(QByteArray& data) {
    return reinterpret_cast<unsigned char*>(data.data());
}
const unsigned char* readable(const QByteArray& data) {
    return reinterpret_cast<const unsigned char*>(data.constData());
}

// Views of consecutive pieces of `data` (which must outlive them): no bytes are copied.
std::vector<QByteArray> cut(const QByteArray& data, qsizetype pieceSize) {
    std::vector<QByteArray> pieces;
    for (qsizetype at = 0; at < data.size(); at += pieceSize)
        pieces.push_back(
            QByteArray::fromRawData(data.constData() + at, std::min(pieceSize, data.size() - at)));
    return pieces;
}

// The algorithms, fetched once as the library does: the raw side should not pay for lookups.
const EVP_CIPHER* aes256Cbc() {
    static const EVP_CIPHER* cipher = EVP_CIPHER_fetch(nullptr, "AES-256-CBC", nullptr);
    return cipher;
}

// A streaming AES-256-CBC context and HMAC-SHA256 context, as a raw caller holds them.
class RawStream {
public:
    RawStream(bool encrypting, const unsigned char* iv, const QByteArray& encKey = encryptionKey,
              const QByteArray& macKey = hmacKey)
        : cipher_(EVP_CIPHER_CTX_new())
        , mac_(EVP_MAC_CTX_new(algorithm())) {
        EVP_CipherInit_ex2(cipher_, aes256Cbc(), readable(encKey), iv, encrypting ? 1 : 0, nullptr);
        char digest[] = "SHA256";
        const OSSL_PARAM parameters[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
                                         OSSL_PARAM_construct_end()};
        EVP_MAC_init(mac_, readable(macKey), 32, parameters);
    }
    ~RawStream() {
        EVP_MAC_CTX_free(mac_);
        EVP_CIPHER_CTX_free(cipher_);
    }
    RawStream(const RawStream&) = delete;
    RawStream& operator=(const RawStream&) = delete;

    int cipher(const unsigned char* in, qsizetype length, unsigned char* out) {
        int written = 0;
        EVP_CipherUpdate(cipher_, out, &written, in, int(length));
        return written;
    }
    int finish(unsigned char* out) {
        int written = 0;
        EVP_CipherFinal_ex(cipher_, out, &written);
        return written;
    }
    void mac(const unsigned char* data, qsizetype length) { EVP_MAC_update(mac_, data, size_t(length)); }
    void macFinal(unsigned char* out) {
        size_t written = 0;
        EVP_MAC_final(mac_, out, &written, 32);
    }

private:
    static EVP_MAC* algorithm() {
        static EVP_MAC* mac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
        return mac;
    }
    EVP_CIPHER_CTX* cipher_;
    EVP_MAC_CTX* mac_;
};

QByteArray rawPbkdf2(const QByteArray& salt) {
    const QByteArray utf8 = password.toUtf8();
    QByteArray key(32, '\0');
    PKCS5_PBKDF2_HMAC(utf8.constData(), int(utf8.size()), readable(salt), int(salt.size()), 10000, EVP_sha1(),
                      32, writable(key));
    return key;
}

// The container a raw caller would write: header, ciphertext, MAC, in one preallocated buffer.
QByteArray rawSeal(const QByteArray& plaintext, const QByteArray& header,
                   const QByteArray& encKey = encryptionKey, const QByteArray& macKey = hmacKey) {
    QByteArray out(header.size() + plaintext.size() + 16 + 32, Qt::Uninitialized);
    std::copy(header.begin(), header.end(), out.begin());
    RawStream stream(true, readable(header) + header.size() - 16, encKey, macKey);
    unsigned char* cipherText = writable(out) + header.size();
    int length = stream.cipher(readable(plaintext), plaintext.size(), cipherText);
    length += stream.finish(cipherText + length);
    stream.mac(readable(out), header.size() + length);
    stream.macFinal(cipherText + length);
    out.resize(header.size() + length + 32);
    return out;
}

QByteArray rawOpen(const QByteArray& container, qsizetype headerSize,
                   const QByteArray& encKey = encryptionKey, const QByteArray& macKey = hmacKey) {
    const qsizetype signedLength = container.size() - 32;
    RawStream stream(false, readable(container) + headerSize - 16, encKey, macKey);
    unsigned char mac[32];
    stream.mac(readable(container), signedLength);
    stream.macFinal(mac);
    if (CRYPTO_memcmp(mac, readable(container) + signedLength, 32) != 0)
        return {};
    QByteArray plaintext(signedLength - headerSize, Qt::Uninitialized);
    int length =
        stream.cipher(readable(container) + headerSize, signedLength - headerSize, writable(plaintext));
    length += stream.finish(writable(plaintext) + length);
    plaintext.resize(length);
    return plaintext;
}

void PasswordEncrypt(benchmark::State& state) {
    const QByteArray data = payload(state.range(0));
    interleaved(
        state, perCall, [&] { benchmark::DoNotOptimize(RNCryptor::encrypt(data, password)); },
        [&] {
            QByteArray header(34, '\0');
            header[0] = 3;
            header[1] = 1;
            RAND_bytes(writable(header) + 2, 32);
            const QByteArray encKey = rawPbkdf2(header.sliced(2, 8));
            const QByteArray macKey = rawPbkdf2(header.sliced(10, 8));
            benchmark::DoNotOptimize(rawSeal(data, header, encKey, macKey));
        });
}

void PasswordDecrypt(benchmark::State& state) {
    const QByteArray container = RNCryptor::encrypt(payload(state.range(0)), password);
    interleaved(
        state, perCall, [&] { benchmark::DoNotOptimize(RNCryptor::decrypt(container, password)); },
        [&] {
            const QByteArray encKey = rawPbkdf2(container.sliced(2, 8));
            const QByteArray macKey = rawPbkdf2(container.sliced(10, 8));
            benchmark::DoNotOptimize(rawOpen(container, 34, encKey, macKey));
        });
}

QByteArray keyHeader() {
    return QByteArray("\x03\x00", 2) + fixedIv;
}

void KeyEncrypt(benchmark::State& state) {
    const QByteArray data = payload(state.range(0));
    interleaved(
        state, perByte(data.size()),
        [&] {
            benchmark::DoNotOptimize(RNCryptor::EncryptorV3(encryptionKey, hmacKey, fixedIv).encrypt(data));
        },
        [&] { benchmark::DoNotOptimize(rawSeal(data, keyHeader())); });
}

void KeyDecrypt(benchmark::State& state) {
    const QByteArray container = rawSeal(payload(state.range(0)), keyHeader());
    interleaved(
        state, perByte(container.size()),
        [&] { benchmark::DoNotOptimize(RNCryptor::DecryptorV3(encryptionKey, hmacKey).decrypt(container)); },
        [&] { benchmark::DoNotOptimize(rawOpen(container, 18)); });
}

void EncryptInPieces(benchmark::State& state) {
    const QByteArray data = payload(state.range(0));
    const std::vector<QByteArray> pieces = cut(data, state.range(1));
    const QByteArray header = keyHeader();
    QByteArray out(header.size() + data.size() + 16 + 32, Qt::Uninitialized);
    interleaved(
        state, perByte(data.size()),
        [&] {
            RNCryptor::EncryptorV3 encryptor(encryptionKey, hmacKey, fixedIv);
            qsizetype produced = 0;
            for (const QByteArray& piece : pieces)
                produced += encryptor.update(piece).size();
            produced += encryptor.finalData().size();
            benchmark::DoNotOptimize(produced);
        },
        [&] {
            RawStream stream(true, readable(fixedIv));
            unsigned char* at = writable(out);
            stream.mac(readable(header), header.size());
            for (const QByteArray& piece : pieces) {
                const int written = stream.cipher(readable(piece), piece.size(), at);
                stream.mac(at, written);
                at += written;
            }
            const int written = stream.finish(at);
            stream.mac(at, written);
            stream.macFinal(at + written);
            benchmark::DoNotOptimize(at);
        });
}

void DecryptInPieces(benchmark::State& state) {
    const QByteArray container = rawSeal(payload(state.range(0)), keyHeader());
    const std::vector<QByteArray> pieces = cut(container, state.range(1));
    // The raw side knows where the MAC starts, so it needs no hold-back: it MACs what comes
    // before the MAC and deciphers what comes after the header.
    const qsizetype bodyEnd = container.size() - 32;
    QByteArray out(container.size(), Qt::Uninitialized);
    interleaved(
        state, perByte(container.size()),
        [&] {
            RNCryptor::DecryptorV3 decryptor(encryptionKey, hmacKey);
            qsizetype produced = 0;
            for (const QByteArray& piece : pieces)
                produced += decryptor.update(piece).size();
            produced += decryptor.finalData().size();
            benchmark::DoNotOptimize(produced);
        },
        [&] {
            RawStream stream(false, readable(container) + 2);
            unsigned char* at = writable(out);
            qsizetype offset = 0;
            for (const QByteArray& piece : pieces) {
                const qsizetype end = std::min(offset + piece.size(), bodyEnd);
                if (offset < end)
                    stream.mac(readable(piece), end - offset);
                const qsizetype from = std::max<qsizetype>(offset, 18);
                if (from < end)
                    at += stream.cipher(readable(piece) + (from - offset), end - from, at);
                offset += piece.size();
            }
            at += stream.finish(at);
            unsigned char mac[32];
            stream.macFinal(mac);
            benchmark::DoNotOptimize(CRYPTO_memcmp(mac, readable(container) + bodyEnd, 32));
            benchmark::DoNotOptimize(at);
        });
}

void oneShotSizes(benchmark::internal::Benchmark* benchmark) {
    for (int64_t size : {0, 4096, 65536, 512000})
        benchmark->Arg(size);
    benchmark->Unit(benchmark::kMillisecond)->UseManualTime();
}

void throughputSizes(benchmark::internal::Benchmark* benchmark) {
    for (int64_t size : {4096, 65536, 512000})
        benchmark->Arg(size);
    benchmark->Unit(benchmark::kMicrosecond)->UseManualTime();
}

void pieceSizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgNames({"bytes", "piece"});
    for (int64_t piece : {1, 7, 16, 4096})
        for (int64_t size : {65536, 262144, 512000})
            benchmark->Args({size, piece});
    benchmark->Unit(benchmark::kMillisecond)->UseManualTime();
}

} // namespace

BENCHMARK(PasswordEncrypt)->Apply(oneShotSizes);
BENCHMARK(PasswordDecrypt)->Apply(oneShotSizes);
BENCHMARK(KeyEncrypt)->Apply(throughputSizes);
BENCHMARK(KeyDecrypt)->Apply(throughputSizes);
BENCHMARK(EncryptInPieces)->Apply(pieceSizes);
BENCHMARK(DecryptInPieces)->Apply(pieceSizes);
