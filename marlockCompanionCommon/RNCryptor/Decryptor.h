#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/RNCryptor/RNCryptorType.h"

#include <QByteArray>
#include <QString>

#include <memory>
#include <vector>

namespace RNCryptor {

namespace internal {
class Credential;
struct VersionedDecryptorKind;
} // namespace internal

// Reads a password container of any known version: the first bytes of the stream choose the
// versioned decryptor (today only version 3, recognised by its first byte), which then reads the
// rest. Throws RNCryptor::Error: unknownHeader when no version matches or when the stream ends
// before any byte arrived, otherwise whatever the chosen decryptor throws.
//
//   RNCryptor::Decryptor decryptor(password);
//   QByteArray plaintext;
//   for (const QByteArray& piece : pieces)
//       plaintext += decryptor.update(piece);
//   plaintext += decryptor.finalData(); // throws hmacMismatch for a wrong password
class MCC_EXPORT Decryptor final : public RNCryptorType {
public:
    explicit Decryptor(const QString& password);
    ~Decryptor() override;

    // The plaintext of a whole container, returned only once its MAC has been checked.
    [[nodiscard]] QByteArray decrypt(const QByteArray& data);

    [[nodiscard]] QByteArray update(const QByteArray& data) override;
    [[nodiscard]] QByteArray finalData() override;

private:
    std::vector<internal::VersionedDecryptorKind> decryptors_;
    QByteArray buffer_;
    std::unique_ptr<RNCryptorType> decryptor_;
    // Kept to build the chosen decryptor; cleansed when this goes away.
    std::unique_ptr<internal::Credential> password_;
};

} // namespace RNCryptor
