// The sync passcode: in memory, saved in the keychain for both processes, or asked for each time.
#include "marlockCompanionCommon/sync/iCloudManager.h"

#include "marlockCompanionCommon/keychain/FXKeychain.h"
#include "marlockCompanionCommon/platform/keychain/KeychainServices.h"
#include "marlockCompanionCommon/platform/runtime/FatalError.h"
#include "marlockCompanionCommon/platform/storage/UserDefaults.h"
#include "marlockCompanionCommon/sync/internal/SyncKeys.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QGuiApplication>

#include <cstdio>

using namespace marlockCompanionCommon::sync::internal;

namespace {

void printStatus(platform::KeychainStatus status) {
    std::puts(qPrintable(platform::KeychainServices::copyErrorMessageString(status)));
    std::fflush(stdout);
}

// What the user knows the application by: the display name a GUI host set, else the name of a
// non-GUI host's application object (the executable's name unless set), else the product's name.
QString applicationLabel() {
    QString name;
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        name = QGuiApplication::applicationDisplayName();
    else if (QCoreApplication::instance())
        name = QCoreApplication::applicationName();
    return name.isEmpty() ? QStringLiteral("KORVA Companion") : name;
}

} // namespace

void iCloudManager::setPasscode(const std::optional<QString>& passcode) {
    passcode_ = passcode;
    if (iCloudEnabled())
        updateTokenRecordsFromiCloud(true);
}

bool iCloudManager::passcodeIsSaved() const {
    return !userDefaults_->boolForKey(askEachTimeKey);
}

void iCloudManager::setSavedPasscode(const std::optional<QString>& passcode) {
    setSavedPasscode(passcode, true);
}

bool iCloudManager::setSavedPasscode(const std::optional<QString>& passcode, platform::Error* error) {
    try {
        setSavedPasscode(passcode, true);
        return true;
    } catch (const Failure& failure) {
        platform::setError(error, failure.toPlatformError());
        return false;
    }
}

void iCloudManager::setSavedPasscode(const std::optional<QString>& passcode, bool notify) {
    if (passcode) {
        setPassword(*passcode);
    } else if (lockbox_) {
        platform::Error error;
        if (!lockbox_->removeObjectForKey(passwordKey, &error))
            throw Failure(error);
    }
    userDefaults_->setBool(!passcode.has_value(), askEachTimeKey);
    (void)userDefaults_->synchronize();
    // Nothing is posted in this process: the other one answers the name with its own
    // didChangeAskEachTimeExternallyNotification.
    if (notify)
        postDarwin(askEachTimeDarwinNotification);
}

void iCloudManager::setPassword(const QString& password) {
    if (!lockbox_)
        return;
    const std::optional<platform::KeychainAccess> access = secAccess();
    platform::Error error;
    if (!lockbox_->setObject(password, passwordKey, access ? &*access : nullptr, &error))
        throw Failure(error);
}

std::optional<QString> iCloudManager::getStoredPassword() const {
    if (!lockbox_)
        return std::nullopt;
    platform::Error error;
    const QVariant stored = lockbox_->objectForKey(passwordKey, &error);
    if (stored.isValid())
        return stored.typeId() == QMetaType::QString ? std::optional(stored.toString()) : std::nullopt;
    if (error.domain == FXKeychainErrorDomain && error.code == platform::KeychainStatusCode::itemNotFound)
        return std::nullopt;
    if (error.domain == FXKeychainErrorDomain && error.code == platform::KeychainStatusCode::authFailed)
        throw Failure(Error::keychainAccessDenied);
    throw Failure(error);
}

std::optional<platform::KeychainAccess> iCloudManager::secAccess() const {
    using platform::KeychainServices;
    QString program;
    if (KeychainServices::trustedApplicationCreateFromPath(std::nullopt, &program) !=
            platform::KeychainStatusCode::success ||
        program.isEmpty())
        platform::fatalError(QStringLiteral("The running program's own path cannot be found"));
    // The widget is installed beside the program (both in the same bin folder).
    QString widget;
    const QString widgetPath = QFileInfo(program).absolutePath() + QLatin1Char('/') + widgetProgramName;
    if (const platform::KeychainStatus status =
            KeychainServices::trustedApplicationCreateFromPath(widgetPath, &widget);
        status != platform::KeychainStatusCode::success) {
        printStatus(status);
        return std::nullopt;
    }
    platform::KeychainAccess access;
    if (const platform::KeychainStatus status =
            KeychainServices::accessCreate(applicationLabel(), {program, widget}, &access);
        status != platform::KeychainStatusCode::success) {
        printStatus(status);
        return std::nullopt;
    }
    return access;
}
