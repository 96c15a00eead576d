#include "marlockCompanionCommon/RNCryptor/SecretBytes_p.h"

#include <openssl/crypto.h>

namespace RNCryptor::internal {

void cleanse(void* data, size_t size) {
    if (size > 0)
        OPENSSL_cleanse(data, size);
}

void wipe(QByteArray& bytes) {
    if (bytes.isDetached() && !bytes.isEmpty())
        cleanse(bytes.data(), static_cast<size_t>(bytes.size()));
    bytes = QByteArray();
}

void wipe(QString& text) {
    if (text.isDetached() && !text.isEmpty())
        cleanse(text.data(), static_cast<size_t>(text.size()) * sizeof(QChar));
    text = QString();
}

} // namespace RNCryptor::internal
