#include "marlockCommon/TokenError.h"

namespace marlockCommon {

namespace {

QString summary(TokenError::Code code) {
    using Code = TokenError::Code;
    switch (code) {
    case Code::invalidURI:
        return QStringLiteral("Not a key URI");
    case Code::unsupportedScheme:
        return QStringLiteral("Wrong scheme (expected otpauth)");
    case Code::unknownType:
        return QStringLiteral("Unknown token type (expected totp or hotp)");
    case Code::invalidEncoding:
        return QStringLiteral("Bad percent-encoding or text that is not UTF-8");
    case Code::duplicateParameter:
        return QStringLiteral("Parameter given more than once");
    case Code::missingSecret:
        return QStringLiteral("Missing secret");
    case Code::invalidBase32:
        return QStringLiteral("Bad Base32 secret");
    case Code::emptySecret:
        return QStringLiteral("Empty secret");
    case Code::invalidAlgorithm:
        return QStringLiteral("Bad algorithm (expected SHA1, SHA256 or SHA512)");
    case Code::invalidDigits:
        return QStringLiteral("Bad digits (must be 6, 7 or 8)");
    case Code::invalidPeriod:
        return QStringLiteral("Bad period (must be a positive whole number of seconds)");
    case Code::missingCounter:
        return QStringLiteral("Missing counter (an HOTP key needs one)");
    case Code::invalidCounter:
        return QStringLiteral("Bad counter (must be an unsigned 64-bit number)");
    case Code::invalidTime:
        return QStringLiteral("Bad time (must be finite, after 1970 and in range)");
    }
    return QStringLiteral("Unknown error");
}

} // namespace

TokenError::TokenError(Code code, const QString& detail)
    : code_(code)
    , detail_(detail)
    , what_(message().toUtf8()) {}

QString TokenError::message() const {
    if (detail_.isEmpty())
        return summary(code_);
    return summary(code_) + QStringLiteral(": ") + detail_;
}

QString TokenError::codeName(Code code) {
    using Code = TokenError::Code;
    switch (code) {
    case Code::invalidURI:
        return QStringLiteral("invalidURI");
    case Code::unsupportedScheme:
        return QStringLiteral("unsupportedScheme");
    case Code::unknownType:
        return QStringLiteral("unknownType");
    case Code::invalidEncoding:
        return QStringLiteral("invalidEncoding");
    case Code::duplicateParameter:
        return QStringLiteral("duplicateParameter");
    case Code::missingSecret:
        return QStringLiteral("missingSecret");
    case Code::invalidBase32:
        return QStringLiteral("invalidBase32");
    case Code::emptySecret:
        return QStringLiteral("emptySecret");
    case Code::invalidAlgorithm:
        return QStringLiteral("invalidAlgorithm");
    case Code::invalidDigits:
        return QStringLiteral("invalidDigits");
    case Code::invalidPeriod:
        return QStringLiteral("invalidPeriod");
    case Code::missingCounter:
        return QStringLiteral("missingCounter");
    case Code::invalidCounter:
        return QStringLiteral("invalidCounter");
    case Code::invalidTime:
        return QStringLiteral("invalidTime");
    }
    return QStringLiteral("unknown");
}

} // namespace marlockCommon
