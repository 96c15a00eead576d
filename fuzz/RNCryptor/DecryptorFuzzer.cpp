// The general password decryptor on untrusted bytes, one-shot or in random pieces. It must end
// in plaintext or an RNCryptor::Error, never a crash. Inputs with a well-formed password header
// cost two key derivations (the decryptor derives keys once the header is valid); the fuzz build
// derives them with a single round instead of 10,000, so those inputs are as cheap as any other
// and the format and streaming paths behind the header get their share of the inputs.
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
