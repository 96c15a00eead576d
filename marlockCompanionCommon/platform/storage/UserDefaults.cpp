#include "marlockCompanionCommon/platform/storage/UserDefaults.h"

#include "marlockCompanionCommon/platform/runtime/FatalError.h"
#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"
#include "marlockCompanionCommon/platform/storage/PropertyList.h"
#include "marlockCompanionCommon/platform/storage/internal/UserDefaultsStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QLocale>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <mutex>

namespace platform {
namespace {

// How long a write waits in memory before it is saved by itself: long enough that a burst of
// writes (a slider being dragged) costs one save, short enough that little is lost on a crash.
constexpr qint64 saveDelayNs = 100'000'000;

// $XDG_CONFIG_HOME, or ~/.config when it is unset or relative (the XDG base directory rules).
QString configHome() {
    const QString configured = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (!configured.isEmpty() && QDir::isAbsolutePath(configured))
        return QDir::cleanPath(configured);
    return QDir::homePath() + QStringLiteral("/.config");
}

bool isValidSuiteName(const QString& name) {
    return !name.isEmpty() && !name.contains(QLatin1Char('/')) && !name.contains(QChar(0)) &&
           name != QLatin1String(".") && name != QLatin1String("..");
}

// The value as a property list stores it (int becomes qint64, QStringList a QVariantList, …), so
// that this process reads back exactly what a fresh process reads from the file.
QVariant canonical(const QVariant& value, const QString& key) {
    Error error;
    const std::optional<QByteArray> bytes = PropertyList::write(value, PropertyList::Format::Binary, &error);
    if (!bytes)
        fatalError(
            QStringLiteral("Attempt to store a non-property-list value for key \"%1\" in user defaults: %2")
                .arg(key, error.description()));
    return *PropertyList::read(*bytes);
}

} // namespace

struct UserDefaults::Private {
    Private(QString name, QString path)
        : suiteName(std::move(name))
        , store(std::move(path)) {}
    const QString suiteName;
    internal::UserDefaultsStore store;
    // A save is queued on the main thread and has not started yet.
    std::atomic<bool> saveQueued{false};
};

namespace {

// One instance per settings file. Instances live for the process, so the registry is never
// torn down: a thread still using one during exit must not find it destroyed.
struct Registry {
    std::mutex mutex;
    std::map<QString, std::unique_ptr<UserDefaults>> byPath;
};

Registry& registry() {
    static Registry* const instance = new Registry; // deliberately never deleted, see above
    return *instance;
}

} // namespace

UserDefaults* UserDefaults::standardUserDefaults() {
    return open(Identity::bundleIdentifier());
}

UserDefaults* UserDefaults::suiteNamed(const QString& suiteName) {
    if (!isValidSuiteName(suiteName) || suiteName == Identity::bundleIdentifier())
        return nullptr;
    return open(suiteName);
}

UserDefaults* UserDefaults::open(const QString& suiteName) {
    const QString path = configHome() + QLatin1Char('/') + suiteName + QStringLiteral(".plist");
    Registry& shared = registry();
    // Registered once the first suite is open, so it runs before the teardown of what Qt and the
    // process set up earlier. The application object is usually gone by then; saving needs
    // nothing of it.
    static std::once_flag exitSave;
    std::call_once(exitSave, [] { std::atexit(&UserDefaults::saveEverySuiteAtExit); });
    std::lock_guard guard(shared.mutex);
    std::unique_ptr<UserDefaults>& slot = shared.byPath[path];
    if (!slot)
        slot.reset(new UserDefaults(suiteName, path));
    return slot.get();
}

UserDefaults::UserDefaults(const QString& suiteName, const QString& filePath)
    : d(std::make_unique<Private>(suiteName, filePath)) {}

UserDefaults::~UserDefaults() = default;

QString UserDefaults::suiteName() const {
    return d->suiteName;
}
QString UserDefaults::filePath() const {
    return d->store.filePath();
}

QVariant UserDefaults::objectForKey(const QString& key) const {
    return d->store.value(key);
}

bool UserDefaults::boolForKey(const QString& key) const {
    const QVariant value = objectForKey(key);
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::LongLong:
        return value.toLongLong() != 0;
    case QMetaType::Double:
        return value.toDouble() != 0;
    case QMetaType::QString: {
        const QString text = value.toString().trimmed().toLower();
        return text == QLatin1String("yes") || text == QLatin1String("true") || text.toLongLong() != 0;
    }
    default:
        return false;
    }
}

