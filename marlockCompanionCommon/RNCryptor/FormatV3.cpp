#include "marlockCompanionCommon/RNCryptor/FormatV3.h"

#include "marlockCompanionCommon/RNCryptor/Fatal_p.h"
#include "marlockCompanionCommon/RNCryptor/OpenSSLStatus_p.h"
#include "marlockCompanionCommon/RNCryptor/SecretBytes_p.h"

#include <openssl/evp.h>

namespace RNCryptor {

using namespace internal;

namespace {

// Fixed by the format, like the SHA-1 below: changing either makes every existing container
// unreadable.
constexpr int formatRounds = 10000;

#ifdef MARLOCK_FUZZING_PBKDF2_ROUNDS
// A fuzzing build derives keys with fewer rounds, so that an input with a well-formed password
// header costs microseconds rather than milliseconds and the fuzzer gets past the header as often
// as the key-based one does. Its containers open nowhere else. Only code instrumented for
// libFuzzer (clang with -fsanitize=fuzzer-no-link, which the fuzz build alone uses) may take this.
#if !defined(__clang__)
#error "MARLOCK_FUZZING_PBKDF2_ROUNDS is for fuzzing builds only (scripts/build --fuzz)"
#elif !__has_feature(coverage_sanitizer)
#error "MARLOCK_FUZZING_PBKDF2_ROUNDS is for fuzzing builds only (scripts/build --fuzz)"
#endif
constexpr int pbkdf2Rounds = MARLOCK_FUZZING_PBKDF2_ROUNDS;
static_assert(pbkdf2Rounds > 0 && pbkdf2Rounds < formatRounds);
#else
constexpr int pbkdf2Rounds = formatRounds;
#endif

} // namespace

QByteArray FormatV3::makeKey(const QString& password, const QByteArray& salt) {
    QByteArray key(keySize, '\0');
    const SecretBytes passwordBytes(password.toUtf8());
    const int result = PKCS5_PBKDF2_HMAC(
        passwordBytes.bytes().data(), static_cast<int>(passwordBytes.bytes().size()),
        reinterpret_cast<const unsigned char*>(salt.constData()), static_cast<int>(salt.size()), pbkdf2Rounds,
        EVP_sha1(), keySize, reinterpret_cast<unsigned char*>(key.data()));
    const int status = openSSLStatus(result);
    if (status != 0)
        cryptorFatalError(QStringLiteral("SECURITY FAILURE: Could not derive secure password (%1): %2 bytes.")
                              .arg(status)
                              .arg(key.size()));
    return key;
}

} // namespace RNCryptor
