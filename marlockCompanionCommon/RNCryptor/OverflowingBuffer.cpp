#include "marlockCompanionCommon/RNCryptor/OverflowingBuffer_p.h"

#include <cstring>

namespace RNCryptor::internal {

OverflowingBuffer::OverflowingBuffer(qsizetype capacity)
    : capacity_(capacity)
    , storage_(std::make_unique<char[]>(size_t(2 * capacity))) {}

QByteArray OverflowingBuffer::update(QByteArrayView data) {
    QByteArray released;
    release(data, [&](QByteArrayView part) { released.append(part); });
    return released;
}

QByteArray OverflowingBuffer::finalData() {
    const QByteArray bytes = held().toByteArray();
    begin_ = 0;
    size_ = 0;
    return bytes;
}

void OverflowingBuffer::moveToFront() {
    std::memmove(storage_.get(), storage_.get() + begin_, size_t(size_));
    begin_ = 0;
}

void OverflowingBuffer::replaceWith(QByteArrayView data) {
    std::memcpy(storage_.get(), data.data(), size_t(data.size()));
    begin_ = 0;
    size_ = data.size();
}

} // namespace RNCryptor::internal
