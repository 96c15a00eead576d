#include "common/SyncMessages.h"

#include "marlockCompanionCommon/keychain/FXKeychain.h"
#include "marlockCompanionCommon/platform/keychain/KeychainStatus.h"

namespace companion {

namespace {

QString how(SyncSurface surface, const char* commandLine, const char* window) {
    return QString::fromUtf8(surface == SyncSurface::commandLine ? commandLine : window);
}

} // namespace

QString syncProblem(iCloudManagerError error, SyncSurface surface) {
    switch (error) {
    case iCloudManagerError::tokenDataInvalid:
        return QStringLiteral("There are too many tokens to sync: encrypted, they would take more than "
                              "512,000 bytes. Remove tokens you no longer use, then try again.");
    case iCloudManagerError::iCloudNotEnabled:
        return QStringLiteral("The cloud folder holds no synced tokens. Check that it is the folder your "
                              "other computers use (%1), or switch sync on again to upload this "
                              "computer's tokens.")
            .arg(how(surface, "marlock sync status shows it", "Settings shows it"));
    case iCloudManagerError::incorrectPassword:
        return QStringLiteral("The sync passcode does not open the synced tokens. Enter the passcode chosen "
                              "when sync was first switched on; if nobody knows it any more, erase the "
                              "synced data (%1) and switch sync on again with a new one.")
            .arg(how(surface, "marlock sync reset --yes", "Settings → Erase synced data"));
    case iCloudManagerError::keychainAccessDenied:
        return QStringLiteral("The keyring refused to give the saved sync passcode. Unlock the keyring "
                              "(your desktop's password prompt, or Seahorse), then try again.");
    }
    return QStringLiteral("Sync failed for an unknown reason. Try again.");
}

QString syncProblem(const platform::Error& error, SyncSurface surface) {
    if (error.domain == iCloudManagerErrorDomain && error.code >= 0 && error.code <= 3)
        return syncProblem(static_cast<iCloudManagerError>(error.code), surface);
    if (error.domain == FXKeychainErrorDomain) {
        switch (error.code) {
        case platform::KeychainStatusCode::notAvailable:
            return QStringLiteral("No keyring is running, so the sync passcode cannot be kept. Start one "
                                  "that serves the Secret Service (GNOME Keyring, KeePassXC, KWallet), then "
                                  "try again.");
        case platform::KeychainStatusCode::authFailed:
            return QStringLiteral("The keyring is locked or refused access to the sync passcode. Unlock it, "
                                  "then try again.");
        default:
            return QStringLiteral("The keyring could not keep the sync passcode (%1). Check that it is "
                                  "running and unlocked, then try again.")
                .arg(error.description());
        }
    }
    return QStringLiteral("The tokens could not be prepared for sync (%1). Try again; if it keeps "
                          "failing, switch sync off and on.")
        .arg(error.description());
}

} // namespace companion
