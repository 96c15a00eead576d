// The version-3 decryptor with keys on untrusted bytes: no key derivation, so every input
// reaches the header checks, the overflowing buffer, the cipher and the MAC check quickly.
// Besides "no crash", the same stream must give the same outcome one-shot and in random pieces.
#include "fuzz/RNCryptor/Pieces.h"
#include "marlockCompanionCommon/RNCryptor/RNCryptor.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    FuzzedDataProvider provider(bytes, size);
    const uint32_t seed = provider.ConsumeIntegral<uint32_t>();
    const std::string rest = provider.ConsumeRemainingBytesAsString();
    const QByteArray container(rest.data(), qsizetype(rest.size()));
    const QByteArray encryptionKey(32, 'e');
    const QByteArray hmacKey(32, 'h');

    fuzzing::Outcome oneShot;
    try {
        oneShot.plaintext = RNCryptor::DecryptorV3(encryptionKey, hmacKey).decrypt(container);
    } catch (const RNCryptor::Error& error) {
        oneShot.error = error.code();
    }
    RNCryptor::DecryptorV3 streaming(encryptionKey, hmacKey);
    if (!(fuzzing::feedInPieces(streaming, container, seed) == oneShot))
        std::abort();

    // A container that opens was written with these keys: writing its plaintext again with the
    // same IV must give the same bytes.
    if (!oneShot.error &&
        RNCryptor::EncryptorV3(encryptionKey, hmacKey, container.sliced(2, 16)).encrypt(oneShot.plaintext) !=
            container)
        std::abort();
    return 0;
}
