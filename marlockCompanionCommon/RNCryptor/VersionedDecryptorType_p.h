#pragma once

#include "marlockCompanionCommon/RNCryptor/RNCryptorType.h"

#include <QByteArrayView>
#include <QString>

#include <concepts>
#include <memory>

namespace RNCryptor::internal {

// A decryptor for one version of the container that can tell from the first bytes of a stream
// whether the stream is its own, and can be built from a password.
template <typename T>
concept VersionedDecryptorType = std::derived_from<T, RNCryptorType> && std::constructible_from<T, QString> &&
    requires(QByteArrayView preamble) {
    { T::preambleSize } -> std::convertible_to<qsizetype>;
    { T::canDecrypt(preamble) } -> std::same_as<bool>;
};

// One versioned decryptor type, as the general decryptor keeps it in its list of candidates.
struct VersionedDecryptorKind {
    qsizetype preambleSize;
    bool (*canDecrypt)(QByteArrayView preamble);
    std::unique_ptr<RNCryptorType> (*make)(const QString& password);

    template <VersionedDecryptorType T> static VersionedDecryptorKind of() {
        return {T::preambleSize, &T::canDecrypt,
                [](const QString& password) -> std::unique_ptr<RNCryptorType> {
                    return std::make_unique<T>(password);
                }};
    }
};

} // namespace RNCryptor::internal
