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
// are property-list values (see PropertyList.h). Writes go to memory and reach the file on
// synchronize(), which also takes in what other processes wrote: under the lock file
// "<file>.lock" it re-reads the file, lays this process's changed keys (removals included) over
// it, and replaces the file atomically (fsynced). So two processes writing different keys lose
// nothing. Reads come from memory too, after one stat of the file: when another process has
// replaced it since, its content is taken in under this process's pending changes. So a value
// the other process has synchronized is seen here without calling synchronize().
//
// Registration defaults are kept in memory only and answer for keys that hold no value.
//
// An unreadable or corrupt file is logged to the system log, renamed to
// "<file>.corrupt-<UTC time>" (kept, never overwritten) and treated as empty: never a crash.
//
// Instances are shared per settings file and live for the process. Thread-safe.
//
//   UserDefaults* defaults = UserDefaults::suiteNamed(Identity::applicationGroup());
//   defaults->setBool(true, "iCloudEnabled");
//   defaults->synchronize();
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

    // Writes this process's changes and reads the other processes'. False when the file could
    // not be written (the changes stay pending for the next call).
    bool synchronize();

private:
    UserDefaults(const QString& suiteName, const QString& filePath);
    static UserDefaults* open(const QString& suiteName);
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace platform
