#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/platform/runtime/Error.h"

#include <QString>

#include <exception>
#include <optional>

namespace RNCryptor {

// The one error of the encrypted container, thrown by the decryptors.
//
//   try {
//       const QByteArray plaintext = RNCryptor::decrypt(container, password);
//   } catch (const RNCryptor::Error& error) {
//       if (error.code() == RNCryptor::Error::hmacMismatch) … // wrong password or damaged data
//   }
class MCC_EXPORT Error : public std::exception {
public:
    // Raw values are stable: they are stored and reported as error codes.
    enum class Code : int {
        // The MAC at the end does not match, or fewer than 32 bytes followed the header. A wrong
        // password or key shows only as this.
        hmacMismatch = 1,
        // No version this library reads starts with the first byte, or not a single byte came.
        unknownHeader = 2,
        // The stream ended inside the header.
        messageTooShort = 3,
        // Kept for its raw value; never raised.
        memoryFailure = 4,
        // A key container given a password, or a password container given keys (second byte).
        invalidCredentialType = 5,
    };
    using enum Code;

    // The domain of the error when it crosses into platform::Error.
    static inline const QString domain = QStringLiteral("marlockCompanionCommon.RNCryptor.Error");

    explicit Error(Code code) noexcept
        : code_(code) {}

    // The error for a raw value, or nothing for a value outside 1 to 5.
    [[nodiscard]] static std::optional<Error> fromRawValue(qint64 rawValue);

    Code code() const noexcept { return code_; }
    int rawValue() const noexcept { return static_cast<int>(code_); }

    // "RNCryptor.Error.hmacMismatch" and so on.
    const char* what() const noexcept override;

    // As an error object: this domain, the raw value as code, no user info.
    platform::Error toPlatformError() const;
    operator platform::Error() const { return toPlatformError(); }

    bool operator==(const Error& other) const noexcept { return code_ == other.code_; }

private:
    Code code_;
};

} // namespace RNCryptor
