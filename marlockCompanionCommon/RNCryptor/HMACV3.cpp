#include "marlockCompanionCommon/RNCryptor/HMACV3_p.h"

#include "marlockCompanionCommon/RNCryptor/FormatV3.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/params.h>

namespace RNCryptor::internal {

namespace {

EVP_MAC* hmacAlgorithm() {
    static EVP_MAC* mac = EVP_MAC_fetch(nullptr, OSSL_MAC_NAME_HMAC, nullptr);
    return mac;
}

} // namespace

void HMACV3::ContextDeleter::operator()(evp_mac_ctx_st* context) const {
    EVP_MAC_CTX_free(context); // clears the keyed state
}

HMACV3::HMACV3(QByteArrayView key)
    : context_(EVP_MAC_CTX_new(hmacAlgorithm())) {
    char digest[] = OSSL_DIGEST_NAME_SHA2_256;
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
        OSSL_PARAM_construct_end(),
    };
    EVP_MAC_init(context_.get(), reinterpret_cast<const unsigned char*>(key.data()),
                 static_cast<size_t>(key.size()), parameters);
}

HMACV3::~HMACV3() = default;

void HMACV3::update(QByteArrayView data) {
    if (!data.isEmpty())
        EVP_MAC_update(context_.get(), reinterpret_cast<const unsigned char*>(data.data()),
                       static_cast<size_t>(data.size()));
}

QByteArray HMACV3::finalData() {
    QByteArray mac(RNCryptor::FormatV3::hmacSize, '\0');
    size_t written = 0;
    EVP_MAC_final(context_.get(), reinterpret_cast<unsigned char*>(mac.data()), &written,
                  static_cast<size_t>(mac.size()));
    return mac;
}

} // namespace RNCryptor::internal
