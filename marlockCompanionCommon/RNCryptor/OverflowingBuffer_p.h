#pragma once

#include <QByteArray>
#include <QByteArrayView>

namespace RNCryptor::internal {

// A byte queue that always holds back the last `capacity` bytes of a stream and releases
// everything older. A reader of a stream that ends in a fixed-size MAC, with no length field
// anywhere, feeds the stream through one of these: what comes out is ciphertext, what is held
// at the end is the MAC.
//
// Everything released by update(), followed by finalData(), is exactly the stream fed in.
class OverflowingBuffer {
public:
    explicit OverflowingBuffer(qsizetype capacity);

    qsizetype capacity() const { return capacity_; }

    // The released bytes of one update, in stream order: first some of the older held bytes
    // (copied out), then a prefix of the data just given (a view into it, valid while that data
    // is). Either part may be empty.
    struct Release {
        QByteArray held;
        QByteArrayView fresh;
    };

    // Takes `data` and returns the bytes that are no longer among the last `capacity`.
    QByteArray update(QByteArrayView data);

    // The same, without copying the released part of `data`.
    [[nodiscard]] Release release(QByteArrayView data);

    // The held bytes (the last min(capacity, total) of the stream); empties the buffer.
    [[nodiscard]] QByteArray finalData();

private:
    Release sendAll(QByteArrayView data);
    Release sendSome(QByteArrayView data);

    QByteArray buffer_;
    const qsizetype capacity_;
};

} // namespace RNCryptor::internal
