#include "marlockCompanionCommon/RNCryptor/Decryptor.h"

#include "marlockCompanionCommon/RNCryptor/Credential_p.h"
#include "marlockCompanionCommon/RNCryptor/DecryptorV3.h"
#include "marlockCompanionCommon/RNCryptor/Error.h"
#include "marlockCompanionCommon/RNCryptor/VersionedDecryptorType_p.h"

#include <algorithm>

namespace RNCryptor {

using namespace internal;

Decryptor::Decryptor(const QString& password)
    : decryptors_{VersionedDecryptorKind::of<DecryptorV3>()}
    , password_(std::make_unique<Credential>(Credential::password(password))) {}

Decryptor::~Decryptor() = default;

QByteArray Decryptor::decrypt(const QByteArray& data) {
    return oneshot(data);
}

QByteArray Decryptor::update(const QByteArray& data) {
    if (decryptor_)
        return decryptor_->update(data);

    if (buffer_.isEmpty())
        buffer_ = data; // shared, not copied
    else
        buffer_.append(data);

    // Candidates whose preamble is complete are asked now, in order; the others wait.
    const auto waiting = std::stable_partition(decryptors_.begin(), decryptors_.end(), [&](const auto& kind) {
        return kind.preambleSize > buffer_.size();
    });
    std::vector<VersionedDecryptorKind> toCheck(waiting, decryptors_.end());
    decryptors_.erase(waiting, decryptors_.end());

    for (const VersionedDecryptorKind& kind : toCheck) {
        if (!kind.canDecrypt(QByteArrayView(buffer_).first(kind.preambleSize)))
            continue;
        decryptor_ = kind.make(password_->passwordText());
        // The gathered bytes are dropped only once the chosen decryptor has taken them.
        QByteArray output = decryptor_->update(buffer_);
        buffer_ = QByteArray();
        return output;
    }
    if (decryptors_.empty())
        throw Error(Error::unknownHeader);
    return {};
}

QByteArray Decryptor::finalData() {
    if (!decryptor_)
        throw Error(Error::unknownHeader);
    return decryptor_->finalData();
}

} // namespace RNCryptor
