// How long a passcode takes to store and read back through FXKeychain on the Secret Service
// (gnome-keyring over D-Bus), against the same work done with bare libsecret calls: the same
// schema, attributes, label and item in the default collection, a store that replaces the item
// and a lookup. Library and baseline run round by round in alternating order, so that load on
// the machine falls on both alike; the medians and their ratio are printed. The in-memory rows
// show FXKeychain's own cost without any keychain behind it.
//
//   scripts/build --bench && scripts/with-session build-bench/bench/keychain/bench_keychain
#include <libsecret/secret.h>

#include "marlockCommon/OTPToken.h"
#include "marlockCompanionCommon/keychain/FXKeychain.h"
#include "marlockCompanionCommon/keychain/KeyedArchiverAdditions.h"
#include "marlockCompanionCommon/platform/keychain/KeychainServices.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

using platform::KeychainServices;
using Clock = std::chrono::steady_clock;

const QString kService = QStringLiteral("bench-keychain");
const QString kKey = QStringLiteral("iCloudDecryptionPassword");

std::shared_ptr<KeychainServices> servicesFor(bool secretService) {
    return std::make_shared<KeychainServices>(secretService ? platform::makeSecretServiceKeychainBackend()
                                                            : platform::makeMemoryKeychainBackend());
}

// The keychain's schema and item, as a program using libsecret directly would write them.
class BareLibsecret {
public:
    BareLibsecret() {
        schema_.name = "org.marlock.Keychain";
        schema_.flags = SECRET_SCHEMA_NONE;
        const char* names[] = {"class",      "service",      "account",
                               "accessible", "access-label", "trusted-applications"};
        for (std::size_t i = 0; i < std::size(names); ++i)
            schema_.attributes[i] = {names[i], SECRET_SCHEMA_ATTRIBUTE_STRING};
        lookup_ = g_hash_table_new(g_str_hash, g_str_equal);
        g_hash_table_insert(lookup_, const_cast<char*>("class"), const_cast<char*>("genp"));
        g_hash_table_insert(lookup_, const_cast<char*>("service"), service_.data());
        g_hash_table_insert(lookup_, const_cast<char*>("account"), account_.data());
        store_ = copyTable(lookup_);
        g_hash_table_insert(store_, const_cast<char*>("accessible"), const_cast<char*>("ak"));
    }
    ~BareLibsecret() {
        g_hash_table_unref(lookup_);
        g_hash_table_unref(store_);
    }

    bool store(const QByteArray& secret) {
        SecretValue* value = secret_value_new(secret.constData(), secret.size(), "application/octet-stream");
        GError* error = nullptr;
        const gboolean stored = secret_password_storev_binary_sync(
            &schema_, store_, SECRET_COLLECTION_DEFAULT, label_.constData(), value, nullptr, &error);
        secret_value_unref(value);
        g_clear_error(&error);
        return stored;
    }
    QByteArray lookup() {
        GError* error = nullptr;
        SecretValue* value = secret_password_lookupv_binary_sync(&schema_, lookup_, nullptr, &error);
        g_clear_error(&error);
        if (!value)
            return {};
        gsize length = 0;
        const gchar* bytes = secret_value_get(value, &length);
        QByteArray result(bytes, static_cast<qsizetype>(length));
        secret_value_unref(value);
        return result;
    }

private:
    static GHashTable* copyTable(GHashTable* table) {
        GHashTable* copy = g_hash_table_new(g_str_hash, g_str_equal);
        GHashTableIter iter;
        gpointer key = nullptr, value = nullptr;
        g_hash_table_iter_init(&iter, table);
        while (g_hash_table_iter_next(&iter, &key, &value))
            g_hash_table_insert(copy, key, value);
        return copy;
    }

    SecretSchema schema_{};
    QByteArray service_ = kService.toUtf8();
    QByteArray account_ = kKey.toUtf8();
    // The label FXKeychain gives an item without an access object, so neither side relabels it.
    QByteArray label_ = QStringLiteral("%1 (%2)").arg(kKey, kService).toUtf8();
    GHashTable* lookup_ = nullptr;
    GHashTable* store_ = nullptr;
};

double medianMs(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    return samples.empty() ? 0.0 : samples[samples.size() / 2];
}

