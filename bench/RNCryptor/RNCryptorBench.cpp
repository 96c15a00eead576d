// The container beside the raw OpenSSL cost of the same work, in the same run:
//   - one-shot password encrypt / decrypt: two PBKDF2 derivations, AES-256-CBC and HMAC-SHA256
//     called directly (plus the 32 random bytes of salts and IV when encrypting);
//   - key-based encrypt / decrypt throughput: AES-256-CBC plus HMAC-SHA256 over the same bytes;
//   - decrypting in 1-byte and 7-byte pieces: the per-byte cost must not grow with the size.
#include "marlockCompanionCommon/RNCryptor/RNCryptor.h"

#include <benchmark/benchmark.h>

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

namespace {

const QString password = QStringLiteral("benchmark passcode");
const QByteArray encryptionKey(32, 'e');
const QByteArray hmacKey(32, 'h');

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

QByteArray rawPbkdf2(const QByteArray& salt) {
    const QByteArray utf8 = password.toUtf8();
    QByteArray key(32, '\0');
    PKCS5_PBKDF2_HMAC(utf8.constData(), int(utf8.size()), readable(salt), int(salt.size()), 10000, EVP_sha1(),
                      32, writable(key));
    return key;
}

// AES-256-CBC of `input` written at `out`; returns the bytes written.
int rawCipher(bool encrypting, const unsigned char* input, int length, const QByteArray& key,
              const unsigned char* iv, unsigned char* out) {
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    int first = 0;
    int last = 0;
    EVP_CipherInit_ex(context, EVP_aes_256_cbc(), nullptr, readable(key), iv, encrypting ? 1 : 0);
    EVP_CipherUpdate(context, out, &first, input, length);
    EVP_CipherFinal_ex(context, out + first, &last);
    EVP_CIPHER_CTX_free(context);
    return first + last;
}

void rawHmac(const QByteArray& key, const unsigned char* data, size_t length, unsigned char* out) {
    unsigned int written = 0;
    HMAC(EVP_sha256(), key.constData(), int(key.size()), data, length, out, &written);
}

// The container a raw caller would write: header, ciphertext, MAC, in one preallocated buffer.
QByteArray rawSeal(const QByteArray& plaintext, const QByteArray& header, const QByteArray& encKey,
                   const QByteArray& macKey) {
    QByteArray out(header.size() + plaintext.size() + 16 + 32, Qt::Uninitialized);
    std::copy(header.begin(), header.end(), out.begin());
    const unsigned char* iv = readable(header) + header.size() - 16;
    const int cipherLength = rawCipher(true, readable(plaintext), int(plaintext.size()), encKey, iv,
                                       writable(out) + header.size());
    const qsizetype signedLength = header.size() + cipherLength;
    rawHmac(macKey, readable(out), size_t(signedLength), writable(out) + signedLength);
    out.resize(signedLength + 32);
    return out;
}

QByteArray rawOpen(const QByteArray& container, qsizetype headerSize, const QByteArray& encKey,
                   const QByteArray& macKey) {
    const qsizetype signedLength = container.size() - 32;
    unsigned char mac[32];
    rawHmac(macKey, readable(container), size_t(signedLength), mac);
    if (CRYPTO_memcmp(mac, readable(container) + signedLength, 32) != 0)
        return {};
    QByteArray plaintext(signedLength - headerSize, Qt::Uninitialized);
    plaintext.resize(rawCipher(false, readable(container) + headerSize, int(signedLength - headerSize),
                               encKey, readable(container) + headerSize - 16, writable(plaintext)));
    return plaintext;
}

void setBytes(benchmark::State& state) {
    state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}

void PasswordEncrypt(benchmark::State& state) {
    const QByteArray data = payload(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(RNCryptor::encrypt(data, password));
    setBytes(state);
}

void PasswordEncrypt_RawOpenSSL(benchmark::State& state) {
    const QByteArray data = payload(state.range(0));
    for (auto _ : state) {
        QByteArray header(34, '\0');
        header[0] = 3;
        header[1] = 1;
        RAND_bytes(writable(header) + 2, 32);
        const QByteArray encKey = rawPbkdf2(header.sliced(2, 8));
        const QByteArray macKey = rawPbkdf2(header.sliced(10, 8));
        benchmark::DoNotOptimize(rawSeal(data, header, encKey, macKey));
    }
    setBytes(state);
}

void PasswordDecrypt(benchmark::State& state) {
    const QByteArray container = RNCryptor::encrypt(payload(state.range(0)), password);
    for (auto _ : state)
        benchmark::DoNotOptimize(RNCryptor::decrypt(container, password));
    setBytes(state);
}

void PasswordDecrypt_RawOpenSSL(benchmark::State& state) {
    const QByteArray container = RNCryptor::encrypt(payload(state.range(0)), password);
    for (auto _ : state) {
        const QByteArray encKey = rawPbkdf2(container.sliced(2, 8));
        const QByteArray macKey = rawPbkdf2(container.sliced(10, 8));
        benchmark::DoNotOptimize(rawOpen(container, 34, encKey, macKey));
    }
    setBytes(state);
}

void KeyEncrypt(benchmark::State& state) {
    const QByteArray data = payload(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(RNCryptor::EncryptorV3(encryptionKey, hmacKey).encrypt(data));
    setBytes(state);
}

void KeyEncrypt_RawOpenSSL(benchmark::State& state) {
    const QByteArray data = payload(state.range(0));
    for (auto _ : state) {
        QByteArray header(18, '\0');
        header[0] = 3;
        RAND_bytes(writable(header) + 2, 16);
        benchmark::DoNotOptimize(rawSeal(data, header, encryptionKey, hmacKey));
    }
    setBytes(state);
}

void KeyDecrypt(benchmark::State& state) {
    const QByteArray container =
        RNCryptor::EncryptorV3(encryptionKey, hmacKey).encrypt(payload(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(RNCryptor::DecryptorV3(encryptionKey, hmacKey).decrypt(container));
    setBytes(state);
}

void KeyDecrypt_RawOpenSSL(benchmark::State& state) {
    const QByteArray container =
        RNCryptor::EncryptorV3(encryptionKey, hmacKey).encrypt(payload(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(rawOpen(container, 18, encryptionKey, hmacKey));
    setBytes(state);
}

// Per-byte cost of feeding a key container in small pieces (range(1) bytes each).
void setPerByte(benchmark::State& state, qsizetype bytes) {
    state.counters["ns_per_byte"] = benchmark::Counter(
        double(bytes) / 1e9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void DecryptInPieces(benchmark::State& state) {
    const QByteArray container =
        RNCryptor::EncryptorV3(encryptionKey, hmacKey).encrypt(payload(state.range(0)));
    const qsizetype pieceSize = state.range(1);
    for (auto _ : state) {
        RNCryptor::DecryptorV3 decryptor(encryptionKey, hmacKey);
        qsizetype produced = 0;
        for (qsizetype at = 0; at < container.size(); at += pieceSize)
            produced +=
                decryptor.update(container.sliced(at, std::min(pieceSize, container.size() - at))).size();
        produced += decryptor.finalData().size();
        benchmark::DoNotOptimize(produced);
    }
    setPerByte(state, container.size());
}

// The same pieces straight into OpenSSL's streaming decrypt and MAC (no MAC hold-back).
void DecryptInPieces_RawOpenSSL(benchmark::State& state) {
    const QByteArray container =
        RNCryptor::EncryptorV3(encryptionKey, hmacKey).encrypt(payload(state.range(0)));
    const qsizetype pieceSize = state.range(1);
    const qsizetype bodyEnd = container.size() - 32;
    EVP_MAC* macAlgorithm = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
    char digest[] = "SHA256";
    const OSSL_PARAM parameters[] = {OSSL_PARAM_construct_utf8_string("digest", digest, 0),
                                     OSSL_PARAM_construct_end()};
    for (auto _ : state) {
        EVP_CIPHER_CTX* cipher = EVP_CIPHER_CTX_new();
        EVP_DecryptInit_ex(cipher, EVP_aes_256_cbc(), nullptr, readable(encryptionKey),
                           readable(container) + 2);
        EVP_MAC_CTX* mac = EVP_MAC_CTX_new(macAlgorithm);
        EVP_MAC_init(mac, readable(hmacKey), 32, parameters);
        unsigned char out[64];
        qsizetype produced = 0;
        for (qsizetype at = 0; at < bodyEnd; at += pieceSize) {
            const int length = int(std::min(pieceSize, bodyEnd - at));
            int written = 0;
            EVP_MAC_update(mac, readable(container) + at, size_t(length));
            const qsizetype from = std::max<qsizetype>(at, 18); // the header is MACed, not deciphered
            if (from < at + length)
                EVP_DecryptUpdate(cipher, out, &written, readable(container) + from, int(at + length - from));
            produced += written;
        }
        int written = 0;
        EVP_DecryptFinal_ex(cipher, out, &written);
        size_t macLength = 0;
        EVP_MAC_final(mac, out, &macLength, sizeof out);
        benchmark::DoNotOptimize(produced + written);
        EVP_MAC_CTX_free(mac);
        EVP_CIPHER_CTX_free(cipher);
    }
    EVP_MAC_free(macAlgorithm);
    setPerByte(state, container.size());
}

void oneShotSizes(benchmark::internal::Benchmark* benchmark) {
    for (int64_t size : {0, 4096, 65536, 512000})
        benchmark->Arg(size);
    benchmark->Unit(benchmark::kMillisecond);
}

void throughputSizes(benchmark::internal::Benchmark* benchmark) {
    for (int64_t size : {4096, 65536, 512000})
        benchmark->Arg(size);
    benchmark->Unit(benchmark::kMicrosecond);
}

void pieceSizes(benchmark::internal::Benchmark* benchmark) {
    for (int64_t piece : {1, 7})
        for (int64_t size : {65536, 131072, 262144, 512000})
            benchmark->Args({size, piece});
    benchmark->Unit(benchmark::kMillisecond);
}

} // namespace

BENCHMARK(PasswordEncrypt)->Apply(oneShotSizes);
BENCHMARK(PasswordEncrypt_RawOpenSSL)->Apply(oneShotSizes);
BENCHMARK(PasswordDecrypt)->Apply(oneShotSizes);
BENCHMARK(PasswordDecrypt_RawOpenSSL)->Apply(oneShotSizes);
BENCHMARK(KeyEncrypt)->Apply(throughputSizes);
BENCHMARK(KeyEncrypt_RawOpenSSL)->Apply(throughputSizes);
BENCHMARK(KeyDecrypt)->Apply(throughputSizes);
BENCHMARK(KeyDecrypt_RawOpenSSL)->Apply(throughputSizes);
BENCHMARK(DecryptInPieces)->Apply(pieceSizes);
BENCHMARK(DecryptInPieces_RawOpenSSL)->Apply(pieceSizes);
