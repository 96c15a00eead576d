#pragma once

namespace RNCryptor::internal {

// Turns an OpenSSL result (1 for success) into a status in the usual sense: 0 for success,
// otherwise a negative number, the reason code of the last queued OpenSSL error when there is
// one, so a fatal report says more than "failed".
[[nodiscard]] int openSSLStatus(int result);

} // namespace RNCryptor::internal
