#include "marlockCompanionCommon/platform/keychain/KeychainServices.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <mutex>

namespace platform {
namespace {

std::mutex& sharedMutex() {
    static std::mutex mutex;
    return mutex;
}

std::shared_ptr<KeychainServices>& sharedSlot() {
    static std::shared_ptr<KeychainServices> slot;
    return slot;
}

// The query that selects exactly the item a reference names.
KeychainQuery queryFor(const KeychainItem& item) {
    return {item.itemClass, item.service, item.account};
}

} // namespace

KeychainServices::KeychainServices(std::unique_ptr<KeychainBackend> backend)
    : backend_(std::move(backend)) {}

KeychainServices::~KeychainServices() = default;

std::shared_ptr<KeychainServices> KeychainServices::shared() {
    std::lock_guard lock(sharedMutex());
    auto& slot = sharedSlot();
    if (!slot)
        slot = std::make_shared<KeychainServices>(makeSecretServiceKeychainBackend());
    return slot;
}

void KeychainServices::setShared(std::shared_ptr<KeychainServices> services) {
    std::lock_guard lock(sharedMutex());
    sharedSlot() = std::move(services);
}

KeychainStatus KeychainServices::itemAdd(const KeychainQuery& query, const KeychainAttributes& attributes) {
    if (query.itemClass.isEmpty())
        return KeychainStatusCode::param;
    KeychainRecord record;
    record.item.itemClass = query.itemClass;
    record.item.service = query.service.value_or(QString());
    record.item.account = query.account.value_or(QString());
    record.item.accessible = attributes.accessible.value_or(KeychainAccessible::whenUnlocked);
    record.item.access = attributes.access;
    record.data = attributes.data.value_or(QByteArray());
    return backend_->add(record);
}

KeychainStatus KeychainServices::itemUpdate(const KeychainQuery& query,
                                            const KeychainAttributes& attributes) {
    if (query.itemClass.isEmpty())
        return KeychainStatusCode::param;
    return backend_->update(query, attributes);
}

KeychainStatus KeychainServices::copyMatchingData(const KeychainQuery& query, QByteArray* data) {
    if (query.itemClass.isEmpty())
        return KeychainStatusCode::param;
    std::vector<KeychainRecord> records;
    const KeychainStatus status =
        backend_->find(query, {.data = true, .attributes = false, .limitOne = true}, &records);
    if (status != KeychainStatusCode::success)
        return status;
    if (records.empty())
        return KeychainStatusCode::itemNotFound;
    if (data)
        *data = records.front().data;
    return status;
}

KeychainStatus KeychainServices::copyMatchingItem(const KeychainQuery& query,
                                                  std::unique_ptr<KeychainItem>* item) {
    if (query.itemClass.isEmpty())
        return KeychainStatusCode::param;
    std::vector<KeychainRecord> records;
    const KeychainStatus status =
        backend_->find(query, {.data = false, .attributes = true, .limitOne = true}, &records);
    if (status != KeychainStatusCode::success)
        return status;
    if (records.empty())
        return KeychainStatusCode::itemNotFound;
    if (item)
        *item = std::make_unique<KeychainItem>(records.front().item);
    return status;
}

KeychainStatus KeychainServices::itemDelete(const KeychainQuery& query) {
    if (query.itemClass.isEmpty())
        return KeychainStatusCode::param;
    return backend_->remove(query);
}

KeychainStatus KeychainServices::itemDelete(const KeychainItem& item) {
    return itemDelete(queryFor(item));
}

KeychainStatus KeychainServices::findGenericPassword(const QByteArray& service, const QByteArray& account,
                                                     QByteArray* content,
                                                     std::unique_ptr<KeychainItem>* item) {
    KeychainQuery query{KeychainClass::genericPassword, std::nullopt, std::nullopt};
    if (!service.isEmpty())
        query.service = QString::fromUtf8(service);
    if (!account.isEmpty())
        query.account = QString::fromUtf8(account);
    std::vector<KeychainRecord> records;
    const KeychainStatus status = backend_->find(
        query, {.data = content != nullptr, .attributes = item != nullptr, .limitOne = true}, &records);
    if (status != KeychainStatusCode::success)
        return status;
    if (records.empty())
        return KeychainStatusCode::itemNotFound;
    if (content)
        *content = records.front().data;
    if (item)
        *item = std::make_unique<KeychainItem>(records.front().item);
    return status;
}

KeychainStatus KeychainServices::trustedApplicationCreateFromPath(const std::optional<QString>& path,
                                                                  QString* application) {
    QString resolved;
    if (!path) {
        // The calling program: its executable, as the kernel reports it.
        resolved = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
        if (resolved.isEmpty() && QCoreApplication::instance())
            resolved = QCoreApplication::applicationFilePath();
        if (resolved.isEmpty())
            return KeychainStatusCode::internalComponent;
    } else {
        if (path->isEmpty() || QDir::isRelativePath(*path))
            return KeychainStatusCode::param;
        // An application that is not installed yet is still trusted by its path.
        const QString canonical = QFileInfo(*path).canonicalFilePath();
        resolved = canonical.isEmpty() ? QDir::cleanPath(*path) : canonical;
    }
    if (application)
        *application = resolved;
    return KeychainStatusCode::success;
}

KeychainStatus KeychainServices::accessCreate(const QString& label, const QStringList& trustedApplications,
                                              KeychainAccess* access) {
    if (label.isEmpty())
        return KeychainStatusCode::param;
    if (access)
        *access = KeychainAccess{label, trustedApplications};
    return KeychainStatusCode::success;
}

QString KeychainServices::copyErrorMessageString(KeychainStatus status) {
    return keychainErrorMessage(status);
}

} // namespace platform
