#include "marlockCompanionCommon/platform/storage/webdav/WebdavConfiguration.h"

#include "marlockCompanionCommon/platform/keychain/KeychainServices.h"
#include "marlockCompanionCommon/platform/storage/UserDefaults.h"

#include <QRegularExpression>

namespace platform {
namespace {

// The environment's value when set, else the suite's.
QString setting(UserDefaults* suite, const char* variable, const QString& key) {
    const QString fromEnvironment = qEnvironmentVariable(variable);
    if (!fromEnvironment.isEmpty() || !suite)
        return fromEnvironment;
    return suite->stringForKey(key);
}

KeychainQuery passwordQuery(const QUrl& serverUrl, const QString& user) {
    return {KeychainClass::internetPassword, serverUrl.toString(QUrl::RemoveUserInfo), user};
}

} // namespace

QUrl WebdavConfiguration::collectionUrl() const {
    QUrl url = serverUrl;
    QString path = url.path(QUrl::FullyEncoded);
    if (!path.endsWith(QLatin1Char('/')))
        path += QLatin1Char('/');
    path += QString::fromLatin1(QUrl::toPercentEncoding(collection)) + QLatin1Char('/');
    url.setPath(path, QUrl::StrictMode);
    url.setUserInfo(QString());
    return url;
}

bool WebdavConfiguration::isSelected(UserDefaults* suite) {
    return setting(suite, "MARLOCK_CLOUD_BACKEND", backendKey) == QLatin1String("webdav");
}

WebdavConfiguration WebdavConfiguration::fromSettings(UserDefaults* suite) {
    WebdavConfiguration configuration;
    configuration.serverUrl = QUrl(setting(suite, "MARLOCK_WEBDAV_URL", urlKey), QUrl::StrictMode);
    configuration.collection = setting(suite, "MARLOCK_WEBDAV_COLLECTION", collectionKey);
    configuration.user = setting(suite, "MARLOCK_WEBDAV_USER", userKey);
    configuration.pinnedCertificateSha256 =
        parseFingerprint(setting(suite, "MARLOCK_WEBDAV_CERTIFICATE_SHA256", certificateKey));
    configuration.password = storedPassword(configuration.serverUrl, configuration.user).value_or(QString());
    return configuration;
}

QByteArray WebdavConfiguration::parseFingerprint(const QString& text) {
    QString hex = text.trimmed();
    hex.remove(QLatin1Char(':'));
    static const QRegularExpression sha256Hex(QStringLiteral("^[0-9A-Fa-f]{64}$"));
    if (!sha256Hex.match(hex).hasMatch())
        return {};
    return QByteArray::fromHex(hex.toLatin1());
}

KeychainStatus WebdavConfiguration::savePassword(const QUrl& serverUrl, const QString& user,
                                                 const QString& password) {
    auto keychain = KeychainServices::shared();
    const KeychainQuery query = passwordQuery(serverUrl, user);
    KeychainAttributes attributes;
    attributes.data = password.toUtf8();
    const KeychainStatus updated = keychain->itemUpdate(query, attributes);
    if (updated != KeychainStatusCode::itemNotFound)
        return updated;
    return keychain->itemAdd(query, attributes);
}

std::optional<QString> WebdavConfiguration::storedPassword(const QUrl& serverUrl, const QString& user) {
    QByteArray secret;
    if (KeychainServices::shared()->copyMatchingData(passwordQuery(serverUrl, user), &secret) !=
        KeychainStatusCode::success)
        return std::nullopt;
    return QString::fromUtf8(secret);
}

} // namespace platform
