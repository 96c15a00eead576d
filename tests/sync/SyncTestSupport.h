#pragma once

#include "marlockCompanionCommon/keychain/FXKeychain.h"
#include "marlockCompanionCommon/platform/keychain/KeychainServices.h"
#include "marlockCompanionCommon/platform/runtime/NotificationCenter.h"
#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStore.h"
#include "marlockCompanionCommon/platform/storage/UserDefaults.h"
#include "marlockCompanionCommon/sync/iCloudManager.h"
#include "tests/support/TestSupport.h"
#include "tests/sync/SyncRecords.h"

#include <QTemporaryDir>
#include <QUuid>

#include <gtest/gtest.h>

namespace synctest {

// The manager's in-process notifications, by name, with their user info.
class ManagerNotifications {
public:
    explicit ManagerNotifications(const iCloudManager* manager) {
        for (const QString& name : {iCloudManager::didChangeSettingsNotification,
                                    iCloudManager::didChangeSettingsExternallyNotification,
                                    iCloudManager::tokenRecordsDidChangeExternallyNotification,
                                    iCloudManager::didChangeAskEachTimeExternallyNotification,
                                    iCloudManager::couldNotRetrieveTokenRecordsNotification})
            tokens_.push_back(platform::NotificationCenter::defaultCenter().addObserver(
                name, manager, nullptr, [this](const platform::Notification& n) {
                    names.append(n.name);
                    reasons.append(n.userInfo.value(iCloudManager::errorReasonKey).toString());
                }));
    }
    ~ManagerNotifications() {
        for (const auto& token : tokens_)
            platform::NotificationCenter::defaultCenter().removeObserver(token);
    }
    ManagerNotifications(const ManagerNotifications&) = delete;
    ManagerNotifications& operator=(const ManagerNotifications&) = delete;

    void clear() {
        names.clear();
        reasons.clear();
    }
    QStringList names;
    QStringList reasons; // the error reason of each, empty for those without one

private:
    std::vector<platform::NotificationCenter::ObserverToken> tokens_;
};

// What one process of the product has: a settings suite, a keychain service and a cloud folder of
// this test's own, removed afterwards (the keychain item too, also when the test fails).
class ManagerStores {
public:
    explicit ManagerStores(
        std::shared_ptr<platform::KeychainServices> keychain = platform::KeychainServices::shared())
        : keychain_(std::move(keychain)) {}
    ~ManagerStores() {
        (void)keychain_->itemDelete(
            platform::KeychainQuery{platform::KeychainClass::genericPassword, service, std::nullopt});
    }
    ManagerStores(const ManagerStores&) = delete;
    ManagerStores& operator=(const ManagerStores&) = delete;

    // A manager over these stores, as another process over the same ones would have.
    std::unique_ptr<iCloudManager> makeManager() {
        return std::make_unique<iCloudManager>(suite, makeKeychain(), &store);
    }
    std::unique_ptr<FXKeychain> makeKeychain() const {
        return std::make_unique<FXKeychain>(service, service, 0, keychain_);
    }

    testsupport::ScopedIsolatedHome home;
    const QString service = QStringLiteral("marlock-sync-test-") + QUuid::createUuid().toString(QUuid::Id128);
    platform::UserDefaults* const suite = platform::UserDefaults::suiteNamed(service);
    const QString folder = home.path() + QStringLiteral("/cloud");
    platform::UbiquitousKeyValueStore store{platform::makeFolderUbiquitousKeyValueStoreBackend(folder, true)};

private:
    std::shared_ptr<platform::KeychainServices> keychain_;
};

} // namespace synctest
