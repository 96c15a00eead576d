// The MAC comparison beside itself: inputs that differ in their first byte against inputs that
// differ in their last, alternately and timed each on its own. An early exit makes the ratio
// (first-byte / last-byte) fall well below 1 as the inputs grow; a comparison that reads every
// byte keeps it near 1 at every size. 32 bytes is the container's MAC.
#include "bench/RNCryptor/Interleaved.h"
#include "marlockCompanionCommon/RNCryptor/ConsistentTime_p.h"

#include <QByteArray>

namespace {

constexpr int comparisons = 1000;

void ConsistentTimeCompare(benchmark::State& state) {
    const qsizetype size = state.range(0);
    QByteArray trusted(size, '\0');
    for (qsizetype i = 0; i < size; ++i)
        trusted[i] = char(i * 73 + 5);
    QByteArray firstDiffers = trusted;
    firstDiffers[0] = char(firstDiffers[0] ^ 1);
    QByteArray lastDiffers = trusted;
    lastDiffers[size - 1] = char(lastDiffers[size - 1] ^ 1);
    auto comparing = [&](const QByteArray& untrusted) {
        return [&] {
            for (int i = 0; i < comparisons; ++i)
                benchmark::DoNotOptimize(RNCryptor::internal::isEqualInConsistentTime(trusted, untrusted));
        };
    };
    bench::interleaved(state, {"_ns", double(comparisons)}, comparing(firstDiffers), comparing(lastDiffers),
                       "first_byte", "last_byte");
}

} // namespace

BENCHMARK(ConsistentTimeCompare)->Arg(32)->Arg(4096)->Unit(benchmark::kMicrosecond)->UseManualTime();
