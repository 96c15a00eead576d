// One-way latency of a cross-process notification: from the post in this process to the
// observer's code running in another, against a bare QtDBus signal between two processes with
// no library code in between (the baseline). Both are measured in the same run, round by round
// in alternating order, so that load on the machine falls on both alike.
//
//   scripts/build --bench
//   scripts/with-session build-bench/bench/notifications/notifications_latency_bench
#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"
#include "marlockCompanionCommon/platform/runtime/Identity.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QProcess>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <memory>
#include <vector>

namespace {

constexpr int kPosts = 1000;
constexpr int kWarmUp = 50;

qint64 nowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<qint64>(now.tv_sec) * 1'000'000'000LL + now.tv_nsec;
}

// A receiver process; each line it prints is the time its observer ran.
class Receiver {
public:
    Receiver(const QString& mode, const QString& name) {
        process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process_.start(QStringLiteral(LATENCY_RECEIVER), {mode, name});
        if (readLine() != "ready")
            qFatal("the %s receiver did not start", qPrintable(mode));
    }
    ~Receiver() {
        process_.kill();
        process_.waitForFinished();
    }
    QByteArray readLine() {
        while (!process_.canReadLine())
            if (!process_.waitForReadyRead(5000))
                qFatal("a receiver stopped answering");
        return process_.readLine().trimmed();
    }

private:
    QProcess process_;
};

double percentileUs(std::vector<qint64> samples, double fraction) {
    std::sort(samples.begin(), samples.end());
    const auto index = static_cast<size_t>(fraction * static_cast<double>(samples.size() - 1) + 0.5);
    return static_cast<double>(samples.at(index)) / 1000.0;
}

void BM_NotificationOneWayLatency(benchmark::State& state) {
    const QString bareName = QStringLiteral("bench.latency.baseline");
    const QString libraryName = QStringLiteral("bench.latency.library");
    const QString bareFullName = platform::Identity::bundleIdentifier() + QLatin1Char('.') + bareName;
    Receiver bareReceiver(QStringLiteral("baseline"), bareFullName);
    Receiver libraryReceiver(QStringLiteral("library"), libraryName);
    auto center = PLXDarwinNotificationCenter::otpDarwinNotificationCenter();
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        state.SkipWithError("no session bus: run inside scripts/with-session");
        return;
    }

    auto bareRound = [&] {
        QDBusMessage signal =
            QDBusMessage::createSignal("/org/marlock/Notify", "org.marlock.Notify", "Posted");
        signal << bareFullName;
        const qint64 sent = nowNs();
        bus.send(signal);
        return bareReceiver.readLine().toLongLong() - sent;
    };
    auto libraryRound = [&] {
        const qint64 sent = nowNs();
        center->postNotificationName(libraryName);
        return libraryReceiver.readLine().toLongLong() - sent;
    };

    for (int i = 0; i < kWarmUp; ++i) {
        bareRound();
        libraryRound();
    }
    std::vector<qint64> bare, library;
    bare.reserve(kPosts);
    library.reserve(kPosts);
    int round = 0;
    for (auto _ : state) {
        if (round++ % 2) {
            bare.push_back(bareRound());
            library.push_back(libraryRound());
        } else {
            library.push_back(libraryRound());
            bare.push_back(bareRound());
        }
        state.SetIterationTime(static_cast<double>(library.back()) / 1e9);
    }

    const double bareP50 = percentileUs(bare, 0.50), bareP99 = percentileUs(bare, 0.99);
    const double libP50 = percentileUs(library, 0.50), libP99 = percentileUs(library, 0.99);
    state.counters["baseline_p50_us"] = bareP50;
    state.counters["baseline_p99_us"] = bareP99;
    state.counters["library_p50_us"] = libP50;
    state.counters["library_p99_us"] = libP99;
    state.counters["p50_ratio"] = libP50 / bareP50;
    std::printf("\nOne-way latency over %zu posts each (µs):\n", library.size());
    std::printf("  baseline (bare QtDBus signal)       p50 %8.1f   p99 %8.1f\n", bareP50, bareP99);
    std::printf("  PLXDarwinNotificationCenter         p50 %8.1f   p99 %8.1f\n", libP50, libP99);
    std::printf("  ratio library/baseline              p50 %8.2f   p99 %8.2f   (target p50 <= 1.20)\n\n",
                libP50 / bareP50, libP99 / bareP99);
}
BENCHMARK(BM_NotificationOneWayLatency)->Iterations(kPosts)->UseManualTime()->Unit(benchmark::kMicrosecond);

} // namespace
