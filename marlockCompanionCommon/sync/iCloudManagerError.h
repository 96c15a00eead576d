#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/platform/runtime/Error.h"

#include <QString>

#include <exception>
#include <optional>
#include <string>

// Why token records could not be synced (iCloudManager::Error). The raw values are stored in the
// shared settings ("iCloudSyncLastError") and carried by notifications, so they never change;
// note "iCloudNotEnabled", the one that starts in lower case.
enum class iCloudManagerError : int {
    tokenDataInvalid = 0,     // "TokenDataInvalid": the encrypted records would exceed 512,000 bytes
    iCloudNotEnabled = 1,     // "iCloudNotEnabled": sync is off, or there is no token data in the store
    incorrectPassword = 2,    // "IncorrectPassword": the passcode is missing or does not open the data
    keychainAccessDenied = 3, // "KeychainAccessDenied": the keychain refused to give the saved passcode
};

// The error domain of iCloudManagerError as a platform::Error; the code is the case's ordinal.
inline const QString iCloudManagerErrorDomain = QStringLiteral("marlockCompanionCommon.iCloudManager.Error");

MCC_EXPORT QString iCloudManagerErrorRawValue(iCloudManagerError error);
// The case whose raw value is exactly `rawValue` (case-sensitive), or absent.
MCC_EXPORT std::optional<iCloudManagerError> iCloudManagerErrorFromRawValue(const QString& rawValue);
MCC_EXPORT platform::Error iCloudManagerErrorToPlatformError(iCloudManagerError error);

// What the throwing operations of iCloudManager throw (iCloudManager::Failure): either one of the
// manager's own errors, or an error of the layer below passed through unchanged — a keychain
// error (domain "FXKeychainErrorDomain", code = the keychain status) or an archiving error.
//
//   try {
//       manager->setTokenRecords(records);
//   } catch (const iCloudManager::Failure& failure) {
//       if (failure.error() == iCloudManager::Error::iCloudNotEnabled) …
//       show(failure.toPlatformError().description());
//   }
class MCC_EXPORT iCloudManagerFailure : public std::exception {
public:
    explicit iCloudManagerFailure(iCloudManagerError error);
    explicit iCloudManagerFailure(platform::Error passedThrough);

    // The manager's own error; absent when an error of another domain was passed through.
    std::optional<iCloudManagerError> error() const { return error_; }
    // As an error object: iCloudManagerErrorDomain and the ordinal, or the passed-through error.
    platform::Error toPlatformError() const { return platformError_; }
    operator platform::Error() const { return platformError_; }
    const char* what() const noexcept override { return what_.c_str(); }

private:
    std::optional<iCloudManagerError> error_;
    platform::Error platformError_;
    std::string what_;
};
