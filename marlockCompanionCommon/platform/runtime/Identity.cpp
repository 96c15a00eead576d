#include "marlockCompanionCommon/platform/runtime/Identity.h"

#include <QtGlobal>

namespace platform::Identity {
namespace {

QString fromEnvironment(const char* variable, const QString& fallback) {
    const QString value = qEnvironmentVariable(variable);
    return value.isEmpty() ? fallback : value;
}

} // namespace

QString bundleIdentifier() {
    return fromEnvironment("MARLOCK_BUNDLE_IDENTIFIER", QStringLiteral("org.marlock.companion.desktopapp"));
}

QString teamPrefix() {
    return fromEnvironment("MARLOCK_TEAM_PREFIX", QStringLiteral("MRLK7Q2X9Z"));
}

QString applicationGroup() {
    return fromEnvironment("MARLOCK_APPLICATION_GROUP",
                           teamPrefix() + QStringLiteral(".group.") + bundleIdentifier());
}

QString keychainIdentifier() {
    return fromEnvironment("MARLOCK_KEYCHAIN_IDENTIFIER",
                           teamPrefix() + QLatin1Char('.') + bundleIdentifier());
}

} // namespace platform::Identity
