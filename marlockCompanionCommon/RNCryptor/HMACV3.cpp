#include "marlockCompanionCommon/RNCryptor/HMACV3_p.h"

#include "marlockCompanionCommon/RNCryptor/Fatal_p.h"
#include "marlockCompanionCommon/RNCryptor/FormatV3.h"
#include "marlockCompanionCommon/RNCryptor/OpenSSLStatus_p.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/params.h>

namespace RNCryptor::internal {

namespace {

// Fetched once per process: the implementation lookup is the costly part of creating a context.
EVP_MAC* hmacAlgorithm() {
    static EVP_MAC* mac = EVP_MAC_fetch(nullptr, OSSL_MAC_NAME_HMAC, nullptr);
    return mac;
}

// A MAC that cannot be computed would leave containers unauthenticated (or unreadable): a sound
// system always has HMAC-SHA256, so this stops the process rather than report an error.
void stopUnless(int result, const char* step) {
    if (const int status = openSSLStatus(result); status != 0)
        cryptorFatalError(QStringLiteral("SECURITY FAILURE: Could not %1 HMAC-SHA256 (%2).")
                              .arg(QLatin1String(step))
                              .arg(status));
}

} // namespace

void HMACV3::ContextDeleter::operator()(evp_mac_ctx_st* context) const {
    EVP_MAC_CTX_free(context); // clears the keyed state
}

HMACV3::HMACV3(QByteArrayView key) {
    if (EVP_MAC* mac = hmacAlgorithm())
        context_.reset(EVP_MAC_CTX_new(mac));
    char digest[] = OSSL_DIGEST_NAME_SHA2_256;
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
        OSSL_PARAM_construct_end(),
    };
    stopUnless(context_ ? EVP_MAC_init(context_.get(), reinterpret_cast<const unsigned char*>(key.data()),
                                       static_cast<size_t>(key.size()), parameters)
                        : 0,
               "set up");
}

HMACV3::~HMACV3() = default;

void HMACV3::update(QByteArrayView data) {
    if (!data.isEmpty())
        stopUnless(EVP_MAC_update(context_.get(), reinterpret_cast<const unsigned char*>(data.data()),
                                  static_cast<size_t>(data.size())),
                   "compute");
}

QByteArray HMACV3::finalData() {
    QByteArray mac(RNCryptor::FormatV3::hmacSize, '\0');
    size_t written = 0;
    stopUnless(EVP_MAC_final(context_.get(), reinterpret_cast<unsigned char*>(mac.data()), &written,
                             static_cast<size_t>(mac.size())),
               "compute");
    return mac;
}

} // namespace RNCryptor::internal
