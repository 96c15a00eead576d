#pragma once

#include <QString>

// The names the sync manager stores and posts under. Both processes and every installed version
// read them, so they never change.
namespace marlockCompanionCommon::sync::internal {

// Settings in the application group's suite.
inline const QString enabledKey = QStringLiteral("iCloudEnabled");
inline const QString askEachTimeKey = QStringLiteral("iCloudAskForPasscodeEachTime");
inline const QString lastErrorKey = QStringLiteral("iCloudSyncLastError");
// The saved passcode's keychain key.
inline const QString passwordKey = QStringLiteral("iCloudDecryptionPassword");
// The encrypted token data's key in the cloud store.
inline const QString tokensKey = QStringLiteral("tokens");
// The names told to the other process.
inline const QString settingsDarwinNotification =
    QStringLiteral("iCloudManagerDidChangeSettingsDarwinNotification");
inline const QString askEachTimeDarwinNotification =
    QStringLiteral("iCloudManagerDidChangeAskEachTimeDarwinNotification");

} // namespace marlockCompanionCommon::sync::internal
