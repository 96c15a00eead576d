// From setTokenRecords() on device A to the same records in device B's manager, over a WebDAV
// collection on a local Apache httpd (HTTPS, Basic authentication), beside the folder backend over
// one folder in the same run; then what an idle store costs the server: the requests one store
// makes in a minute with the default poll interval, counted in the server's access log.
// Rounds of both backends alternate, so that load on the machine falls on both alike. Device B
// polls every 50 ms here: a round trip over WebDAV includes up to one poll interval of waiting.
//
//   scripts/build --bench
//   scripts/with-session build-bench/bench/sync/webdav_round_trip_bench
#include "tests/platform/storage/webdav/ApacheServer.h"
#include "tests/sync/SyncRecords.h"

#include "marlockCompanionCommon/keychain/FXKeychain.h"
#include "marlockCompanionCommon/platform/keychain/KeychainServices.h"
#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStore.h"
#include "marlockCompanionCommon/platform/storage/UserDefaults.h"
#include "tests/support/TestSupport.h"

#include <QUuid>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace {

constexpr int kRounds = 10;

qint64 nowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<qint64>(now.tv_sec) * 1'000'000'000LL + now.tv_nsec;
}

double medianMs(std::vector<qint64> samples) {
    std::sort(samples.begin(), samples.end());
    return static_cast<double>(samples[samples.size() / 2]) / 1e6;
}

webdavtest::ApacheServer& server() {
    static bool started = [] {
        qputenv("MARLOCK_APPLICATION_GROUP",
                "bench.group.webdav." + QUuid::createUuid().toString(QUuid::Id128).toUtf8());
        return webdavtest::ApacheServer::shared().start();
    }();
    if (!started)
        qFatal("Apache httpd did not start: %s", qPrintable(webdavtest::ApacheServer::shared().problem()));
    return webdavtest::ApacheServer::shared();
}

// One device: its own settings suite, keychain service and store, with sync on.
class Device {
public:
    explicit Device(std::unique_ptr<platform::UbiquitousKeyValueStoreBackend> backend)
        : store(std::move(backend)) {
        manager = std::make_unique<iCloudManager>(
            suite, std::make_unique<FXKeychain>(service, service, 0, platform::KeychainServices::shared()),
            &store);
        manager->enableiCloudWithPassword(QStringLiteral("bench-passcode"), true);
        manager->start();
    }
    ~Device() {
        manager.reset();
        (void)platform::KeychainServices::shared()->itemDelete(
            platform::KeychainQuery{platform::KeychainClass::genericPassword, service, std::nullopt});
    }
    const QString service = QStringLiteral("marlock-bench-") + QUuid::createUuid().toString(QUuid::Id128);
    platform::UserDefaults* const suite = platform::UserDefaults::suiteNamed(service);
    platform::UbiquitousKeyValueStore store;
    std::unique_ptr<iCloudManager> manager;
};

// A and B over one collection (WebDAV) or one folder.
struct Pair {
    std::unique_ptr<Device> a, b;
    qint64 roundTripNs(const iCloudManager::TokenRecords& records) {
        const QString expected = synctest::summary(records);
        const qint64 start = nowNs();
        a->manager->setTokenRecords(records);
        if (!testsupport::waitUntil([&] { return synctest::summary(b->manager->tokenRecords()) == expected; },
                                    std::chrono::seconds(60)))
            qFatal("device B never read device A's records");
        return nowNs() - start;
    }
};

std::unique_ptr<platform::UbiquitousKeyValueStoreBackend> webdavBackend(const QString& collection,
                                                                        std::chrono::milliseconds poll) {
    platform::WebdavConfiguration configuration = webdavtest::configurationFor(server(), collection);
    configuration.pollInterval = poll;
    return platform::makeWebdavUbiquitousKeyValueStoreBackend(configuration);
}

void BM_SetTokenRecordsToOtherDevice(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    const QString collection = webdavtest::freshCollection();
    Pair webdav{std::make_unique<Device>(webdavBackend(collection, std::chrono::milliseconds(50))),
                std::make_unique<Device>(webdavBackend(collection, std::chrono::milliseconds(50)))};
    testsupport::ScopedIsolatedHome home;
    const QString folder = home.path() + QStringLiteral("/cloud");
    Pair local{std::make_unique<Device>(platform::makeFolderUbiquitousKeyValueStoreBackend(folder, true)),
               std::make_unique<Device>(platform::makeFolderUbiquitousKeyValueStoreBackend(folder, true))};
    std::vector<qint64> overWebdav, overFolder;
    int round = 0;
    for (auto _ : state) {
        const auto records = synctest::sampleRecords(count, 20, QString::number(round));
        if (round++ % 2) {
            overFolder.push_back(local.roundTripNs(records));
            overWebdav.push_back(webdav.roundTripNs(records));
        } else {
            overWebdav.push_back(webdav.roundTripNs(records));
            overFolder.push_back(local.roundTripNs(records));
        }
        state.SetIterationTime(static_cast<double>(overWebdav.back()) / 1e9);
        // Let both settle (read-backs of tags, folder events) before the next round.
        testsupport::spinEventLoop(std::chrono::milliseconds(1200));
    }
    const double dav = medianMs(overWebdav), dir = medianMs(overFolder);
    state.counters["webdav_ms"] = dav;
    state.counters["folder_ms"] = dir;
    state.counters["ratio"] = dav / dir;
    std::printf("\n%5d tokens, median of %zu rounds: A -> B over WebDAV %.1f ms, over a folder %.1f ms, "
                "ratio %.2f\n",
                count, overWebdav.size(), dav, dir, dav / dir);
}
BENCHMARK(BM_SetTokenRecordsToOtherDevice)
    ->Arg(10)
    ->Arg(100)
    ->Arg(1000)
    ->Iterations(kRounds)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// The requests of one idle store in one minute with the default poll interval, from the server's
// log, beside the one listing it makes on start.
void BM_RequestsPerIdleMinute(benchmark::State& state) {
    for (auto _ : state) {
        platform::UbiquitousKeyValueStore store(
            webdavBackend(webdavtest::freshCollection(), platform::WebdavConfiguration().pollInterval));
        testsupport::spinEventLoop(std::chrono::seconds(2)); // the start: listing, collection made
        const int before = server().requestCount();
        testsupport::spinEventLoop(std::chrono::seconds(60));
        const int requests = server().requestCount() - before;
        state.counters["requests_per_idle_minute"] = requests;
        std::printf("\nidle store, default poll interval: %d requests in 60 s\n", requests);
    }
}
BENCHMARK(BM_RequestsPerIdleMinute)->Iterations(1)->Unit(benchmark::kSecond);

} // namespace
