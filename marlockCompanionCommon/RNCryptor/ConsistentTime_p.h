#pragma once

#include <QByteArrayView>

namespace RNCryptor::internal {

// Compares a value we computed (`trusted`) with one that arrived with the data (`untrusted`) in
// a time that depends only on the untrusted length: it never stops at the first difference and
// never branches on byte values. Strings of different lengths are unequal; the loop still runs
// over the whole untrusted string, wrapping around the trusted one.
// A non-empty untrusted string against an empty trusted one is a programming error and stops
// the process (the trusted side is always a 32-byte MAC).
[[nodiscard]] bool isEqualInConsistentTime(QByteArrayView trusted, QByteArrayView untrusted);

} // namespace RNCryptor::internal
