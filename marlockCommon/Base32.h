#pragma once

#include "marlockCommon/Export.h"

#include <QByteArray>
#include <QString>
#include <QStringView>

// Base32 with the RFC 4648 alphabet (A–Z, 2–7), the encoding of token secrets in key URIs.
namespace marlockCommon::Base32 {

// Upper-case Base32 of `bytes`, padded with "=" to a multiple of 8 characters unless `padding`
// is false (key URIs leave the padding out).
//
//   Base32::encode("foo") == "MZXW6==="      Base32::encode("foo", false) == "MZXW6"
MARLOCK_COMMON_EXPORT QString encode(const QByteArray& bytes, bool padding = true);

// Decodes Base32 the way authenticator apps hand it over: lower case, missing padding and
// spaces (as in "jbsw y3dp ehpk 3pxp") are accepted. Anything else outside the alphabet, "=" other
// than as the trailing padding that completes the last group of 8 (more is refused), or a length no
// byte string encodes to throws
// TokenError(invalidBase32). Bits left over after the last whole byte are ignored.
MARLOCK_COMMON_EXPORT QByteArray decode(QStringView text);

} // namespace marlockCommon::Base32
