#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/RNCryptor/RNCryptorType.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <memory>

namespace RNCryptor {

namespace internal {
class Credential;
class DecryptorEngineV3;
} // namespace internal

// Reads a version-3 container with a password or with the two 32-byte keys. Input is gathered
// until the whole header is there (34 bytes for a password, 18 for keys); the header is then
// checked and, for a password, both keys are derived; the body follows through the MAC check.
//
// Throws RNCryptor::Error: unknownHeader (first byte not 3), invalidCredentialType (options byte
// not 1 for a password, not 0 for keys), messageTooShort (ended inside the header),
// hmacMismatch (wrong credential, damaged or truncated body; only noticed by finalData()).
// A header that fails stays gathered: every later update fails the same way.
class MCC_EXPORT DecryptorV3 final : public RNCryptorType {
public:
    // Leading bytes needed to recognise the format.
    static constexpr qsizetype preambleSize = 1;

    // True when `preamble` begins with the version byte 3 (the options byte is checked later).
    [[nodiscard]] static bool canDecrypt(QByteArrayView preamble);

    // Reads password containers.
    explicit DecryptorV3(const QString& password);

    // Reads key containers; both keys must be 32 bytes (otherwise the process stops).
    DecryptorV3(const QByteArray& encryptionKey, const QByteArray& hmacKey);

    ~DecryptorV3() override;

    // The plaintext of a whole container, returned only once its MAC has been checked.
    [[nodiscard]] QByteArray decrypt(const QByteArray& data);

    [[nodiscard]] QByteArray update(const QByteArray& data) override;
    [[nodiscard]] QByteArray finalData() override;

private:
    std::unique_ptr<internal::DecryptorEngineV3> makeEngine(QByteArrayView header) const;
    static std::unique_ptr<internal::DecryptorEngineV3> makeEngine(const QString& password,
                                                                   QByteArrayView header);
    static std::unique_ptr<internal::DecryptorEngineV3>
    makeEngine(QByteArrayView encryptionKey, QByteArrayView hmacKey, QByteArrayView header);

    QByteArray buffer_;
    std::unique_ptr<internal::DecryptorEngineV3> decryptorEngine_;
    std::unique_ptr<internal::Credential> credential_;
};

} // namespace RNCryptor
