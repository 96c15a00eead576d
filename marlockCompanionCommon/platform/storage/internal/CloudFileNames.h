#pragma once

#include <QString>

#include <optional>

// How the folder backend of the cloud key-value store names its files, and which files in a
// synced folder are not its own. The names come from disk, where anyone (a sync engine, another
// device, a person) may have put anything: every function takes any name without trusting it.
namespace platform::internal::CloudFileNames {

// The file name of `key`: its UTF-8 bytes, with every byte other than ASCII letters, digits, '-',
// '_' and a '.' that is not the first percent-encoded as %XX (upper case). Should that name look
// like a sync engine's file ("a.part", "x_conflict-1"), only letters and digits stay plain.
QString fileNameForKey(const QString& key);

// The key a file name stands for: absent for engine files, names this backend would not have
// written for any key (not canonical, not UTF-8, empty, a key over 64 bytes) and our own
// temporary files.
std::optional<QString> keyForFileName(const QString& fileName);

// A sync engine's temporary file, marker or conflict copy, which is never a key and is left
// alone: ".syncthing.*.tmp", "~*", ".~lock*", "*.part", ".stfolder", ".stignore", ".sync*",
// "*.sync-conflict-*", "* (conflicted copy*", "*_conflict-*".
bool isSyncEngineFile(const QString& fileName);

// The temporary file a write of `fileName` goes through first. It starts with "~" so that the
// backend itself and the sync engines pass it by, and names the writing process and a random part.
QString temporaryFileName(const QString& fileName, qint64 processId, quint32 random);
// Whether `fileName` is such a temporary file (of any process).
bool isTemporaryFile(const QString& fileName);

} // namespace platform::internal::CloudFileNames
