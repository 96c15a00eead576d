// Moving token records between the manager and the cloud store: encrypting and publishing,
// reading and decrypting, and switching sync on, re-keying, switching it off and erasing it.
#include "marlockCompanionCommon/sync/iCloudManager.h"

#include "marlockCommon/OTPToken.h"
#include "marlockCompanionCommon/RNCryptor/RNCryptor.h"
#include "marlockCompanionCommon/keychain/FXKeychain.h"
#include "marlockCompanionCommon/keychain/KeyedArchiverAdditions.h"
#include "marlockCompanionCommon/platform/keychain/KeychainStatus.h"
#include "marlockCompanionCommon/platform/runtime/FatalError.h"
#include "marlockCompanionCommon/platform/runtime/NotificationCenter.h"
#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStore.h"
#include "marlockCompanionCommon/platform/storage/UserDefaults.h"
#include "marlockCompanionCommon/sync/internal/SyncKeys.h"

using namespace marlockCompanionCommon::sync::internal;
using marlockCommon::OTPToken;
using marlockCommon::SecureCoding;

namespace {

// The classes a token archive may hold; anything else in it fails to unarchive.
const QStringList& tokenArchiveClasses() {
    static const QStringList classes = {QStringLiteral("NSArray"), OTPToken::archivedClassName(),
                                        QStringLiteral("NSNumber"), QStringLiteral("NSValue")};
    return classes;
}

// Runs a throwing operation for a caller that wants an error object instead.
template <typename Operation> bool reporting(platform::Error* error, Operation operation) {
    try {
        operation();
        return true;
    } catch (const iCloudManagerFailure& failure) {
        platform::setError(error, failure.toPlatformError());
        return false;
    }
}

} // namespace

std::optional<QByteArray> iCloudManager::storedEncryptedTokenData() {
    return ubiquitousStore()->dataForKey(tokensKey);
}

std::optional<iCloudManager::TokenRecords>
iCloudManager::decryptTokenDataWithPassword(const QString& password) {
    const std::optional<QByteArray> data = storedEncryptedTokenData();
    if (!data)
        return std::nullopt;
    QByteArray archive;
    try {
        archive = RNCryptor::decrypt(*data, password);
    } catch (const RNCryptor::Error&) {
        return std::nullopt; // a wrong passcode, damaged or foreign data: all the same to the caller
    }
    const std::optional<QVariant> root = jr_unarchiveData(archive, true, tokenArchiveClasses());
    if (!root)
        return std::nullopt;
    // The archive opened with the passcode, so it was written by someone who holds it: a root of
    // another shape is a program error on that side, not damage, and stops here.
    if (root->typeId() != QMetaType::QVariantList)
        platform::fatalError(QStringLiteral("Could not cast value of type '%1' to 'NSArray<OTPToken>'")
                                 .arg(QString::fromLatin1(root->typeName())));
    TokenRecords records;
    for (const QVariant& element : root->toList()) {
        const auto token =
            std::dynamic_pointer_cast<OTPToken>(element.value<std::shared_ptr<SecureCoding>>());
        if (!token)
            platform::fatalError(QStringLiteral("Could not cast an element of type '%1' to 'OTPToken'")
                                     .arg(QString::fromLatin1(element.typeName())));
        records.append(token->toTokenRecord());
    }
    return records;
}

void iCloudManager::setTokenRecords(const TokenRecords& records) {
    if (!iCloudEnabled())
        throw Failure(Error::iCloudNotEnabled);
    const std::optional<QString> password = getStoredPassword();
    if (!password)
        return; // asking each time and nothing saved: there is no passcode to write with
    QVariantList tokens;
    tokens.reserve(records.size());
    for (const marlockCommon::TokenRecord& record : records)
        tokens.append(QVariant::fromValue(std::shared_ptr<SecureCoding>(record.toOTPToken())));
    platform::Error archiveError;
    const std::optional<QByteArray> archive = jr_archivedDataWithRootObject(tokens, true, &archiveError);
    if (!archive)
        throw Failure(archiveError);
    if (password->isEmpty())
        platform::fatalError(QStringLiteral("An empty passcode reached the token encryption"));
    const QByteArray ciphertext = RNCryptor::EncryptorV3(*password, RNCryptor::randomData(8),
                                                         RNCryptor::randomData(8), RNCryptor::randomData(16))
                                      .encrypt(*archive);
    if (ciphertext.size() > maximumTokenDataSize)
        throw Failure(Error::tokenDataInvalid);
    platform::UbiquitousKeyValueStore* store = ubiquitousStore();
    store->setData(ciphertext, tokensKey);
    store->synchronize();
    announceSettingsChange();
}

