#pragma once

#include "marlockCompanionCommon/platform/keychain/KeychainServices.h"

#include <QUuid>

#include <gtest/gtest.h>

namespace platform {
inline void PrintTo(const KeychainItem& item, std::ostream* out) {
    const QStringList fields{item.itemClass, item.service, item.account, item.accessible,
                             item.access ? item.access->label : QStringLiteral("(no access)")};
    *out << fields.join('/').toStdString();
}
} // namespace platform

namespace keychaintest {

// The backends every keychain contract runs against: memory, and the Secret Service of the
// throw-away keyring that scripts/with-session starts.
struct Backend {
    const char* name;
    std::unique_ptr<platform::KeychainBackend> (*make)();
};
inline const auto backends =
    ::testing::Values(Backend{"Memory", &platform::makeMemoryKeychainBackend},
                      Backend{"SecretService", &platform::makeSecretServiceKeychainBackend});
inline void PrintTo(const Backend& backend, std::ostream* out) {
    *out << backend.name;
}
inline std::string backendName(const ::testing::TestParamInfo<Backend>& info) {
    return info.param.name;
}

// A keychain, a service of its own (so that runs never see each other's items) and shorthand
// for what tests ask of it.
class KeychainFixture {
public:
    explicit KeychainFixture(std::unique_ptr<platform::KeychainBackend> backend)
        : services(std::make_shared<platform::KeychainServices>(std::move(backend))) {}
    ~KeychainFixture() {
        for (const QString& s : {service, other})
            for (const QString& c :
                 {platform::KeychainClass::genericPassword, platform::KeychainClass::internetPassword})
                (void)services->itemDelete(platform::KeychainQuery{c, s, std::nullopt});
    }

    std::shared_ptr<platform::KeychainServices> services;
    const QString service =
        QStringLiteral("marlock-test-") + QUuid::createUuid().toString(QUuid::WithoutBraces);
    const QString other = service + QStringLiteral("-other");

    platform::KeychainQuery query(const QString& account,
                                  const QString& itemClass = platform::KeychainClass::genericPassword) const {
        return {itemClass, service, account};
    }
    static platform::KeychainAttributes secret(const QByteArray& data) {
        return {data, std::nullopt, std::nullopt};
    }
    [[nodiscard]] platform::KeychainStatus add(const platform::KeychainQuery& q, const QByteArray& data) {
        return services->itemAdd(q, secret(data));
    }
    // The item's bytes, or nothing when it is not found (any other failure fails the test).
    std::optional<QByteArray> read(const platform::KeychainQuery& q) {
        QByteArray data;
        return found(services->copyMatchingData(q, &data)) ? std::optional(data) : std::nullopt;
    }
    // The item's reference, likewise.
    std::optional<platform::KeychainItem> item(const platform::KeychainQuery& q) {
        std::unique_ptr<platform::KeychainItem> ref;
        const bool ok = found(services->copyMatchingItem(q, &ref));
        EXPECT_EQ(ok, ref != nullptr) << "a reference exactly when found";
        return ref ? std::optional(*ref) : std::nullopt;
    }

private:
    static bool found(platform::KeychainStatus status) {
        if (status != platform::KeychainStatusCode::itemNotFound) {
            EXPECT_EQ(status, platform::KeychainStatusCode::success);
        }
        return status == platform::KeychainStatusCode::success;
    }
};

} // namespace keychaintest
