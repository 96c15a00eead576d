#pragma once

#include "marlockCompanionCommon/RNCryptor/Error.h"
#include "marlockCompanionCommon/RNCryptor/RNCryptorType.h"

#include <QByteArray>

#include <cstdint>
#include <optional>

namespace fuzzing {

// What a decryptor made of a whole stream: the plaintext, or the error that ended it.
struct Outcome {
    QByteArray plaintext;
    std::optional<RNCryptor::Error::Code> error;
    bool operator==(const Outcome&) const = default;
};

// Feeds `data` in pieces whose sizes (0 to 64 bytes, empty pieces included) come from a small
// generator seeded by the input, then finishes the stream. Output is kept only on success.
inline Outcome feedInPieces(RNCryptorType& decryptor, const QByteArray& data, uint32_t seed) {
    Outcome outcome;
    try {
        QByteArray output;
        for (qsizetype at = 0; at < data.size();) {
            seed = seed * 1664525u + 1013904223u;
            const qsizetype piece = std::min<qsizetype>((seed >> 24) % 65, data.size() - at);
            output += decryptor.update(data.sliced(at, piece));
            at += piece;
        }
        output += decryptor.finalData();
        outcome.plaintext = output;
    } catch (const RNCryptor::Error& error) {
        outcome.error = error.code();
    }
    return outcome;
}

} // namespace fuzzing