qint64 UserDefaults::integerForKey(const QString& key) const {
    const QVariant value = objectForKey(key);
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::LongLong:
        return value.toLongLong();
    case QMetaType::Double: {
        const double real = value.toDouble();
        // Out of range (or NaN) has no integer; 2^63 itself is not representable either.
        if (!(real > -9223372036854775808.0 && real < 9223372036854775808.0))
            return 0;
        return static_cast<qint64>(real);
    }
    case QMetaType::QString:
        return value.toString().trimmed().toLongLong();
    default:
        return 0;
    }
}

double UserDefaults::doubleForKey(const QString& key) const {
    const QVariant value = objectForKey(key);
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::LongLong:
    case QMetaType::Double:
        return value.toDouble();
    case QMetaType::QString:
        return value.toString().trimmed().toDouble();
    default:
        return 0;
    }
}

QString UserDefaults::stringForKey(const QString& key) const {
    const QVariant value = objectForKey(key);
    switch (value.typeId()) {
    case QMetaType::QString:
        return value.toString();
    case QMetaType::LongLong:
        return QString::number(value.toLongLong());
    case QMetaType::Double:
        return QString::number(value.toDouble(), 'g', QLocale::FloatingPointShortest);
    default:
        return {};
    }
}

QByteArray UserDefaults::dataForKey(const QString& key) const {
    const QVariant value = objectForKey(key);
    return value.typeId() == QMetaType::QByteArray ? value.toByteArray() : QByteArray();
}

void UserDefaults::setObject(const QVariant& value, const QString& key) {
    d->store.setValue(key, value.isValid() ? canonical(value, key) : QVariant());
    queueSave();
}

void UserDefaults::setBool(bool value, const QString& key) {
    d->store.setValue(key, value);
    queueSave();
}
void UserDefaults::setInteger(qint64 value, const QString& key) {
    d->store.setValue(key, value);
    queueSave();
}
void UserDefaults::setDouble(double value, const QString& key) {
    d->store.setValue(key, value);
    queueSave();
}
void UserDefaults::removeObjectForKey(const QString& key) {
    d->store.setValue(key, QVariant());
    queueSave();
}

// One save is queued at a time: writes made before it starts are all in it, and a write made
// after it has started queues the next one. Writes on any thread queue it on the main thread,
// which owns the event loop. Without an application object nothing can be queued, and the save
// at exit takes the changes.
void UserDefaults::queueSave() {
    if (d->saveQueued.exchange(true))
        return;
    if (!QCoreApplication::instance()) {
        d->saveQueued = false;
        return;
    }
    dispatchAfterMain(saveDelayNs, [this] {
        d->saveQueued = false;
        savePendingChanges();
    });
}

void UserDefaults::saveEverySuiteAtExit() {
    Registry& shared = registry();
    std::lock_guard guard(shared.mutex);
    for (const auto& [path, defaults] : shared.byPath)
        defaults->savePendingChanges();
}

void UserDefaults::savePendingChanges() {
    // A failed save keeps the changes pending: the next write, synchronize() or the exit retries.
    if (d->store.hasPendingChanges())
        (void)d->store.synchronize();
}

void UserDefaults::registerDefaults(const QVariantMap& defaults) {
    QVariantMap values;
    for (auto it = defaults.begin(); it != defaults.end(); ++it)
        values.insert(it.key(), canonical(it.value(), it.key()));
    d->store.registerDefaults(values);
}

bool UserDefaults::synchronize() {
    return d->store.synchronize();
}

} // namespace platform
