#pragma once

#include "marlockCommon/TimeSource.h"

#include <atomic>

// Replaces the process's wall clock with one the test sets, and counts how often it is read.
class FakeTime {
public:
    explicit FakeTime(double now)
        : now_(now) {
        setTimeIntervalSince1970Source([this] {
            reads_.fetch_add(1);
            return now_.load();
        });
    }
    ~FakeTime() { setTimeIntervalSince1970Source({}); }
    FakeTime(const FakeTime&) = delete;
    FakeTime& operator=(const FakeTime&) = delete;

    void set(double now) { now_.store(now); }
    int reads() const { return reads_.load(); }

private:
    std::atomic<double> now_;
    std::atomic<int> reads_{0};
};
