#include "marlockCompanionCommon/keychain/FXKeychain.h"

#include "marlockCompanionCommon/keychain/internal/FXKeychainCoding.h"
#include "marlockCompanionCommon/platform/keychain/KeychainServices.h"
#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "marlockCompanionCommon/platform/runtime/SystemLog.h"

#include <array>
#include <mutex>

using platform::Error;
using platform::KeychainStatus;
namespace Code = platform::KeychainStatusCode;

namespace {

// Accessibility index → the attribute value written on every store.
const std::array<QString, 6>& accessibleValues() {
    static const std::array<QString, 6> values = {
        platform::KeychainAccessible::whenUnlocked,
        platform::KeychainAccessible::afterFirstUnlock,
        platform::KeychainAccessible::always,
        platform::KeychainAccessible::whenUnlockedThisDeviceOnly,
        platform::KeychainAccessible::afterFirstUnlockThisDeviceOnly,
        platform::KeychainAccessible::alwaysThisDeviceOnly,
    };
    return values;
}

Error keychainError(qint64 code) {
    return Error(FXKeychainErrorDomain, code);
}

// An error as the log shows it, "(null)" for none.
QString logText(const std::optional<Error>& error) {
    if (!error)
        return QStringLiteral("(null)");
    return QStringLiteral("Error Domain=%1 Code=%2 \"%3\"")
        .arg(error->domain)
        .arg(error->code)
        .arg(error->description());
}

} // namespace

FXKeychain& FXKeychain::defaultKeychain() {
    static std::once_flag once;
    static FXKeychain* instance = nullptr;
    std::call_once(
        once, [] { instance = new FXKeychain(platform::Identity::bundleIdentifier(), std::nullopt, 0); });
    return *instance;
}

FXKeychain::FXKeychain(std::optional<QString> service, std::optional<QString> accessGroup,
                       unsigned accessibility, std::shared_ptr<platform::KeychainServices> services)
    : service_(std::move(service))
    , accessGroup_(std::move(accessGroup))
    , accessibility_(accessibility)
    , services_(services ? std::move(services) : platform::KeychainServices::shared()) {}

FXKeychain::~FXKeychain() = default;

platform::KeychainQuery FXKeychain::query(const QString& key) const {
    platform::KeychainQuery q{platform::KeychainClass::genericPassword, std::nullopt, key};
    if (service_ && !service_->isEmpty())
        q.service = *service_;
    return q;
}

std::optional<QByteArray> FXKeychain::dataForKey(const QString& key, Error* error) const {
    QByteArray data;
    const KeychainStatus status = services_->copyMatchingData(query(key), &data);
    if (status == Code::success)
        return data;
    platform::setError(error, keychainError(status));
    if (status != Code::itemNotFound)
        platform::systemLog(QStringLiteral("FXKeychain failed to retrieve data for key '%1', error: %2")
                                .arg(key)
                                .arg(status));
    return std::nullopt;
}

QVariant FXKeychain::objectForKey(const QString& key, Error* error) const {
    const std::optional<QByteArray> data = dataForKey(key, error);
    if (!data)
        return QVariant();
    std::optional<Error> parseError;
    QVariant result = keychain::internal::decode(*data, &parseError);
    if (!result.isValid()) {
        platform::setError(error, parseError ? *parseError : keychainError(undecodableDataError));
        platform::systemLog(QStringLiteral("FXKeychain failed to decode data for key '%1', error: %2")
                                .arg(key, logText(parseError)));
    }
    return result;
}

QVariant FXKeychain::objectForKeyedSubscript(const QString& key) const {
    return objectForKey(key, nullptr);
}

