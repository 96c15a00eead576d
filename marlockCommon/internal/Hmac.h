#pragma once

#include "marlockCommon/OTPTypes.h"

#include <QByteArray>

// Keeps OpenSSL out of the public headers.
namespace marlockCommon::internal {

// HMAC of `message` under `key` with the hash of `algorithm` (20, 32 or 64 bytes).
QByteArray hmac(OTPAlgorithm algorithm, const QByteArray& key, const QByteArray& message);

} // namespace marlockCommon::internal
