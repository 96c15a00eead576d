// How long a passcode takes to store and read back through FXKeychain: the Secret Service
// (gnome-keyring over D-Bus) against the in-memory backend, which shows FXKeychain's own cost.
//
//   scripts/build --bench && scripts/with-session build-bench/bench/keychain/bench_keychain
#include "marlockCommon/OTPToken.h"
#include "marlockCompanionCommon/keychain/FXKeychain.h"
#include "marlockCompanionCommon/keychain/KeyedArchiverAdditions.h"
#include "marlockCompanionCommon/platform/keychain/KeychainServices.h"

#include <benchmark/benchmark.h>

namespace {

using platform::KeychainServices;

std::shared_ptr<KeychainServices> servicesFor(bool secretService) {
    return std::make_shared<KeychainServices>(secretService ? platform::makeSecretServiceKeychainBackend()
                                                            : platform::makeMemoryKeychainBackend());
}

// Stores a passcode (an update of an existing item, as every save after the first is) and reads it.
void storeAndRead(benchmark::State& state, bool secretService) {
    FXKeychain keychain(QStringLiteral("bench-keychain"), std::nullopt, 0, servicesFor(secretService));
    const QString key = QStringLiteral("iCloudDecryptionPassword");
    if (!keychain.setObject(QStringLiteral("warm-up"), key))
        state.SkipWithError("the keychain is not available");
    int i = 0;
    for (auto _ : state) {
        const QString passcode = QStringLiteral("passcode-%1").arg(++i);
        if (!keychain.setObject(passcode, key) || keychain.objectForKey(key).toString() != passcode) {
            state.SkipWithError("round trip failed");
            break;
        }
    }
    (void)keychain.removeObjectForKey(key);
}

void readOnly(benchmark::State& state, bool secretService) {
    FXKeychain keychain(QStringLiteral("bench-keychain"), std::nullopt, 0, servicesFor(secretService));
    const QString key = QStringLiteral("read-only");
    if (!keychain.setObject(QStringLiteral("passcode"), key))
        state.SkipWithError("the keychain is not available");
    for (auto _ : state)
        benchmark::DoNotOptimize(keychain.objectForKey(key));
    (void)keychain.removeObjectForKey(key);
}

// Archiving and unarchiving 50 tokens under the token allow-list, the sync flow's plaintext.
void tokenArchiveRoundTrip(benchmark::State& state) {
    QVariantList tokens;
    for (int i = 0; i < 50; ++i) {
        marlockCommon::TokenRecord record;
        record.issuer = QStringLiteral("Issuer %1").arg(i);
        record.account = QStringLiteral("user%1@example.org").arg(i);
        record.secret = QByteArray(20, static_cast<char>(i));
        tokens.append(QVariant::fromValue(std::shared_ptr<marlockCommon::SecureCoding>(record.toOTPToken())));
    }
    const QStringList allowed = {"NSArray", "OTPToken", "NSNumber", "NSValue"};
    for (auto _ : state) {
        const std::optional<QByteArray> archive = jr_archivedDataWithRootObject(tokens, true);
        benchmark::DoNotOptimize(jr_unarchiveData(archive.value(), true, allowed));
    }
}

} // namespace

BENCHMARK_CAPTURE(storeAndRead, memory_baseline, false)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(storeAndRead, secret_service, true)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(readOnly, memory_baseline, false)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(readOnly, secret_service, true)->Unit(benchmark::kMicrosecond);
BENCHMARK(tokenArchiveRoundTrip)->Unit(benchmark::kMicrosecond);
