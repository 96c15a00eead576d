// From setTokenRecords() in this process to tokenRecordsDidChangeExternallyNotification in another
// process of the same machine (sharing settings, keychain and cloud folder), against the baseline
// of the same work done directly in one process with no library code around it: archive, encrypt
// (two key derivations), write the file atomically, read it back, decrypt (two more), unarchive.
// Rounds of both alternate, so that load on the machine falls on both alike.
//
//   scripts/build --bench
//   scripts/with-session build-bench/bench/sync/sync_latency_bench
#include "tests/sync/SyncRecords.h"

#include "marlockCommon/OTPToken.h"
#include "marlockCompanionCommon/RNCryptor/RNCryptor.h"
#include "marlockCompanionCommon/keychain/KeyedArchiverAdditions.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <QUuid>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int kRounds = 20;

qint64 nowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<qint64>(now.tv_sec) * 1'000'000'000LL + now.tv_nsec;
}

// One settings suite, keychain identity and cloud folder for this run, shared with the receiver.
const QTemporaryDir& scratch() {
    static const QTemporaryDir dir; // removed at exit
    static const bool configured = [] {
        const QByteArray unique = QUuid::createUuid().toString(QUuid::Id128).toUtf8();
        qputenv("MARLOCK_BUNDLE_IDENTIFIER", "bench.sync." + unique);
        qputenv("MARLOCK_APPLICATION_GROUP", "bench.group.sync." + unique);
        qputenv("MARLOCK_KEYCHAIN_IDENTIFIER", "bench.keychain.sync." + unique);
        QDir().mkpath(dir.path() + "/cloud");
        qputenv("MARLOCK_CLOUD_FOLDER", (dir.path() + "/cloud").toUtf8());
        return true;
    }();
    (void)configured;
    return dir;
}

class Receiver {
public:
    Receiver() {
        process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process_.start(QStringLiteral(SYNC_RECEIVER), {});
        // Starting, it may first report the records already in the store.
        while (readLine() != "ready") {
        }
    }
    ~Receiver() {
        process_.kill();
        process_.waitForFinished();
    }
    // The time the receiver read the records summarised as `summary`; earlier reads are skipped.
    qint64 timeOf(const QString& summary) {
        for (;;) {
            const QList<QByteArray> words = readLine().split(' ');
            if (words.value(1) == summary.toUtf8())
                return words.value(0).toLongLong();
        }
    }

private:
    QByteArray readLine() {
        while (!process_.canReadLine())
            if (!process_.waitForReadyRead(10000))
                qFatal("the receiver stopped answering");
        return process_.readLine().trimmed();
    }
    QProcess process_;
};

// The baseline: what the two processes do between them, done directly.
qint64 directRoundNs(const iCloudManager::TokenRecords& records, const QString& passcode,
                     const QString& path) {
    const qint64 start = nowNs();
    QVariantList tokens;
    for (const auto& record : records)
        tokens.append(QVariant::fromValue(std::shared_ptr<marlockCommon::SecureCoding>(record.toOTPToken())));
    const QByteArray container =
        RNCryptor::encrypt(jr_archivedDataWithRootObject(tokens, true).value(), passcode);
    const QByteArray temporary = QFile::encodeName(path + ".tmp");
    const int fd = ::open(temporary.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0 || ::write(fd, container.constData(), size_t(container.size())) != container.size() ||
        ::fsync(fd) != 0 || ::close(fd) != 0 ||
        ::rename(temporary.constData(), QFile::encodeName(path).constData()) != 0)
        qFatal("baseline write failed");
    const int folder =
        ::open(QFile::encodeName(QFileInfo(path).absolutePath()).constData(), O_RDONLY | O_DIRECTORY);
    ::fsync(folder);
    ::close(folder);
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    const QVariant root =
        jr_unarchiveData(RNCryptor::decrypt(file.readAll(), passcode), true, {QStringLiteral("OTPToken")})
            .value();
    iCloudManager::TokenRecords back;
    for (const QVariant& element : root.toList())
        back.append(std::dynamic_pointer_cast<marlockCommon::OTPToken>(
                        element.value<std::shared_ptr<marlockCommon::SecureCoding>>())
                        ->toTokenRecord());
    if (back.size() != records.size())
        qFatal("baseline read back the wrong records");
    return nowNs() - start;
}

double medianMs(std::vector<qint64> samples) {
    std::sort(samples.begin(), samples.end());
    return static_cast<double>(samples[samples.size() / 2]) / 1e6;
}

void BM_SetTokenRecordsToOtherProcess(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    const QString baselinePath = scratch().path() + QStringLiteral("/baseline-tokens");
    iCloudManager* manager = iCloudManager::sharedManager();
    manager->start();
    manager->enableiCloudWithPassword(QStringLiteral("bench-passcode"), true);
    Receiver receiver;
    std::vector<qint64> library, direct;
    int round = 0;
    for (auto _ : state) {
        const auto records = synctest::sampleRecords(count, 20, QString::number(round));
        const auto libraryRound = [&] {
            const qint64 start = nowNs();
            manager->setTokenRecords(records);
            library.push_back(receiver.timeOf(synctest::summary(records)) - start);
        };
        const auto directRound = [&] {
            direct.push_back(directRoundNs(records, QStringLiteral("bench-passcode"), baselinePath));
        };
        if (round++ % 2) {
            directRound();
            libraryRound();
        } else {
            libraryRound();
            directRound();
        }
        state.SetIterationTime(static_cast<double>(library.back()) / 1e9);
        // The receiver reads once more when its folder watcher reports the file: let it finish.
        QThread::msleep(40);
        QCoreApplication::processEvents();
    }
    const double lib = medianMs(library), base = medianMs(direct);
    state.counters["library_ms"] = lib;
    state.counters["baseline_ms"] = base;
    state.counters["ratio"] = lib / base;
    std::printf(
        "\n%5d tokens, median of %zu rounds: setTokenRecords -> other process %.2f ms, direct baseline "
        "%.2f ms, ratio %.2f (target <= 1.20)\n",
        count, library.size(), lib, base, lib / base);
    (void)manager->disableiCloud(nullptr);
}
BENCHMARK(BM_SetTokenRecordsToOtherProcess)
    ->Arg(10)
    ->Arg(100)
    ->Arg(1000)
    ->Iterations(kRounds)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

} // namespace
