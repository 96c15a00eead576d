// The general password decryptor on untrusted bytes, one-shot or in random pieces. It must end
// in plaintext or an RNCryptor::Error, never a crash. Inputs with a well-formed password header
// cost two real key derivations (the decryptor derives keys only once the header is valid), so
// this target runs slower than the key-based one, which covers the body path at full speed.
#include "fuzz/RNCryptor/Pieces.h"
#include "marlockCompanionCommon/RNCryptor/RNCryptor.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    FuzzedDataProvider provider(bytes, size);
    const bool oneShot = provider.ConsumeBool();
    const uint32_t seed = provider.ConsumeIntegral<uint32_t>();
    const std::string rest = provider.ConsumeRemainingBytesAsString();
    const QByteArray container(rest.data(), qsizetype(rest.size()));
    const QString password = QStringLiteral("fuzz passcode");

    if (oneShot) {
        try {
            (void)RNCryptor::decrypt(container, password);
        } catch (const RNCryptor::Error&) {
        }
        return 0;
    }
    RNCryptor::Decryptor decryptor(password);
    const fuzzing::Outcome outcome = fuzzing::feedInPieces(decryptor, container, seed);
    // Plaintext comes out only from a container of at least header, one block and MAC.
    if (!outcome.error && container.size() < 34 + 16 + 32)
        std::abort();
    return 0;
}
