#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/RNCryptor/RNCryptorType.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <memory>
#include <optional>

namespace RNCryptor {

namespace internal {
class Engine;
class HMACV3;
} // namespace internal

// Writes a version-3 container, with keys derived from a password or given directly. The header
// leaves with the first output; the MAC (HMAC-SHA256 over header and ciphertext) ends the final
// output. Never throws; sizes other than 32-byte keys and a 16-byte IV stop the process.
//
//   RNCryptor::EncryptorV3 encryptor(encryptionKey, hmacKey);
//   QByteArray container = encryptor.update(firstPiece);
//   container += encryptor.update(secondPiece);
//   container += encryptor.finalData();
class MCC_EXPORT EncryptorV3 final : public RNCryptorType {
public:
    // Password container with fresh random salts and IV. An empty password is accepted here
    // (RNCryptor::Encryptor refuses it).
    explicit EncryptorV3(const QString& password);

    // Password container with the given salts (8 bytes each, not checked) and IV.
    EncryptorV3(const QString& password, const QByteArray& encryptionSalt, const QByteArray& hmacSalt,
                const QByteArray& iv);

    // Key container (32-byte keys) with a fresh random IV.
    EncryptorV3(const QByteArray& encryptionKey, const QByteArray& hmacKey);

    // Key container with the given IV.
    EncryptorV3(const QByteArray& encryptionKey, const QByteArray& hmacKey, const QByteArray& iv);

    ~EncryptorV3() override;

    // The whole container for `data`, on a fresh encryptor.
    [[nodiscard]] QByteArray encrypt(const QByteArray& data);

    // The header with the first call, then ciphertext as whole blocks become ready.
    [[nodiscard]] QByteArray update(const QByteArray& data) override;

    // The rest of the ciphertext (with the header if nothing was output yet), then the MAC.
    [[nodiscard]] QByteArray finalData() override;

private:
    void start(QByteArrayView encryptionKey, QByteArrayView hmacKey, QByteArrayView iv, QByteArray header);
    QByteArray takeHeader(qsizetype room);

    std::unique_ptr<internal::Engine> engine_;
    std::unique_ptr<internal::HMACV3> hmac_;
    std::optional<QByteArray> pendingHeader_;
};

} // namespace RNCryptor
