// Measures how the timing facilities behave against the wall clock, with a baseline measured in
// the same run:
//
//   timing_latency clock [ticks=200] [period=1]
//       Clock tick lateness (boundary → onTick), beside a thread that sleeps with
//       clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME) to the same boundaries (the kernel's floor).
//   timing_latency displaylink [seconds=5]
//       OTPDisplayLink callback rate and interval jitter, beside a QTimer (PreciseTimer) on the
//       main thread at the nearest whole-millisecond interval.
//
// Run it on an idle machine; it prints one line per series.
#include "marlockCommon/TimeSource.h"
#include "marlockCompanionCommon/timing/Clock.h"
#include "marlockCompanionCommon/timing/OTPDisplayLink.h"

#include <QGuiApplication>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>
#include <numeric>
#include <thread>
#include <vector>

namespace {

double percentile(std::vector<double> values, double p) {
    if (values.empty())
        return NAN;
    std::sort(values.begin(), values.end());
    const auto index = static_cast<size_t>(std::ceil(p / 100.0 * values.size())) - 1;
    return values[std::min(index, values.size() - 1)];
}

void printSeries(const char* label, const std::vector<double>& valuesMs) {
    if (valuesMs.empty()) {
        std::printf("%-44s no samples\n", label);
        return;
    }
    const double mean = std::accumulate(valuesMs.begin(), valuesMs.end(), 0.0) / valuesMs.size();
    double var = 0;
    for (double v : valuesMs)
        var += (v - mean) * (v - mean);
    std::printf("%-44s n=%zu  p50=%.3f ms  p99=%.3f ms  min=%.3f  max=%.3f  mean=%.3f  sd=%.3f\n", label,
                valuesMs.size(), percentile(valuesMs, 50), percentile(valuesMs, 99),
                *std::min_element(valuesMs.begin(), valuesMs.end()),
                *std::max_element(valuesMs.begin(), valuesMs.end()), mean, std::sqrt(var / valuesMs.size()));
    std::fflush(stdout);
}

int measureClock(QGuiApplication& app, int ticks, double period) {
    std::vector<double> lateness;
    std::vector<long long> boundaries;
    Clock clock(period, [&](double) {
        const double now = timeIntervalSince1970();
        const double boundary = std::floor(now / period) * period;
        lateness.push_back((now - boundary) * 1000.0);
        boundaries.push_back(std::llround(boundary / period));
        if (static_cast<int>(lateness.size()) >= ticks)
            app.quit();
    });

    std::atomic<bool> done{false};
    std::vector<double> baseline;
    std::thread sleeper([&] {
        while (!done) {
            const double next = std::floor(timeIntervalSince1970() / period + 1.0) * period;
            timespec at{static_cast<time_t>(next),
                        static_cast<long>(std::llround((next - std::floor(next)) * 1e9))};
            clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &at, nullptr);
            if (done)
                break;
            baseline.push_back((timeIntervalSince1970() - next) * 1000.0);
        }
    });

    clock.start();
    app.exec();
    clock.stop();
    done = true;
    sleeper.join();

    int doubled = 0, missed = 0;
    for (size_t i = 1; i < boundaries.size(); ++i) {
        doubled += boundaries[i] == boundaries[i - 1];
        missed += std::max(0LL, boundaries[i] - boundaries[i - 1] - 1);
    }
    std::printf("period %.3f s, %d ticks, %d double ticks, %d missed boundaries\n", period, ticks, doubled,
                missed);
    printSeries("Clock tick lateness (boundary -> onTick)", lateness);
    printSeries("baseline clock_nanosleep(REALTIME, ABSTIME)", baseline);
    return 0;
}

std::vector<double> intervalsMs(const std::vector<qint64>& stampsNs) {
    std::vector<double> out;
    for (size_t i = 1; i < stampsNs.size(); ++i)
        out.push_back((stampsNs[i] - stampsNs[i - 1]) / 1e6);
    return out;
}

qint64 steadyNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

int measureDisplayLink(QGuiApplication& app, double seconds) {
    // Shared with the link's thread: a call may still be finishing after stop() returns.
    struct Stamps {
        std::mutex mutex;
        std::vector<qint64> values;
    };
    auto shared = std::make_shared<Stamps>();
    std::vector<qint64> timerStamps;
    shared->values.reserve(10000);
    timerStamps.reserve(10000);
    OTPDisplayLink link;
    link.setCallback([shared] {
        const qint64 now = steadyNs();
        std::lock_guard lock(shared->mutex);
        shared->values.push_back(now);
    });
    const double rate = link.displayLink()->nominalFramesPerSecond();

    QTimer baseline;
    baseline.setTimerType(Qt::PreciseTimer);
    baseline.setInterval(std::chrono::milliseconds(std::lround(1000.0 / rate)));
    QObject::connect(&baseline, &QTimer::timeout, [&] { timerStamps.push_back(steadyNs()); });

    const qint64 begin = steadyNs();
    link.start();
    baseline.start();
    QTimer::singleShot(std::chrono::milliseconds(std::lround(seconds * 1000)), Qt::PreciseTimer, &app,
                       &QCoreApplication::quit);
    app.exec();
    link.stop();
    baseline.stop();
    const double elapsed = (steadyNs() - begin) / 1e9;
    std::vector<qint64> linkStamps;
    {
        std::lock_guard lock(shared->mutex);
        linkStamps = shared->values;
    }

    std::printf("nominal %.3f Hz over %.2f s\n", rate, elapsed);
    std::printf("OTPDisplayLink: %zu callbacks, %.3f per second\n", linkStamps.size(),
                linkStamps.size() / elapsed);
    printSeries("OTPDisplayLink interval", intervalsMs(linkStamps));
    std::vector<double> deviation;
    for (double v : intervalsMs(linkStamps))
        deviation.push_back(std::abs(v - 1000.0 / rate));
    printSeries("OTPDisplayLink |interval - nominal|", deviation);
    std::printf("baseline QTimer %lld ms: %zu callbacks, %.3f per second\n",
                static_cast<long long>(baseline.interval()), timerStamps.size(),
                timerStamps.size() / elapsed);
    printSeries("baseline QTimer interval", intervalsMs(timerStamps));
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();
    const QString mode = args.value(1);
    if (mode == QLatin1String("clock"))
        return measureClock(app, args.value(2, QStringLiteral("200")).toInt(),
                            args.value(3, QStringLiteral("1")).toDouble());
    if (mode == QLatin1String("displaylink"))
        return measureDisplayLink(app, args.value(2, QStringLiteral("5")).toDouble());
    std::fprintf(stderr, "usage: timing_latency clock [ticks] [period] | displaylink [seconds]\n");
    return 2;
}
