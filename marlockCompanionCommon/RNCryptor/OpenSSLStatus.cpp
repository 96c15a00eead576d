#include "marlockCompanionCommon/RNCryptor/OpenSSLStatus_p.h"

#include <openssl/err.h>

namespace RNCryptor::internal {

int openSSLStatus(int result) {
    if (result == 1)
        return 0;
    const int reason = ERR_GET_REASON(ERR_peek_last_error());
    return reason > 0 ? -reason : -1;
}

} // namespace RNCryptor::internal
