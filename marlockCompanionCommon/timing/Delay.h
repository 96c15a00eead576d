#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QtGlobal>

#include <functional>

// Runs `closure` once on the main thread after `seconds`, counted on the monotonic clock from
// this call; never synchronously, even for 0. A negative delay runs at the next pass of the main
// event loop. The delay is rounded toward zero to whole nanoseconds, and the closure is kept
// until it has run.
//
// A delay whose nanosecond count is not finite or does not fit a signed 64-bit integer (beyond
// about ±292 years) stops the process: it is not clamped.
//
//   delay(0.25, [label] { label->hide(); });
MCC_EXPORT void delay(double seconds, std::function<void()> closure);

// The nanoseconds delay() waits for `seconds`, stopping the process in the same cases.
//   delayNanoseconds(1.0000000009) == 1'000'000'000
MCC_EXPORT qint64 delayNanoseconds(double seconds);