void iCloudManager::updateTokenRecordsFromiCloud(bool notify) {
    const auto fail = [&](Error reason) {
        if (!notify)
            return;
        passcode_.reset();
        setLastError(reason);
        platform::NotificationCenter::defaultCenter().post(
            couldNotRetrieveTokenRecordsNotification, this,
            {{errorReasonKey, iCloudManagerErrorRawValue(reason)}});
    };
    tokenRecords_.reset();
    if (!storedEncryptedTokenData())
        return fail(Error::iCloudNotEnabled); // no data is what sync that was never set up looks like
    const bool askEachTime = userDefaults_->boolForKey(askEachTimeKey);
    if (iCloudEnabled() && !passcode_ && askEachTime)
        return; // the records wait until the user enters the passcode
    QString password;
    if (!askEachTime) {
        std::optional<QString> saved;
        try {
            saved = getStoredPassword();
        } catch (const Failure& failure) {
            if (failure.error())
                return fail(*failure.error());
            const platform::Error error = failure.toPlatformError();
            if (error.domain == FXKeychainErrorDomain &&
                error.code == platform::KeychainStatusCode::itemNotFound)
                return fail(Error::incorrectPassword);
            return; // the keychain is unavailable for now: nothing to tell the user yet
        }
        if (!saved)
            return fail(Error::incorrectPassword);
        password = *saved;
    } else {
        if (!passcode_)
            return fail(Error::incorrectPassword);
        password = *passcode_;
    }
    std::optional<TokenRecords> records = decryptTokenDataWithPassword(password);
    if (!records)
        return fail(Error::incorrectPassword);
    tokenRecords_ = std::move(records);
    setLastError(std::nullopt);
    if (notify)
        platform::NotificationCenter::defaultCenter().post(tokenRecordsDidChangeExternallyNotification, this);
}

void iCloudManager::enableiCloudWithPassword(const QString& password, bool save) {
    (void)ubiquitousStore()->synchronize();
    passcode_ = password;
    setSavedPasscode(save ? std::optional(password) : std::nullopt, false);
    userDefaults_->setBool(true, enabledKey);
    (void)userDefaults_->synchronize();
    // Not tested against the data: a wrong passcode leaves the records absent, silently.
    updateTokenRecordsFromiCloud(false);
    announceSettingsChange();
}

void iCloudManager::changePassword(const QString& password) {
    if (!iCloudEnabled())
        throw Failure(Error::iCloudNotEnabled);
    const std::optional<QString> current = getStoredPassword();
    if (!current)
        throw Failure(Error::incorrectPassword);
    const std::optional<TokenRecords> records = decryptTokenDataWithPassword(*current);
    if (!records)
        throw Failure(Error::incorrectPassword);
    setPassword(password);
    setTokenRecords(*records); // encrypts under the passcode just saved
}

void iCloudManager::disableiCloud() {
    userDefaults_->removeObjectForKey(lastErrorKey);
    passcode_.reset();
    userDefaults_->setBool(false, enabledKey);
    userDefaults_->setBool(false, askEachTimeKey);
    if (lockbox_) {
        platform::Error error;
        if (!lockbox_->removeObjectForKey(passwordKey, &error))
            throw Failure(error);
    }
    (void)userDefaults_->synchronize();
    tokenRecords_.reset();
    announceSettingsChange();
}

void iCloudManager::resetiCloudData() {
    ubiquitousStore()->removeObjectForKey(tokensKey);
    disableiCloud();
}

bool iCloudManager::setTokenRecords(const TokenRecords& records, platform::Error* error) {
    return reporting(error, [&] { setTokenRecords(records); });
}

bool iCloudManager::enableiCloudWithPassword(const QString& password, bool save, platform::Error* error) {
    return reporting(error, [&] { enableiCloudWithPassword(password, save); });
}

bool iCloudManager::changePassword(const QString& password, platform::Error* error) {
    return reporting(error, [&] { changePassword(password); });
}

bool iCloudManager::disableiCloud(platform::Error* error) {
    return reporting(error, [&] { disableiCloud(); });
}

bool iCloudManager::resetiCloudData(platform::Error* error) {
    return reporting(error, [&] { resetiCloudData(); });
}
