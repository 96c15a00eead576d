#include "marlockCompanionCommon/RNCryptor/ConsistentTime_p.h"

#include "marlockCompanionCommon/RNCryptor/Fatal_p.h"

namespace RNCryptor::internal {

// Kept out of line so that the loop is never folded into a caller and specialised there.
[[gnu::noinline]] bool isEqualInConsistentTime(QByteArrayView trusted, QByteArrayView untrusted) {
    const qsizetype trustedLength = trusted.size();
    const qsizetype untrustedLength = untrusted.size();
    if (untrustedLength > 0 && trustedLength == 0)
        cryptorFatalError(QStringLiteral("Division by zero in remainder operation"));

    // A length difference already decides the answer, but the loop below still runs in full.
    quint8 accumulator = trustedLength == untrustedLength ? 0 : 1;
    const auto* trustedBytes = reinterpret_cast<const quint8*>(trusted.data());
    const auto* untrustedBytes = reinterpret_cast<const quint8*>(untrusted.data());
    qsizetype j = 0; // i modulo the trusted length, without a division per byte
    for (qsizetype i = 0; i < untrustedLength; ++i) {
        accumulator |= static_cast<quint8>(untrustedBytes[i] ^ trustedBytes[j]);
        j = (j + 1 == trustedLength) ? 0 : j + 1;
    }
    return accumulator == 0;
}

} // namespace RNCryptor::internal
