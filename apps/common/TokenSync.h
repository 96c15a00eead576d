#pragma once

#include "common/SyncMessages.h"
#include "common/TokenStore.h"

#include "marlockCompanionCommon/platform/runtime/NotificationCenter.h"

#include <QObject>
#include <QPointer>
#include <QString>

#include <optional>

class iCloudManager;

namespace companion {

// Keeps this machine's tokens (the TokenStore in the keyring) and the synced records (the sync
// manager) consistent while sync is on:
//
//  - a change made through the store by this process is encrypted and published at once;
//  - records that arrive from elsewhere (another computer through the cloud folder, or another
//    program here) replace the stored tokens, so additions, renames, reorders and deletions made
//    anywhere show everywhere.
//
// Several programs of one user may each hold a TokenSync; applying arriving records is
// serialised between them by a lock file, and the store's change announcement makes the others
// read the keyring again instead of writing the same tokens twice.
//
// With the passcode asked for each time, no passcode is saved for the manager to encrypt with,
// so local changes stay on this computer; arriving records are then merged in (nothing local is
// deleted) rather than replacing the stored tokens, so nothing made here is lost.
//
//   companion::TokenStore store;
//   companion::TokenSync sync(&store, iCloudManager::sharedManager(), SyncSurface::window);
//   QObject::connect(&sync, &TokenSync::problem, window, &Window::showSyncProblem);
//   sync.start();                  // starts the manager, which reads the synced records
//
// Main thread only.
class TokenSync : public QObject {
    Q_OBJECT
public:
    // Neither is owned; both must outlive this object.
    TokenSync(TokenStore* store, iCloudManager* manager, SyncSurface surface, QObject* parent = nullptr);
    ~TokenSync() override;
    Q_DISABLE_COPY(TokenSync)

    // Starts the manager (which reads the synced records when sync is on; they are applied).
    void start();

    // Switches sync on with `passcode`, saved in the keyring when `save`. When the cloud folder
    // already holds synced tokens, the passcode must open them: otherwise nothing changes and the
    // call fails with incorrectPassword. The synced tokens and this computer's are then joined
    // (stored here, and published when the passcode is saved).
    [[nodiscard]] bool enable(const QString& passcode, bool save, QString* problem);
    // Gives the passcode asked for each time; the synced records are read with it. False (with
    // the reason) when it does not open them; nothing is kept then.
    [[nodiscard]] bool providePasscode(const QString& passcode, QString* problem);
    // Re-encrypts the synced tokens under `passcode`, which is saved.
    [[nodiscard]] bool changePasscode(const QString& passcode, QString* problem);
    // Switches sync off here; this computer's tokens and the synced data stay.
    [[nodiscard]] bool disable(QString* problem);
    // Erases the synced data from the cloud folder and switches sync off here.
    [[nodiscard]] bool reset(QString* problem);
    // Publishes the stored tokens now (after a change made while this object was not listening).
    [[nodiscard]] bool push(QString* problem);

    // Whether the sync passcode is needed before the synced records can be read: sync is on,
    // asked for each time, and not entered yet in this process.
    bool needsPasscode() const;
    // A line on the state of sync, for a status bar or "marlock sync status".
    QString statusText() const;

signals:
    // A sync problem, in words (see SyncMessages.h), with what to do.
    void problem(const QString& message);
    // Sync was switched on or off, or its passcode setting changed (here or by another program).
    void stateChanged();

private:
    void storeChanged(TokenStore::ChangeOrigin origin);
    void recordsArrived();
    void retrievalFailed(const platform::Notification& notification);
    bool apply(const std::vector<marlockCommon::TokenRecord>& records, bool merge, QString* problem);

    QPointer<TokenStore> store_;
    QPointer<iCloudManager> manager_;
    SyncSurface surface_;
    bool applying_ = false;
    int arrivals_ = 0;
    std::vector<platform::NotificationCenter::ObserverToken> observers_;
};

} // namespace companion
