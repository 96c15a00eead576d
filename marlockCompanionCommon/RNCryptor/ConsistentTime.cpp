#include "marlockCompanionCommon/RNCryptor/ConsistentTime_p.h"

#include "marlockCompanionCommon/RNCryptor/Fatal_p.h"

namespace RNCryptor::internal {

void emptyTrustedValueCompared() {
    cryptorFatalError(QStringLiteral("A non-empty value was compared against an empty trusted value"));
}

// Kept out of line so that the loop is never folded into a caller and specialised there.
[[gnu::noinline]] bool isEqualInConsistentTime(QByteArrayView trusted, QByteArrayView untrusted) {
    return isEqualInConsistentTime(trusted, untrusted, DirectByteReader());
}

} // namespace RNCryptor::internal
