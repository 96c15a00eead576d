#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QtGlobal>

#include <atomic>
#include <limits>

namespace acquire_relinquish {
// Stops the process: a holder count went past the range of its integer. Exported because the
// templates below are instantiated in the host's own code.
[[noreturn]] MCC_EXPORT void countOutOfRange(const char* operation);
} // namespace acquire_relinquish

// Something that holders take (acquire) and give back (relinquish), counting its holders.
template <typename T> class AcquireRelinquishProtocol {
public:
    virtual ~AcquireRelinquishProtocol() = default;
    virtual T acquire() = 0;
    virtual void relinquish() = 0;
    virtual qint64 acquireCount() const = 0;
};

// An immutable value with a count of the holders currently using it: the unit of sharing in the
// glyph image cache (NumberScrollLayerImageCache).
//
// A new box counts its maker as the first holder (count 1), so the maker relinquishes it once
// when done. The count is bookkeeping only: at zero nothing is freed and nobody is told; the
// cache's evict() later drops entries whose count is below 1. A count may even go negative.
// acquire() and relinquish() are safe from any thread and never lose a change; a count that
// would leave the 64-bit range stops the process.
//
//   auto box = std::make_shared<AcquireRelinquishBox<graphics::Image>>(image);   // count 1
//   graphics::Image shown = box->acquire();                                      // count 2
//   box->relinquish();                                                           // count 1
template <typename T> class AcquireRelinquishBox final : public AcquireRelinquishProtocol<T> {
public:
    explicit AcquireRelinquishBox(T value)
        : value_(std::move(value)) {}
    AcquireRelinquishBox(const AcquireRelinquishBox&) = delete;
    AcquireRelinquishBox& operator=(const AcquireRelinquishBox&) = delete;

    // Counts one more holder and returns the value (the same object each time).
    T acquire() override {
        qint64 count = acquireCount_.load();
        do {
            if (count == std::numeric_limits<qint64>::max())
                acquire_relinquish::countOutOfRange("acquire");
        } while (!acquireCount_.compare_exchange_weak(count, count + 1));
        return value_;
    }

    // Counts one holder less.
    void relinquish() override {
        qint64 count = acquireCount_.load();
        do {
            if (count == std::numeric_limits<qint64>::min())
                acquire_relinquish::countOutOfRange("relinquish");
        } while (!acquireCount_.compare_exchange_weak(count, count - 1));
    }

    qint64 acquireCount() const override { return acquireCount_.load(); }

    // The value, without counting a holder.
    const T& value() const { return value_; }

private:
    std::atomic<qint64> acquireCount_{1};
    const T value_;
};
