#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <cstring>
#include <memory>

namespace RNCryptor::internal {

// Keeps the newest `capacity` bytes of a stream to itself and lets older ones through. A
// container ends in its MAC and says nowhere how long it is, so while it streams in, the reader
// cannot tell which of the bytes it has are the MAC: it runs them through one of these,
// deciphers what comes out, and compares what is left once the stream has ended with the MAC
// it computed.
//
// Everything update() or release() lets through, followed by finalData(), is the stream that
// went in, byte for byte and in order. Storage is fixed at construction: feeding it allocates
// nothing, which matters when a stream arrives one byte at a time.
class OverflowingBuffer {
public:
    explicit OverflowingBuffer(qsizetype capacity);

    qsizetype capacity() const { return capacity_; }
    // How many bytes are held now.
    qsizetype size() const { return size_; }

    // Takes `data` and returns the bytes that it pushed out of the last `capacity` (may be empty).
    QByteArray update(QByteArrayView data);

    // The same, handing the released bytes to `sink` instead of collecting them: in stream order,
    // as at most two views (older held bytes, then a leading part of `data`) that are valid only
    // during the call. Nothing is copied besides the bytes that stay held.
    template <typename Sink> void release(QByteArrayView data, Sink&& sink);

    // The held bytes, the last min(capacity, total) of the stream; empties the buffer.
    [[nodiscard]] QByteArray finalData();

private:
    template <typename Sink> void sendAll(QByteArrayView data, Sink&& sink);
    template <typename Sink> void sendSome(QByteArrayView data, Sink&& sink);

    QByteArrayView held() const { return {storage_.get() + begin_, size_}; }
    void append(QByteArrayView data);
    void dropFront(qsizetype count) {
        begin_ += count;
        size_ -= count;
    }
    void replaceWith(QByteArrayView data);
    void moveToFront();

    const qsizetype capacity_;
    // Room for twice the capacity, so that held bytes move to the front only now and then:
    // after `capacity` single-byte updates rather than after every one.
    std::unique_ptr<char[]> storage_;
    qsizetype begin_ = 0;
    qsizetype size_ = 0;
};

// Only called when the held bytes and `data` fit in the capacity together. Inline, with a single
// byte stored directly: streams fed one byte at a time come through here on every call.
inline void OverflowingBuffer::append(QByteArrayView data) {
    if (begin_ + size_ + data.size() > 2 * capacity_)
        moveToFront();
    char* end = storage_.get() + begin_ + size_;
    if (data.size() == 1)
        *end = data.front();
    else if (!data.isEmpty())
        std::memcpy(end, data.data(), size_t(data.size()));
    size_ += data.size();
}

template <typename Sink> void OverflowingBuffer::release(QByteArrayView data, Sink&& sink) {
    if (data.size() >= capacity_)
        sendAll(data, sink);
    else if (size_ + data.size() <= capacity_)
        append(data);
    else
        sendSome(data, sink);
}

// `data` alone fills the buffer: everything held goes, then all of `data` but its last `capacity`
// bytes, which are kept.
template <typename Sink> void OverflowingBuffer::sendAll(QByteArrayView data, Sink&& sink) {
    const qsizetype toSend = data.size() - capacity_;
    if (size_ > 0)
        sink(held());
    if (toSend > 0)
        sink(data.first(toSend));
    replaceWith(data.sliced(toSend));
}

// Held and new bytes together overflow: the oldest held bytes go, all of `data` is kept.
template <typename Sink> void OverflowingBuffer::sendSome(QByteArrayView data, Sink&& sink) {
    const qsizetype toSend = size_ + data.size() - capacity_;
    sink(held().first(toSend));
    dropFront(toSend);
    append(data);
}

} // namespace RNCryptor::internal
