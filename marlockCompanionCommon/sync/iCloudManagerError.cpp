#include "marlockCompanionCommon/sync/iCloudManagerError.h"

#include <array>

namespace {

struct Case {
    iCloudManagerError error;
    QLatin1String rawValue;
};
constexpr std::array cases = {
    Case{iCloudManagerError::tokenDataInvalid, QLatin1String("TokenDataInvalid")},
    Case{iCloudManagerError::iCloudNotEnabled, QLatin1String("iCloudNotEnabled")},
    Case{iCloudManagerError::incorrectPassword, QLatin1String("IncorrectPassword")},
    Case{iCloudManagerError::keychainAccessDenied, QLatin1String("KeychainAccessDenied")},
};

} // namespace

QString iCloudManagerErrorRawValue(iCloudManagerError error) {
    for (const Case& c : cases)
        if (c.error == error)
            return c.rawValue;
    return {};
}

std::optional<iCloudManagerError> iCloudManagerErrorFromRawValue(const QString& rawValue) {
    for (const Case& c : cases)
        if (rawValue == c.rawValue)
            return c.error;
    return std::nullopt;
}

platform::Error iCloudManagerErrorToPlatformError(iCloudManagerError error) {
    return platform::Error(iCloudManagerErrorDomain, static_cast<int>(error));
}

iCloudManagerFailure::iCloudManagerFailure(iCloudManagerError error)
    : error_(error)
    , platformError_(iCloudManagerErrorToPlatformError(error))
    , what_(("iCloudManager.Error." + iCloudManagerErrorRawValue(error)).toStdString()) {}

iCloudManagerFailure::iCloudManagerFailure(platform::Error passedThrough)
    : platformError_(std::move(passedThrough))
    , what_(platformError_.description().toStdString()) {}
