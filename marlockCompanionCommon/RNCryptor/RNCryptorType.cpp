#include "marlockCompanionCommon/RNCryptor/RNCryptorType.h"

RNCryptorType::~RNCryptorType() = default;

QByteArray RNCryptorType::oneshot(const QByteArray& data) {
    QByteArray output = update(data);
    // Appending keeps the usual case copy-free: the update's output has room for the last block.
    output.append(finalData());
    return output;
}
