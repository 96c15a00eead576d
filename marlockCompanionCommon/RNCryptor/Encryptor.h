#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/RNCryptor/EncryptorV3.h"
#include "marlockCompanionCommon/RNCryptor/RNCryptorType.h"

#include <QByteArray>
#include <QString>

namespace RNCryptor {

// Writes a password container in the current format (version 3) with fresh random salts and IV,
// so two encryptions of the same data never give the same bytes. Never throws.
class MCC_EXPORT Encryptor final : public RNCryptorType {
public:
    // Derives both keys (two deliberately slow derivations). An empty password stops the process.
    explicit Encryptor(const QString& password);
    ~Encryptor() override;

    // The whole container for `data`, on a fresh encryptor.
    [[nodiscard]] QByteArray encrypt(const QByteArray& data);

    [[nodiscard]] QByteArray update(const QByteArray& data) override;
    [[nodiscard]] QByteArray finalData() override;

private:
    EncryptorV3 encryptor_;
};

} // namespace RNCryptor
