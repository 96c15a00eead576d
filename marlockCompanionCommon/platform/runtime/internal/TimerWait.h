#pragma once

#include <QtGlobal>

#include <functional>
#include <limits>

namespace platform::internal {

// The longest a QTimer can be armed for at once: its interval is an int of milliseconds, and a
// longer one is narrowed (a 30-day wait turns negative, a 49.7-day one into a few milliseconds).
inline constexpr qint64 maximumTimerWaitMs = std::numeric_limits<int>::max();

// How long to arm a timer for a deadline `leftNs` away (leftNs > 0): rounded up to whole
// milliseconds, so it never ends early, and at most `capMs`. A longer wait is made of several.
//   timerWaitMs(1'000'001) == 2
qint64 timerWaitMs(qint64 leftNs, qint64 capMs = maximumTimerWaitMs);

// dispatchAfterMain() with each single timer wait at most `capMs`; the public one uses
// maximumTimerWaitMs. Tests use a small cap to see the re-arming without waiting weeks.
void dispatchAfterMain(qint64 nanoseconds, std::function<void()> work, qint64 capMs);

} // namespace platform::internal
