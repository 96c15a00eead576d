#include "marlockCompanionCommon/RNCryptor/SecretBytes_p.h"

#include <openssl/crypto.h>

namespace RNCryptor::internal {

void wipe(QByteArray& bytes) {
    if (bytes.isDetached() && !bytes.isEmpty())
        OPENSSL_cleanse(bytes.data(), static_cast<size_t>(bytes.size()));
    bytes = QByteArray();
}

void wipe(QString& text) {
    if (text.isDetached() && !text.isEmpty())
        OPENSSL_cleanse(text.data(), static_cast<size_t>(text.size()) * sizeof(QChar));
    text = QString();
}

} // namespace RNCryptor::internal
