#pragma once

#include "marlockCommon/TokenRecord.h"
#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/platform/keychain/KeychainItem.h"
#include "marlockCompanionCommon/platform/runtime/Notification.h"
#include "marlockCompanionCommon/sync/iCloudManagerError.h"

#include <QHash>
#include <QList>
#include <QObject>

#include <memory>
#include <optional>

class FXKeychain;
namespace platform {
class UbiquitousKeyValueStore;
class UserDefaults;
} // namespace platform

// The owner of the synced token records, shared by the companion app and its widget: whether sync
// is on, the passcode that opens the synced data, whether it is asked for each time, the last sync
// error, and the decrypted records. The records travel through the cloud key-value store under
// "tokens" as an RNCryptor container (keyed with the passcode) around a keyed archive of OTPTokens.
//
// Settings live in the application group's suite ("iCloudEnabled", "iCloudAskForPasscodeEachTime",
// "iCloudSyncLastError"), the saved passcode in the keychain ("iCloudDecryptionPassword"). Every
// change is announced twice: to the other process by name ("iCloudManagerDidChangeSettings…" and
// "…AskEachTimeDarwinNotification", whose echoes this process swallows) and in this process by the
// notifications below, posted on the default center with the manager as object.
//
// Main thread only. Each read or write of the records costs two key derivations (a few ms each).
//
//   iCloudManager* sync = iCloudManager::sharedManager();
//   sync->start();
//   sync->enableiCloudWithPassword(passcode, /*save=*/true);
//   sync->setTokenRecords(records);                 // throws iCloudManager::Failure
class MCC_EXPORT iCloudManager : public QObject {
    Q_OBJECT
public:
    using Error = iCloudManagerError;
    using Failure = iCloudManagerFailure;
    using TokenRecords = QList<marlockCommon::TokenRecord>;

    // Posted when this process changed the settings or the records.
    static inline const QString didChangeSettingsNotification =
        QStringLiteral("iCloudManagerDidChangeSettingsNotification");
    // Posted when the other process changed the settings (records refreshed or dropped first).
    static inline const QString didChangeSettingsExternallyNotification =
        QStringLiteral("iCloudManagerDidChangeSettingsExternallyNotification");
    // Posted when records were read from the store after a change made elsewhere.
    static inline const QString tokenRecordsDidChangeExternallyNotification =
        QStringLiteral("iCloudManagerTokenRecordsDidChangeExternallyNotification");
    // Posted when the other process switched between a saved passcode and asking each time.
    static inline const QString didChangeAskEachTimeExternallyNotification =
        QStringLiteral("iCloudManagerDidChangeAskEachTimeExternallyNotification");
    // Posted when records could not be read; user info {errorReasonKey: the Error's raw value}.
    static inline const QString couldNotRetrieveTokenRecordsNotification =
        QStringLiteral("iCloudManagerCouldNotRetrieveTokenRecordsNotification");
    static inline const QString errorReasonKey = QStringLiteral("iCloudManager.ErrorReasonKey");
    // The largest encrypted token data setTokenRecords() stores, in bytes.
    static constexpr qsizetype maximumTokenDataSize = 512000;
    // The widget program, trusted beside the running program to read the saved passcode.
    static inline const QString widgetProgramName = QStringLiteral("marlock-today");

    // The process's manager, created on first use (thread-safe) and kept for the process.
    static iCloudManager* sharedManager();
    // Over the application group's suite (a fatal error when it cannot be opened), a keychain store
    // whose service and access group are the keychain identifier, and the default cloud store.
    iCloudManager();
    // Over given stores (none is owned but `lockbox`; null `store`: the default one, on first use;
    // null `lockbox`: no keychain, so nothing is saved). For hosts and tests.
    iCloudManager(platform::UserDefaults* userDefaults, std::unique_ptr<FXKeychain> lockbox,
                  platform::UbiquitousKeyValueStore* store, QObject* parent = nullptr);
    ~iCloudManager() override;
    Q_DISABLE_COPY(iCloudManager)

    // Starts observing the cloud store and the other process, and reads the records when sync is
    // on. Only the first call does anything.
    void start();
    // Asks the cloud store to re-check its storage.
    void synchronize();
    // Reads the records again (announcing the outcome) when sync is on.
    void refreshTokenRecords();

