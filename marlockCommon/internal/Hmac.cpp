#include "marlockCommon/internal/Hmac.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <cstdio>
#include <cstdlib>
#include <limits>

namespace marlockCommon::internal {

namespace {

const EVP_MD* digestOf(OTPAlgorithm algorithm) {
    switch (algorithm) {
    case OTPAlgorithm::sha1:
        return EVP_sha1();
    case OTPAlgorithm::sha256:
        return EVP_sha256();
    case OTPAlgorithm::sha512:
        return EVP_sha512();
    }
    return EVP_sha1();
}

} // namespace

QByteArray hmac(OTPAlgorithm algorithm, const QByteArray& key, const QByteArray& message) {
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    // Secrets come from URIs and archives; the size guard keeps the int conversion honest.
    const bool fits = key.size() <= std::numeric_limits<int>::max();
    if (!fits || !HMAC(digestOf(algorithm), key.constData(), static_cast<int>(key.size()),
                       reinterpret_cast<const unsigned char*>(message.constData()),
                       static_cast<size_t>(message.size()), out, &length)) {
        // HMAC over a built-in digest fails only when the crypto library itself is broken.
        std::fputs("marlockCommon/internal/Hmac.cpp: Fatal error: HMAC computation failed\n", stderr);
        std::abort();
    }
    return QByteArray(reinterpret_cast<const char*>(out), static_cast<qsizetype>(length));
}

} // namespace marlockCommon::internal
