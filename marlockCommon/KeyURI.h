#pragma once

#include "marlockCommon/Export.h"
#include "marlockCommon/TokenRecord.h"

#include <QString>

// Key URIs, the text authenticator apps exchange (usually as QR codes):
//
//   otpauth://totp/Example:alice@example.org?secret=JBSWY3DPEHPK3PXP&issuer=Example
//           &algorithm=SHA1&digits=6&period=30
//   otpauth://hotp/Example:alice@example.org?secret=JBSWY3DPEHPK3PXP&issuer=Example&counter=0
//
// The label is "issuer:account" (or just "account"), each part percent-encoded as UTF-8.
namespace marlockCommon::KeyURI {

// Reads a key URI. Accepted leniently, as apps write them: any case in the scheme, type and
// parameter names; Base32 secrets in lower case, without padding or with spaces; "%3A" as the
// label's separator when it is followed by the issuer parameter's value; spaces after the
// separator; unknown parameters (ignored). When the issuer parameter and the label's prefix
// disagree, the parameter wins. Defaults: SHA1, 6 digits, period 30, counter 0.
// Throws TokenError naming what is wrong: invalidURI, unsupportedScheme, unknownType,
// invalidEncoding, duplicateParameter, missingSecret, invalidBase32, emptySecret,
// invalidAlgorithm, invalidDigits, invalidPeriod, missingCounter or invalidCounter.
MARLOCK_COMMON_EXPORT TokenRecord parse(const QString& uri);

// Writes the key URI of `record` (secret in unpadded Base32). Every field is written, so that
// parse(format(r)) == r for every valid record: "period" always for TOTP and for HOTP when it is
// not 30, "counter" always for HOTP and for TOTP when it is not 0.
// Throws TokenError when the record is not valid (see TokenRecord::validate()).
MARLOCK_COMMON_EXPORT QString format(const TokenRecord& record);

} // namespace marlockCommon::KeyURI
