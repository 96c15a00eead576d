#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <memory>

struct evp_mac_ctx_st;

namespace RNCryptor::internal {

// A streaming HMAC-SHA256: keyed once, fed any number of pieces, finished once.
class HMACV3 {
public:
    explicit HMACV3(QByteArrayView key);
    ~HMACV3();
    HMACV3(const HMACV3&) = delete;
    HMACV3& operator=(const HMACV3&) = delete;

    // Feeds all of `data`; an empty piece changes nothing.
    void update(QByteArrayView data);

    // The 32-byte MAC of everything fed so far.
    [[nodiscard]] QByteArray finalData();

private:
    struct ContextDeleter {
        void operator()(evp_mac_ctx_st* context) const;
    };
    std::unique_ptr<evp_mac_ctx_st, ContextDeleter> context_;
};

} // namespace RNCryptor::internal
