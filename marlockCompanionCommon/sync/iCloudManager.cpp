// The manager's object, its stores, start-up, and what it does when the cloud store or the other
// process reports a change. The token flows are in iCloudManagerFlows.cpp, the passcode in
// iCloudManagerPasscode.cpp.
#include "marlockCompanionCommon/sync/iCloudManager.h"

#include "marlockCompanionCommon/keychain/FXKeychain.h"
#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"
#include "marlockCompanionCommon/platform/runtime/FatalError.h"
#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "marlockCompanionCommon/platform/runtime/NotificationCenter.h"
#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStore.h"
#include "marlockCompanionCommon/platform/storage/UserDefaults.h"
#include "marlockCompanionCommon/sync/internal/SyncKeys.h"

#include <limits>
#include <mutex>

using namespace marlockCompanionCommon::sync::internal;

namespace {

platform::UserDefaults* applicationGroupSuite() {
    const QString name = platform::Identity::applicationGroup();
    platform::UserDefaults* suite = platform::UserDefaults::suiteNamed(name);
    if (!suite)
        platform::fatalError(QStringLiteral("Could not open the user defaults suite \"%1\"").arg(name));
    return suite;
}

} // namespace

iCloudManager* iCloudManager::sharedManager() {
    static std::once_flag once;
    static iCloudManager* shared = nullptr;
    std::call_once(once, [] { shared = new iCloudManager; });
    return shared;
}

iCloudManager::iCloudManager()
    : iCloudManager(applicationGroupSuite(),
                    std::make_unique<FXKeychain>(platform::Identity::keychainIdentifier(),
                                                 platform::Identity::keychainIdentifier(), 0),
                    nullptr) {}

iCloudManager::iCloudManager(platform::UserDefaults* userDefaults, std::unique_ptr<FXKeychain> lockbox,
                             platform::UbiquitousKeyValueStore* store, QObject* parent)
    : QObject(parent)
    , userDefaults_(userDefaults)
    , lockbox_(std::move(lockbox))
    , ubiquitousStore_(store) {
    if (!userDefaults_)
        platform::fatalError(QStringLiteral("iCloudManager needs a user defaults suite"));
}

iCloudManager::~iCloudManager() {
    platform::NotificationCenter::defaultCenter().removeObserver(this);
    PLXDarwinNotificationCenter::otpDarwinNotificationCenter()->removeObserver(this);
}

platform::UbiquitousKeyValueStore* iCloudManager::ubiquitousStore() {
    if (!ubiquitousStore_)
        ubiquitousStore_ = platform::UbiquitousKeyValueStore::defaultStore();
    return ubiquitousStore_;
}

void iCloudManager::start() {
    if (started_)
        return;
    platform::UbiquitousKeyValueStore* store = ubiquitousStore();
    store->synchronize();
    platform::NotificationCenter::defaultCenter().addObserver(
        this, "storeDidChangeExternally", platform::UbiquitousKeyValueStoreDidChangeExternallyNotification,
        store);
    PLXDarwinNotificationCenter::otpDarwinNotificationCenter()->addObserver(this, "iCloudSettingsChanged",
                                                                            settingsDarwinNotification);
    PLXDarwinNotificationCenter::otpDarwinNotificationCenter()->addObserver(this, "iCloudAskEachTimeChanged",
                                                                            askEachTimeDarwinNotification);
    if (iCloudEnabled())
        updateTokenRecordsFromiCloud(true);
    started_ = true;
}

void iCloudManager::synchronize() {
    (void)ubiquitousStore()->synchronize();
}

void iCloudManager::refreshTokenRecords() {
    if (iCloudEnabled())
        updateTokenRecordsFromiCloud(true);
}

bool iCloudManager::iCloudEnabled() const {
    return userDefaults_->boolForKey(enabledKey);
}

bool iCloudManager::iCloudDataPresent() {
    return storedEncryptedTokenData().has_value();
}

std::optional<iCloudManager::Error> iCloudManager::lastError() const {
    const QVariant stored = userDefaults_->objectForKey(lastErrorKey);
    if (stored.typeId() != QMetaType::QString)
        return std::nullopt;
    return iCloudManagerErrorFromRawValue(stored.toString());
}

void iCloudManager::clearLastError() {
    setLastError(std::nullopt);
}

void iCloudManager::setLastError(const std::optional<Error>& error) {
    if (error)
        userDefaults_->setObject(iCloudManagerErrorRawValue(*error), lastErrorKey);
    else
        userDefaults_->removeObjectForKey(lastErrorKey);
}

void iCloudManager::storeDidChangeExternally(const platform::Notification&) {
    // Whatever changed and why, the records are read again: a quota refusal or a vanished folder
    // is reported the same way as a new value, through the outcome of the read.
    updateTokenRecordsFromiCloud(true);
}

void iCloudManager::iCloudSettingsChanged() {
    handleOtherProcessChange(settingsDarwinNotification, didChangeSettingsExternallyNotification);
}

void iCloudManager::iCloudAskEachTimeChanged() {
    handleOtherProcessChange(askEachTimeDarwinNotification, didChangeAskEachTimeExternallyNotification);
}

// Every post of ours comes back to us too: as long as echoes are pending for the name, an arrival
// is taken for one of them. Posts and arrivals are both on the main thread, so the count is exact.
void iCloudManager::handleOtherProcessChange(const QString& darwinName, const QString& externalNotification) {
    const qint64 pending = ignoreCount(darwinName);
    if (pending > 0) {
        darwinIgnoreMap_.insert(darwinName, pending - 1);
        return;
    }
    passcode_.reset(); // the other process may have changed it: ask the keychain (or the user) again
    if (iCloudEnabled())
        updateTokenRecordsFromiCloud(true);
    if (!iCloudEnabled())
        tokenRecords_.reset();
    platform::NotificationCenter::defaultCenter().post(externalNotification, this);
}

void iCloudManager::postDarwin(const QString& darwinName) {
    const qint64 pending = ignoreCount(darwinName);
    if (pending == std::numeric_limits<qint64>::max())
        platform::fatalError(QStringLiteral("Arithmetic overflow counting the echoes of %1").arg(darwinName));
    darwinIgnoreMap_.insert(darwinName, pending + 1);
    PLXDarwinNotificationCenter::otpDarwinNotificationCenter()->postNotificationName(darwinName);
}

void iCloudManager::announceSettingsChange() {
    postDarwin(settingsDarwinNotification);
    platform::NotificationCenter::defaultCenter().post(didChangeSettingsNotification, this);
}
