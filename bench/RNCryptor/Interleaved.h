#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <string>

namespace bench {

// How a side's time is reported: nanoseconds per `count` things per iteration, with `suffix`
// after the side's name ("library_ns/B").
struct Unit {
    const char* suffix;
    double perIteration;
    double scale = 1; // applied to nanoseconds: 1e-3 gives microseconds
};

inline const Unit perCall{"_us", 1, 1e-3};
inline Unit perByte(int64_t bytes) {
    return {"_ns/B", double(bytes)};
}

// This thread's CPU time: what the work cost, without the time other processes held the core.
// On a shared machine wall-clock time mostly measures the neighbours.
inline std::chrono::nanoseconds threadCpuTime() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

// One side's work, kept out of line so that an instruction count (valgrind --tool=callgrind,
// repeatable where timings on a shared machine are not) shows each side as a function of its own:
// the inclusive cost of runSide<…{lambda()#1}> is the first side's, of {lambda()#2} the second's.
template <typename Side> [[gnu::noinline]] void runSide(Side& side) {
    side();
}

// Runs `first` and then `second` once per iteration, each timed on its own in thread CPU time, so
// that what load from elsewhere still costs (caches, frequency) weighs on both alike, and
// reports both in `unit` with their ratio (first / second). The benchmark's own time is the first
// side's (register it with UseManualTime()).
template <typename First, typename Second>
void interleaved(benchmark::State& state, const Unit& unit, First&& first, Second&& second,
                 const char* firstName = "library", const char* secondName = "openssl") {
    std::chrono::nanoseconds firstTime{};
    std::chrono::nanoseconds secondTime{};
    // One untimed run of each side first: one-time set-up (the algorithm lookups each side does
    // once per process) is not what is measured.
    first();
    second();
    for (auto _ : state) {
        const std::chrono::nanoseconds start = threadCpuTime();
        runSide(first);
        const std::chrono::nanoseconds middle = threadCpuTime();
        runSide(second);
        const std::chrono::nanoseconds end = threadCpuTime();
        firstTime += middle - start;
        secondTime += end - middle;
        state.SetIterationTime(std::chrono::duration<double>(middle - start).count());
    }
    const double divisor = unit.perIteration * double(state.iterations()) / unit.scale;
    state.counters[firstName + std::string(unit.suffix)] = double(firstTime.count()) / divisor;
    state.counters[secondName + std::string(unit.suffix)] = double(secondTime.count()) / divisor;
    state.counters["ratio"] = double(firstTime.count()) / double(secondTime.count());
}

} // namespace bench
