#include "common/TokenSync.h"

#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStore.h"
#include "marlockCompanionCommon/sync/iCloudManager.h"

#include <QDir>
#include <QLockFile>
#include <QStandardPaths>

using marlockCommon::TokenRecord;

namespace companion {

namespace {

// One lock per profile: programs of one user applying the same arriving records one after the
// other, so the second finds them stored already instead of adding every token a second time.
QString applyLockPath() {
    QString folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (folder.isEmpty())
        folder = QDir::tempPath();
    return QDir(folder).filePath(platform::Identity::bundleIdentifier() + QStringLiteral(".token-sync.lock"));
}

std::vector<TokenRecord> joined(const std::vector<TokenRecord>& first,
                                const std::vector<TokenRecord>& second) {
    // TokenStore::replaceAll keeps the first of two entries for one token.
    std::vector<TokenRecord> all = first;
    all.insert(all.end(), second.begin(), second.end());
    return all;
}

} // namespace

TokenSync::TokenSync(TokenStore* store, iCloudManager* manager, SyncSurface surface, QObject* parent)
    : QObject(parent)
    , store_(store)
    , manager_(manager)
    , surface_(surface) {
    connect(store, &TokenStore::tokensChanged, this, &TokenSync::storeChanged);
    auto& center = platform::NotificationCenter::defaultCenter();
    observers_.push_back(center.addObserver(iCloudManager::tokenRecordsDidChangeExternallyNotification,
                                            manager, nullptr,
                                            [this](const platform::Notification&) { recordsArrived(); }));
    observers_.push_back(center.addObserver(iCloudManager::couldNotRetrieveTokenRecordsNotification, manager,
                                            nullptr,
                                            [this](const platform::Notification& n) { retrievalFailed(n); }));
    for (const QString& name : {iCloudManager::didChangeSettingsNotification,
                                iCloudManager::didChangeSettingsExternallyNotification,
                                iCloudManager::didChangeAskEachTimeExternallyNotification})
        observers_.push_back(center.addObserver(
            name, manager, nullptr, [this](const platform::Notification&) { emit stateChanged(); }));
}

TokenSync::~TokenSync() {
    for (const auto& observer : observers_)
        platform::NotificationCenter::defaultCenter().removeObserver(observer);
}

void TokenSync::start() {
    const int before = arrivals_;
    manager_->start();
    // A manager started earlier by someone else announced its records before we listened.
    if (arrivals_ == before && manager_->tokenRecords())
        recordsArrived();
}

void TokenSync::storeChanged(TokenStore::ChangeOrigin origin) {
    // Only what a person did here is published: changes made elsewhere were published by whoever
    // made them, and records being applied came from the synced data in the first place.
    if (origin != TokenStore::ChangeOrigin::thisStore || applying_ || !manager_->iCloudEnabled())
        return;
    QString message;
    if (!push(&message))
        emit problem(message);
}

void TokenSync::recordsArrived() {
    ++arrivals_;
    if (!manager_->iCloudEnabled() || !manager_->tokenRecords())
        return;
    const auto& records = *manager_->tokenRecords();
    QString message;
    if (!apply({records.begin(), records.end()}, !manager_->passcodeIsSaved(), &message))
        emit problem(message);
}

void TokenSync::retrievalFailed(const platform::Notification& notification) {
    // The manager also reads after a change of the cloud folder while sync is off here; what it
    // finds then is none of this computer's business.
    if (!manager_->iCloudEnabled())
        return;
    const auto reason =
        iCloudManagerErrorFromRawValue(notification.userInfo.value(iCloudManager::errorReasonKey).toString());
    if (reason)
        emit problem(syncProblem(*reason, surface_));
}

bool TokenSync::apply(const std::vector<TokenRecord>& records, bool merge, QString* problem) {
    QLockFile lock(applyLockPath());
    lock.setStaleLockTime(30000);
    if (!lock.tryLock(10000)) {
        *problem =
            QStringLiteral("Another program is still storing synced tokens; they will show when it is done.");
        return false;
    }
    applying_ = true;
    platform::Error error;
    // replaceAll reads the keyring first, so records another program applied meanwhile count.
    const bool stored = store_->replaceAll(merge ? joined(store_->records(), records) : records, &error);
    applying_ = false;
    if (!stored)
        *problem = QStringLiteral("The synced tokens could not be stored on this computer: %1")
                       .arg(error.description());
    return stored;
}

bool TokenSync::enable(const QString& passcode, bool save, QString* problem) {
    std::vector<TokenRecord> synced;
    if (manager_->iCloudDataPresent()) {
        const auto records = manager_->decryptTokenDataWithPassword(passcode);
        if (!records) {
            *problem = syncProblem(iCloudManagerError::incorrectPassword, surface_);
            return false;
        }
        synced.assign(records->begin(), records->end());
    }
    platform::Error error;
    if (!manager_->enableiCloudWithPassword(passcode, save, &error)) {
        *problem = syncProblem(error, surface_);
        return false;
    }
    if (!apply(joined(synced, store_->records()), false, problem))
        return false;
    return !save || push(problem);
}

bool TokenSync::providePasscode(const QString& passcode, QString* problem) {
    if (manager_->iCloudDataPresent() && !manager_->decryptTokenDataWithPassword(passcode)) {
        *problem = syncProblem(iCloudManagerError::incorrectPassword, surface_);
        return false;
    }
    manager_->setPasscode(passcode); // reads the records, which arrive through recordsArrived()
    return true;
}

bool TokenSync::changePasscode(const QString& passcode, QString* problem) {
    if (manager_->iCloudEnabled() && !manager_->passcodeIsSaved()) {
        *problem = QStringLiteral("The passcode is asked for each time, so the synced tokens cannot be "
                                  "re-encrypted unattended. Switch sync off and on again with the new "
                                  "passcode instead.");
        return false;
    }
    platform::Error error;
    if (!manager_->changePassword(passcode, &error)) {
        *problem = syncProblem(error, surface_);
        return false;
    }
    return true;
}

bool TokenSync::disable(QString* problem) {
    platform::Error error;
    if (!manager_->disableiCloud(&error)) {
        *problem = syncProblem(error, surface_);
        return false;
    }
    return true;
}

bool TokenSync::reset(QString* problem) {
    platform::Error error;
    if (!manager_->resetiCloudData(&error)) {
        *problem = syncProblem(error, surface_);
        return false;
    }
    return true;
}

bool TokenSync::push(QString* problem) {
    platform::Error error;
    const auto records = store_->records();
    if (!manager_->setTokenRecords({records.begin(), records.end()}, &error)) {
        *problem = syncProblem(error, surface_);
        return false;
    }
    return true;
}

bool TokenSync::needsPasscode() const {
    return manager_->iCloudEnabled() && !manager_->passcodeIsSaved() && !manager_->passcode();
}

QString TokenSync::statusText() const {
    const QString folder = platform::UbiquitousKeyValueStore::defaultFolderPath();
    if (!manager_->iCloudEnabled())
        return manager_->iCloudDataPresent()
                   ? QStringLiteral("Sync is off. The cloud folder %1 holds synced tokens.").arg(folder)
                   : QStringLiteral("Sync is off.");
    QString text = QStringLiteral("Sync is on through %1, ").arg(folder);
    if (manager_->passcodeIsSaved())
        text += QStringLiteral("with the passcode saved in the keyring.");
    else if (manager_->passcode())
        text += QStringLiteral("with the passcode asked for each time (entered).");
    else
        text += QStringLiteral("with the passcode asked for each time (not entered yet).");
    if (const auto error = manager_->lastError())
        text += QLatin1Char(' ') + syncProblem(*error, surface_);
    return text;
}

} // namespace companion
