#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QByteArray>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <memory>

namespace platform {

// A typed key-value settings store shared by every process of the user that opens the same
// suite: the companion app and its widget share the application group's suite.
//
// A suite lives in one binary property-list file, $XDG_CONFIG_HOME/<suite name>.plist
// (~/.config when XDG_CONFIG_HOME is unset or relative; read when the suite is opened). Values
// are property-list values (see PropertyList.h).
//
// Writes land in memory at once and reach the file by themselves: about 0.1 s later on the main
// thread's event loop (a burst of writes makes one save), and when the process exits normally
// (main returns or exit() is called, with or without an event loop). synchronize() saves now,
// and also takes in what other processes wrote. A save takes the lock on "<file>.lock",
// re-reads the file, lays this process's changed keys (removals included) over it, and replaces
// the file atomically (fsynced), so two processes writing different keys lose nothing. The lock
// is a kernel lock (flock): a writer that dies, however abruptly, releases it, so it never keeps
// the others waiting; the lock file stays on disk and is harmless. A save cut short by a kill
// leaves the previous file intact and at most a "<file>.saving" beside it, which the next
// process to open the suite removes.
//
// Reads come from memory too, after one stat of the file: when another process has replaced it
// since, its content is taken in under this process's pending changes. So a value the other
// process has saved is seen here without calling synchronize().
//
// Registration defaults are kept in memory only and answer for keys that hold no value.
//
// An unreadable or corrupt file is logged to the system log, renamed to
// "<file>.corrupt-<UTC time>" (kept, never overwritten) and treated as empty: never a crash.
//
// Instances are shared per settings file and live for the process. Thread-safe: writes from any
// thread are saved by the main thread's event loop (or at exit).
//
//   UserDefaults* defaults = UserDefaults::suiteNamed(Identity::applicationGroup());
//   defaults->setBool(true, "iCloudEnabled");   // saved shortly, or at exit
//   defaults->synchronize();                    // or now
class MCC_EXPORT UserDefaults {
public:
    // The process's own store, named by the bundle identifier.
    static UserDefaults* standardUserDefaults();

    // The shared instance for `suiteName`, or null when the name can't name a suite (empty, "."
    // or "..", containing '/' or NUL, or the bundle identifier itself, which is the standard
    // store's). The file's folder is read from the environment on each call.
    static UserDefaults* suiteNamed(const QString& suiteName);

    ~UserDefaults();
    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;

    QString suiteName() const;
    QString filePath() const;

    // The stored value, else the registered default, else an invalid QVariant.
    QVariant objectForKey(const QString& key) const;
    // Typed reads: the value converted, or false / 0 / empty when absent or of another type.
    bool boolForKey(const QString& key) const;
    qint64 integerForKey(const QString& key) const;
    double doubleForKey(const QString& key) const;
    QString stringForKey(const QString& key) const;
    QByteArray dataForKey(const QString& key) const;

    // Stores a property-list value; an invalid QVariant removes the key. A value no property
    // list can hold (see PropertyList.h) is a programming error and stops the process.
    void setObject(const QVariant& value, const QString& key);
    void setBool(bool value, const QString& key);
    void setInteger(qint64 value, const QString& key);
    void setDouble(double value, const QString& key);
    void removeObjectForKey(const QString& key);

    // Adds to the registration defaults (replacing equal keys); property-list values only, as
    // for setObject().
    void registerDefaults(const QVariantMap& defaults);

    // Saves this process's changes now and reads the other processes'. False when the file
    // could not be written (the changes stay pending for the next save).
    bool synchronize();

private:
    void queueSave();
    // Saves when changes are pending; a failure leaves them pending.
    void savePendingChanges();
    // Saves what is still pending when the process exits normally (main returns, exit()),
    // whether or not an event loop ever ran.
    static void saveEverySuiteAtExit();
    UserDefaults(const QString& suiteName, const QString& filePath);
    static UserDefaults* open(const QString& suiteName);
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace platform
