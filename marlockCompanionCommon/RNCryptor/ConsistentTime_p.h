#pragma once

#include <QByteArrayView>

namespace RNCryptor::internal {

// Stops the process: the comparison below was handed an empty trusted value to wrap around.
[[noreturn]] void emptyTrustedValueCompared();

// How the comparison reads one byte. A test substitutes a reader that counts the reads, which
// shows that every byte is read whatever the inputs; this one compiles to a plain load.
struct DirectByteReader {
    quint8 operator()(const quint8* bytes, qsizetype index) const { return bytes[index]; }
};

// Compares a value we computed (`trusted`) with one that arrived with the data (`untrusted`),
// for the MAC check. How long it takes may only depend on the untrusted length, never on where
// the first difference is, or an attacker could find a valid MAC byte by byte by timing
// guesses: so it reads every untrusted byte, against the trusted one at the same place, and
// folds each difference into an accumulator without branching on it. Strings of different
// lengths are unequal; the loop still runs over the whole untrusted string, wrapping around the
// trusted one.
// A non-empty untrusted string against an empty trusted one is a programming error and stops
// the process (the trusted side is always a 32-byte MAC).
[[nodiscard]] bool isEqualInConsistentTime(QByteArrayView trusted, QByteArrayView untrusted);

template <typename ByteReader>
[[nodiscard]] bool isEqualInConsistentTime(QByteArrayView trusted, QByteArrayView untrusted,
                                           ByteReader read) {
    const qsizetype trustedLength = trusted.size();
    const qsizetype untrustedLength = untrusted.size();
    if (untrustedLength > 0 && trustedLength == 0)
        emptyTrustedValueCompared();

    // A length difference already decides the answer, but the loop below still runs in full.
    quint8 accumulator = trustedLength == untrustedLength ? 0 : 1;
    const auto* trustedBytes = reinterpret_cast<const quint8*>(trusted.data());
    const auto* untrustedBytes = reinterpret_cast<const quint8*>(untrusted.data());
    qsizetype j = 0; // i modulo the trusted length, without a division per byte
    for (qsizetype i = 0; i < untrustedLength; ++i) {
        accumulator |= static_cast<quint8>(read(untrustedBytes, i) ^ read(trustedBytes, j));
        j = (j + 1 == trustedLength) ? 0 : j + 1;
    }
    return accumulator == 0;
}

} // namespace RNCryptor::internal
