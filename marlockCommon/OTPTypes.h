#pragma once

#include "marlockCommon/Export.h"

#include <QString>

#include <optional>

namespace marlockCommon {

// How a token counts: by time steps (RFC 6238) or by an event counter (RFC 4226).
enum class OTPType { totp, hotp };

// The HMAC hash of a token.
enum class OTPAlgorithm { sha1, sha256, sha512 };

// The fewest and most digits a code may have.
inline constexpr int minimumDigits = 6;
inline constexpr int maximumDigits = 8;

// Names as key URIs and archives write them: "totp"/"hotp" and "SHA1"/"SHA256"/"SHA512".
MARLOCK_COMMON_EXPORT QString typeName(OTPType type);
MARLOCK_COMMON_EXPORT QString algorithmName(OTPAlgorithm algorithm);

// The reverse, ignoring case ("sha256" and "SHA256" both work); absent for anything else.
MARLOCK_COMMON_EXPORT std::optional<OTPType> typeFromName(const QString& name);
MARLOCK_COMMON_EXPORT std::optional<OTPAlgorithm> algorithmFromName(const QString& name);

} // namespace marlockCommon
