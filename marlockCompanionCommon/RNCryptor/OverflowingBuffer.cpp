#include "marlockCompanionCommon/RNCryptor/OverflowingBuffer_p.h"

#include "marlockCompanionCommon/RNCryptor/Fatal_p.h"

namespace RNCryptor::internal {

OverflowingBuffer::OverflowingBuffer(qsizetype capacity)
    : capacity_(capacity) {
    buffer_.reserve(capacity);
}

QByteArray OverflowingBuffer::update(QByteArrayView data) {
    Release released = release(data);
    released.held.append(released.fresh);
    return std::move(released.held);
}

OverflowingBuffer::Release OverflowingBuffer::release(QByteArrayView data) {
    if (data.size() >= capacity_)
        return sendAll(data);
    if (buffer_.size() + data.size() <= capacity_) {
        buffer_.append(data);
        return {};
    }
    return sendSome(data);
}

// The new data alone fills the buffer: everything held goes, followed by all of the data but its
// last `capacity` bytes, which become the new contents.
OverflowingBuffer::Release OverflowingBuffer::sendAll(QByteArrayView data) {
    const qsizetype toSend = data.size() - capacity_;
    if (toSend < 0)
        cryptorFatalError(QStringLiteral("Overflowing buffer would send a negative byte count"));
    Release released{std::exchange(buffer_, data.sliced(toSend).toByteArray()), data.first(toSend)};
    return released;
}

// Held and new bytes together overflow: the oldest held bytes go, all of the data is kept.
OverflowingBuffer::Release OverflowingBuffer::sendSome(QByteArrayView data) {
    const qsizetype toSend = buffer_.size() + data.size() - capacity_;
    if (toSend < 0)
        cryptorFatalError(QStringLiteral("Overflowing buffer would send a negative byte count"));
    Release released{buffer_.first(toSend), {}};
    buffer_.remove(0, toSend);
    buffer_.append(data);
    return released;
}

QByteArray OverflowingBuffer::finalData() {
    return std::exchange(buffer_, QByteArray());
}

} // namespace RNCryptor::internal
