#include "marlockCompanionCommon/RNCryptor/Error.h"

namespace RNCryptor {

std::optional<Error> Error::fromRawValue(qint64 rawValue) {
    if (rawValue < static_cast<int>(hmacMismatch) || rawValue > static_cast<int>(invalidCredentialType))
        return std::nullopt;
    return Error(static_cast<Code>(rawValue));
}

const char* Error::what() const noexcept {
    switch (code_) {
    case hmacMismatch:
        return "RNCryptor.Error.hmacMismatch";
    case unknownHeader:
        return "RNCryptor.Error.unknownHeader";
    case messageTooShort:
        return "RNCryptor.Error.messageTooShort";
    case memoryFailure:
        return "RNCryptor.Error.memoryFailure";
    case invalidCredentialType:
        return "RNCryptor.Error.invalidCredentialType";
    }
    return "RNCryptor.Error";
}

platform::Error Error::toPlatformError() const {
    return platform::Error(domain, rawValue());
}

} // namespace RNCryptor
