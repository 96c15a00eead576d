// Many threads registering, removing and posting at once, on both services. Also run in the
// sanitizer build (scripts/build --sanitize).
#include "tests/notifications/NotificationRecorder.h"
#include "tests/notifications/NotificationTestSupport.h"
#include "tests/support/TestSupport.h"

#include <atomic>
#include <thread>
#include <vector>

using namespace notificationtests;
using namespace std::chrono_literals;

namespace {

using NotificationsConcurrencyTest = CenterOnServiceTest;

TEST_P(NotificationsConcurrencyTest, ThreadsRegisteringRemovingAndPostingLoseNoRegistration) {
    constexpr int threads = 6, rounds = 60;
    QStringList churn;
    for (int i = 0; i < 4; ++i)
        churn << uniqueName(QStringLiteral("churn%1").arg(i));
    // Lives on the main thread for the whole test; workers only register and remove it.
    NotificationRecorder sharedRecorder;
    struct Kept {
        QString name;
        PLXNotificationCenter::ObserverToken token;
        std::shared_ptr<std::atomic<int>> calls = std::make_shared<std::atomic<int>>(0);
    };
    std::vector<std::vector<Kept>> kept(threads);
    // Blocks still queued when the test ends must not touch its stack: they hold their counters.
    auto churnCalls = std::make_shared<std::atomic<int>>(0);
    std::atomic<int> finished = 0;

    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            for (int i = 0; i < rounds; ++i) {
                const QString& name = churn.at((t + i) % churn.size());
                auto token =
                    center.addObserverForName(name, nullptr, [churnCalls](const auto&) { ++*churnCalls; });
                center.addObserver(&sharedRecorder, "first", name);
                center.postNotificationName(name);
                if (i % 2)
                    center.removeObserver(token.get());
                else
                    center.removeObserver(token.get(), name);
                center.removeObserver(&sharedRecorder, name);
                if (i % 10 == 0) {
                    Kept k{uniqueName(QStringLiteral("kept%1.%2").arg(t).arg(i)), nullptr};
                    k.token =
                        center.addObserverForName(k.name, nullptr, [c = k.calls](const auto&) { ++*c; });
                    kept[t].push_back(std::move(k));
                }
            }
            ++finished;
        });
    }
    // The main thread keeps delivering while the workers run.
    EXPECT_TRUE(testsupport::waitUntil([&] { return finished == threads; }, 120s));
    for (auto& worker : workers)
        worker.join();
    testsupport::spinEventLoop(200ms);

    std::vector<Kept> all;
    QStringList keptNames;
    for (const auto& perThread : kept)
        for (const Kept& k : perThread) {
            all.push_back(k);
            keptNames << k.name;
        }
    keptNames.sort();
    EXPECT_EQ(center.registeredNotificationNames(), keptNames)
        << "every churned name is gone, every kept one is there";
    EXPECT_EQ(service->observedNames(&center), keptNames);
    EXPECT_EQ(center.retainedObserverCount(), keptNames.size());

    for (const QString& name : keptNames)
        center.postNotificationName(name);
    EXPECT_TRUE(testsupport::waitUntil([&] {
        return std::all_of(all.begin(), all.end(), [](const Kept& k) { return *k.calls == 1; });
    })) << "each kept registration hears its one post";
    for (const Kept& k : all)
        center.removeObserver(k.token.get());
    EXPECT_TRUE(center.registeredNotificationNames().isEmpty());
}

TEST(PLXDarwinNotificationCenterSingleton, DefaultCenterIsCreatedOnceAcrossThreads) {
    std::vector<PLXDarwinNotificationCenter*> seen(8, nullptr);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); ++i)
        threads.emplace_back([&, i] { seen[i] = PLXDarwinNotificationCenter::defaultCenter().get(); });
    for (auto& thread : threads)
        thread.join();
    for (PLXDarwinNotificationCenter* center : seen)
        EXPECT_EQ(center, PLXDarwinNotificationCenter::defaultCenter().get());
}

INSTANTIATE_ON_BOTH_SERVICES(NotificationsConcurrencyTest);

} // namespace