    bool iCloudEnabled() const;
    // Whether the store holds token data, whether or not sync is on here.
    bool iCloudDataPresent();
    std::optional<Error> lastError() const;
    void clearLastError();
    // The last records read; absent when not read or not readable.
    const std::optional<TokenRecords>& tokenRecords() const { return tokenRecords_; }

    // The records in the store opened with `password`; absent when there are none or they don't
    // open. Changes nothing.
    std::optional<TokenRecords> decryptTokenDataWithPassword(const QString& password);

    // Encrypts `records` under the saved passcode and stores them (nothing when no passcode is
    // saved). Throws Failure: iCloudNotEnabled, tokenDataInvalid, keychain or archive errors.
    void setTokenRecords(const TokenRecords& records);
    // Switches sync on with `password`, saving it in the keychain when `save` (else removing a
    // saved one), and reads the records it opens. Throws Failure with keychain errors.
    void enableiCloudWithPassword(const QString& password, bool save);
    // Re-encrypts the records under `password`, which becomes the saved passcode. Throws Failure:
    // iCloudNotEnabled, incorrectPassword (none saved, or it does not open the data), keychain errors.
    void changePassword(const QString& password);
    // Switches sync off, forgetting the passcode and the records; the store's data stays.
    void disableiCloud();
    // Removes the store's data, then disableiCloud().
    void resetiCloudData();
    // The same, reporting failure through `error` instead of throwing.
    [[nodiscard]] bool setTokenRecords(const TokenRecords& records, platform::Error* error);
    [[nodiscard]] bool enableiCloudWithPassword(const QString& password, bool save, platform::Error* error);
    [[nodiscard]] bool changePassword(const QString& password, platform::Error* error);
    [[nodiscard]] bool disableiCloud(platform::Error* error);
    [[nodiscard]] bool resetiCloudData(platform::Error* error);

    // The passcode held in memory (entered for ask-each-time, or set when sync was enabled here).
    // Setting it reads the records with it when sync is on.
    std::optional<QString> passcode() const { return passcode_; }
    void setPasscode(const std::optional<QString>& passcode);
    // False while the passcode is asked for each time.
    bool passcodeIsSaved() const;
    // Saves `passcode` in the keychain, or with none removes it and asks each time from now on;
    // tells the other process. Throws Failure with keychain errors, leaving the setting unchanged.
    void setSavedPasscode(const std::optional<QString>& passcode);
    [[nodiscard]] bool setSavedPasscode(const std::optional<QString>& passcode, platform::Error* error);

    // The access object a saved passcode gets: label = the application's display name (else
    // "KORVA Companion"), trusted = this program's executable and widgetProgramName beside it.
    // Recorded on the keychain item; see KeychainAccess for what it does and does not protect.
    std::optional<platform::KeychainAccess> secAccess() const;

private Q_SLOTS:
    void storeDidChangeExternally(const platform::Notification& notification);
    void iCloudSettingsChanged();
    void iCloudAskEachTimeChanged();

private:
    platform::UbiquitousKeyValueStore* ubiquitousStore();
    std::optional<QByteArray> storedEncryptedTokenData();
    void updateTokenRecordsFromiCloud(bool notify);
    void setLastError(const std::optional<Error>& error);
    void setSavedPasscode(const std::optional<QString>& passcode, bool notify);
    void setPassword(const QString& password);
    std::optional<QString> getStoredPassword() const;
    void handleOtherProcessChange(const QString& darwinName, const QString& externalNotification);
    void postDarwin(const QString& darwinName);
    void announceSettingsChange();
    qint64 ignoreCount(const QString& darwinName) const { return darwinIgnoreMap_.value(darwinName); }

    platform::UserDefaults* const userDefaults_;
    const std::unique_ptr<FXKeychain> lockbox_;
    platform::UbiquitousKeyValueStore* ubiquitousStore_;
    std::optional<TokenRecords> tokenRecords_;
    std::optional<QString> passcode_;
    // Pending echoes of this process's own cross-process posts, per name.
    QHash<QString, qint64> darwinIgnoreMap_;
    bool started_ = false;
};
