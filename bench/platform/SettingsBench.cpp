// What saving settings costs, each beside its baseline, with the ratios printed at the end:
//  - taking and releasing the suite's kernel lock (flock), beside QLockFile, the lock file it
//    replaced;
//  - a save of one changed key (lock, re-read, merge, atomic replace with fsync), beside writing
//    the same bytes atomically with QSaveFile and fsync and nothing else.
//
//   scripts/build --bench && build-bench/bench/platform/settings_bench
#include "marlockCompanionCommon/platform/storage/PropertyList.h"
#include "marlockCompanionCommon/platform/storage/UserDefaults.h"
#include "marlockCompanionCommon/platform/storage/internal/FileLock.h"

#include <QCoreApplication>
#include <QLockFile>
#include <QSaveFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>

#include <unistd.h>

namespace {

QTemporaryDir* folder;

QString pathOf(const char* name) {
    return folder->filePath(QString::fromLatin1(name));
}

void lockBaseline(benchmark::State& state) {
    QLockFile lock(pathOf("baseline.lock"));
    for (auto _ : state) {
        if (!lock.tryLock(1000))
            state.SkipWithError("QLockFile failed");
        lock.unlock();
    }
}

void lockKernel(benchmark::State& state) {
    platform::internal::FileLock lock(pathOf("kernel.lock"));
    for (auto _ : state) {
        if (!lock.tryLock())
            state.SkipWithError("FileLock failed");
        lock.unlock();
    }
}

// A suite as the app and widget keep it: the three display preferences and the sync settings.
QVariantMap typicalSuite() {
    return {{"separatorString", " "},
            {"changeColorWhenCodeWillChange", true},
            {"animateCodeChanges", true},
            {"iCloudEnabled", true},
            {"iCloudAskForPasscodeEachTime", false},
            {"iCloudSyncLastError", qint64(0)}};
}

void saveBaseline(benchmark::State& state) {
    QVariantMap values = typicalSuite();
    qint64 i = 0;
    for (auto _ : state) {
        values.insert("iCloudSyncLastError", ++i);
        const QByteArray bytes =
            *platform::PropertyList::write(values, platform::PropertyList::Format::Binary);
        QSaveFile file(pathOf("baseline.plist"));
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.flush() ||
            ::fsync(file.handle()) != 0 || !file.commit())
            state.SkipWithError("QSaveFile failed");
    }
}

void saveSuite(benchmark::State& state) {
    platform::UserDefaults* suite = platform::UserDefaults::suiteNamed(QStringLiteral("bench.settings"));
    const QVariantMap values = typicalSuite();
    for (auto it = values.begin(); it != values.end(); ++it)
        suite->setObject(it.value(), it.key());
    qint64 i = 0;
    for (auto _ : state) {
        suite->setInteger(++i, QStringLiteral("iCloudSyncLastError"));
        if (!suite->synchronize())
            state.SkipWithError("synchronize() failed");
    }
}

// Prints the usual table, then each measurement over its baseline.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                times_[run.run_name.function_name] = run.GetAdjustedRealTime();
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        for (const auto& [measured, baseline] :
             {std::pair{"lockKernel", "lockBaseline"}, std::pair{"saveSuite", "saveBaseline"}})
            if (times_.count(measured) && times_.count(baseline))
                std::printf("%s / %s: %.2f\n", measured, baseline, times_[measured] / times_[baseline]);
    }

private:
    std::map<std::string, double> times_;
};

} // namespace

BENCHMARK(lockBaseline)->Unit(benchmark::kMicrosecond);
BENCHMARK(lockKernel)->Unit(benchmark::kMicrosecond);
BENCHMARK(saveBaseline)->Unit(benchmark::kMicrosecond);
BENCHMARK(saveSuite)->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir scratch;
    folder = &scratch;
    // The suite's file goes into the scratch folder, never into the user's settings.
    qputenv("XDG_CONFIG_HOME", scratch.path().toUtf8());
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
