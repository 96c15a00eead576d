#pragma once

#include <QtGlobal>

#include <optional>

namespace RNCryptor::internal {

// The direction of the block cipher. The raw values are the operation codes that the cipher
// engine has always been created with, so they stay fixed.
enum class CryptorOperation : quint32 {
    encrypt = 0,
    decrypt = 1,
};

// The operation for a raw value, or nothing for a value that names no operation.
[[nodiscard]] constexpr std::optional<CryptorOperation> cryptorOperationFromRawValue(quint32 rawValue) {
    switch (rawValue) {
    case 0:
        return CryptorOperation::encrypt;
    case 1:
        return CryptorOperation::decrypt;
    default:
        return std::nullopt;
    }
}

} // namespace RNCryptor::internal