double timeMs(const std::function<bool()>& work, bool* ok) {
    const auto start = Clock::now();
    *ok = work() && *ok;
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Runs `library` and `baseline` once per iteration, alternating which goes first, and reports
// the library's time as the iteration's time, both medians and their ratio.
void compare(benchmark::State& state, const char* what, double target,
             const std::function<bool(int)>& library, const std::function<bool(int)>& baseline) {
    std::vector<double> libraryMs, baselineMs;
    bool ok = true;
    int round = 0;
    for (auto _ : state) {
        ++round;
        const auto runLibrary = [&] { libraryMs.push_back(timeMs([&] { return library(round); }, &ok)); };
        const auto runBaseline = [&] { baselineMs.push_back(timeMs([&] { return baseline(round); }, &ok)); };
        if (round % 2) {
            runLibrary();
            runBaseline();
        } else {
            runBaseline();
            runLibrary();
        }
        state.SetIterationTime(libraryMs.back() / 1e3);
        if (!ok) {
            state.SkipWithError("a store or read failed (run inside scripts/with-session)");
            return;
        }
    }
    const double lib = medianMs(libraryMs), bare = medianMs(baselineMs);
    state.counters["baseline_ms"] = bare;
    state.counters["library_ms"] = lib;
    state.counters["ratio"] = lib / bare;
    std::printf("\n%s, median of %zu rounds each (ms):\n", what, libraryMs.size());
    std::printf("  baseline (bare libsecret)   %8.3f\n", bare);
    std::printf("  FXKeychain, Secret Service  %8.3f\n", lib);
    std::printf("  ratio library/baseline      %8.2f   (target <= %.1f)\n\n", lib / bare, target);
}

// Stores a passcode (an update of an existing item, as every save after the first is) and reads it.
void BM_StoreAndRead(benchmark::State& state) {
    FXKeychain keychain(kService, std::nullopt, 0, servicesFor(true));
    BareLibsecret bare;
    if (!keychain.setObject(QStringLiteral("warm-up"), kKey) || !bare.store("warm-up")) {
        state.SkipWithError("the keychain is not available (run inside scripts/with-session)");
        return;
    }
    compare(
        state, "Store and read a passcode", 1.5,
        [&](int round) {
            const QString passcode = QStringLiteral("passcode-%1").arg(round);
            return keychain.setObject(passcode, kKey) && keychain.objectForKey(kKey).toString() == passcode;
        },
        [&](int round) {
            const QByteArray passcode = QStringLiteral("baseline-%1").arg(round).toUtf8();
            return bare.store(passcode) && bare.lookup() == passcode;
        });
    (void)keychain.removeObjectForKey(kKey);
}

void BM_Read(benchmark::State& state) {
    FXKeychain keychain(kService, std::nullopt, 0, servicesFor(true));
    BareLibsecret bare;
    if (!keychain.setObject(QStringLiteral("passcode"), kKey)) {
        state.SkipWithError("the keychain is not available (run inside scripts/with-session)");
        return;
    }
    compare(
        state, "Read a passcode", 1.2,
        [&](int) { return keychain.objectForKey(kKey).toString() == QLatin1String("passcode"); },
        [&](int) { return bare.lookup() == "passcode"; });
    (void)keychain.removeObjectForKey(kKey);
}

// FXKeychain's own cost: encoding, decoding and the existence check, with no keychain behind it.
void BM_StoreAndReadInMemory(benchmark::State& state) {
    FXKeychain keychain(kService, std::nullopt, 0, servicesFor(false));
    int i = 0;
    for (auto _ : state) {
        const QString passcode = QStringLiteral("passcode-%1").arg(++i);
        if (!keychain.setObject(passcode, kKey) || keychain.objectForKey(kKey).toString() != passcode) {
            state.SkipWithError("round trip failed");
            break;
        }
    }
}

// Archiving and unarchiving 50 tokens under the token allow-list, the sync flow's plaintext.
void BM_TokenArchiveRoundTrip(benchmark::State& state) {
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

BENCHMARK(BM_StoreAndRead)->Iterations(300)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Read)->Iterations(1000)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StoreAndReadInMemory)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_TokenArchiveRoundTrip)->Unit(benchmark::kMicrosecond);
