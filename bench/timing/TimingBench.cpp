// The cost of re-arming a Clock (time read, boundary arithmetic, a fresh one-shot timer
// armed on the main loop), beside its baseline: starting a bare precise QTimer.
#include "marlockCompanionCommon/timing/Clock.h"
#include "marlockCompanionCommon/timing/Delay.h"
#include "marlockCompanionCommon/timing/RunLoopTimer.h"

#include <QTimer>

#include <benchmark/benchmark.h>

static void BM_QTimerStart_Baseline(benchmark::State& state) {
    QTimer timer;
    timer.setTimerType(Qt::PreciseTimer);
    timer.setSingleShot(true);
    for (auto _ : state)
        timer.start(std::chrono::milliseconds(1000));
}
BENCHMARK(BM_QTimerStart_Baseline);

// The re-alignment path: invalidate the armed timer, read the time, arm the next boundary. (A
// bare scheduleNextFire() would leave every replaced timer armed.)
static void BM_ClockRealign(benchmark::State& state) {
    Clock clock(30);
    clock.scheduleNextFire();
    for (auto _ : state)
        clock.significantTimeChangeDidOccur();
    clock.refreshTimer()->invalidate();
}
BENCHMARK(BM_ClockRealign);

static void BM_DelayNanoseconds(benchmark::State& state) {
    double seconds = 1.0000000009;
    for (auto _ : state) {
        benchmark::DoNotOptimize(seconds);
        benchmark::DoNotOptimize(delayNanoseconds(seconds));
    }
}
BENCHMARK(BM_DelayNanoseconds);