bool FXKeychain::setObject(const QVariant& object, const QString& key, const platform::KeychainAccess* access,
                           Error* error) {
    const platform::KeychainQuery itemQuery = query(key);
    const keychain::internal::Encoding encoding = keychain::internal::encode(object, error);
    // A property-list value that cannot be written: the value stored before stays.
    if (encoding.failed)
        return false;
    if (const std::optional<QByteArray>& encoded = encoding.bytes) {
        platform::systemLog(QStringLiteral("Data size: %1 bytes").arg(encoded->size()));
        platform::KeychainAttributes attributes;
        attributes.data = *encoded;
        attributes.accessible = accessibleValues().at(accessibility_);
        if (access)
            attributes.access = *access;
        // The existence check reports into the caller's error on purpose: a new key leaves
        // -25300 there although the store below succeeds.
        const bool exists = dataForKey(key, error).has_value();
        const KeychainStatus status =
            exists ? services_->itemUpdate(itemQuery, attributes) : services_->itemAdd(itemQuery, attributes);
        if (status != Code::success) {
            platform::setError(error, keychainError(status));
            platform::systemLog(QStringLiteral("FXKeychain failed to store data for key '%1', error: %2")
                                    .arg(key)
                                    .arg(status));
            return false;
        }
        return true;
    }

    // Nothing to store (nil, or an object without an encoding): the key's item goes.
    if (!objectForKeyedSubscript(key).isValid())
        return true;
    std::unique_ptr<platform::KeychainItem> item;
    KeychainStatus status = services_->copyMatchingItem(itemQuery, &item);
    if (status == Code::success)
        status = services_->itemDelete(*item);
    if (status != Code::success) {
        platform::setError(error, keychainError(status));
        platform::systemLog(
            QStringLiteral("FXKeychain failed to delete data for key '%1', error: %2").arg(key).arg(status));
        return false;
    }
    return true;
}

bool FXKeychain::setObject(const QVariant& object, const QString& key, Error* error) {
    return setObject(object, key, nullptr, error);
}

void FXKeychain::setObjectForKeyedSubscript(const QVariant& object, const QString& key) {
    (void)setObject(object, key, nullptr, nullptr);
}

bool FXKeychain::removeObjectForKey(const QString& key, Error* error) {
    return setObject(QVariant(), key, error);
}

bool FXKeychain::deleteAllKeysForSecClass(const QString& secClass, Error* error) {
    const KeychainStatus status =
        services_->itemDelete(platform::KeychainQuery{secClass, std::nullopt, std::nullopt});
    if (status == Code::success || status == Code::itemNotFound)
        return true;
    platform::setError(error, keychainError(status));
    platform::systemLog(QStringLiteral("Error deleting keychain data (%1)").arg(status));
    return false;
}

bool FXKeychain::resetKeychain(Error* error) {
    const QString classes[] = {platform::KeychainClass::genericPassword,
                               platform::KeychainClass::internetPassword,
                               platform::KeychainClass::certificate, platform::KeychainClass::key,
                               platform::KeychainClass::identity};
    std::optional<Error> failure;
    for (const QString& secClass : classes) {
        Error local;
        if (!deleteAllKeysForSecClass(secClass, &local)) {
            failure = local;
            break;
        }
    }
    // Without an out-parameter the failure has nowhere to go, and the answer stays true.
    if (error && failure) {
        *error = *failure;
        return false;
    }
    return true;
}

std::unique_ptr<platform::KeychainItem> FXKeychain::newKeychainItemForKey(const QString& key, Error*) {
    // The older lookup takes byte pointers with lengths; it has always been given each string's
    // character count as its length, so a non-ASCII name is cut short the same way here.
    const QString service = service_.value_or(QString());
    const QByteArray serviceBytes = service.toUtf8().left(service.length());
    const QByteArray accountBytes = key.toUtf8().left(key.length());
    QByteArray content;
    std::unique_ptr<platform::KeychainItem> item;
    const KeychainStatus status = services_->findGenericPassword(serviceBytes, accountBytes, &content, &item);
    // "%s": the content up to its first NUL byte, "(null)" when there is none.
    platform::systemLog(status == Code::success ? QString::fromUtf8(content.constData())
                                                : QStringLiteral("(null)"));
    return status == Code::success ? std::move(item) : nullptr;
}
