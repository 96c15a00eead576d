#pragma once

#include "marlockCompanionCommon/platform/runtime/Error.h"
#include "marlockCompanionCommon/sync/iCloudManagerError.h"

#include <QString>

// Sync problems in words a person can act on. The sync manager reports failures as error
// enumerations and passed-through keychain statuses; people get a sentence saying what went
// wrong and what to do about it, never a code.
//
//   catch (const iCloudManager::Failure& failure) {
//       show(companion::syncProblem(failure.toPlatformError(), companion::SyncSurface::window));
//   }
namespace companion {

// Where the advice will be read: it names the command or the setting that fixes the problem.
enum class SyncSurface {
    commandLine, // "marlock sync reset --yes"
    window,      // "Settings → Erase synced data"
};

// The sentence for one of the sync manager's own errors.
QString syncProblem(iCloudManagerError error, SyncSurface surface);

// The sentence for any error a sync operation returned: the manager's own, a keychain status
// (the keyring is missing, locked or refused), or an archiving failure.
QString syncProblem(const platform::Error& error, SyncSurface surface);

} // namespace companion
