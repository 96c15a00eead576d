#include "marlockCompanionCommon/platform/runtime/Error.h"
#include "marlockCompanionCommon/platform/runtime/FatalError.h"
#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "marlockCompanionCommon/platform/runtime/SystemLog.h"

#include <gtest/gtest.h>

using namespace platform;

TEST(ErrorTest, DescriptionPrefersTheLocalizedTextAndOutParameterIsOptional) {
    Error plain(QStringLiteral("FXKeychainErrorDomain"), -25300);
    EXPECT_EQ(plain.description(), QStringLiteral("FXKeychainErrorDomain error -25300"));

    Error described(QStringLiteral("D"), 1,
                    {{Error::localizedDescriptionKey, QStringLiteral("The item was not found.")}});
    EXPECT_EQ(described.description(), QStringLiteral("The item was not found."));

    setError(nullptr, described); // must not crash
    Error out;
    setError(&out, described);
    EXPECT_EQ(out, described);
}

TEST(FatalErrorDeathTest, WritesUnitLineAndMessageThenAborts) {
    EXPECT_DEATH(fatalError(QStringLiteral("SECURITY FAILURE: boom"), "marlockCompanionCommon/RNCryptor", 42),
                 "^marlockCompanionCommon/RNCryptor:42: Fatal error: SECURITY FAILURE: boom\n");
    // The default unit is the calling file, from the repository root.
    EXPECT_DEATH(fatalError(QStringLiteral("stop")),
                 "^tests/platform/runtime/ErrorAndLogTest.cpp:[0-9]+: Fatal error: stop");
}

TEST(SystemLogTest, CaptureSeesMessagesAndNestedCapturesRestore) {
    QStringList outer, inner;
    {
        SystemLogCapture a([&](const QString& line) { outer << line; });
        systemLog(QStringLiteral("first"));
        {
            SystemLogCapture b([&](const QString& line) { inner << line; });
            systemLog(QStringLiteral("second"));
        }
        systemLog(QStringLiteral("third"));
    }
    systemLog(QStringLiteral("not captured"));
    EXPECT_EQ(outer, (QStringList{"first", "third"}));
    EXPECT_EQ(inner, (QStringList{"second"}));
}

TEST(IdentityTest, DefaultsAreDerivedAndEachCanBeOverridden) {
    const char* names[] = {"MARLOCK_BUNDLE_IDENTIFIER", "MARLOCK_TEAM_PREFIX", "MARLOCK_APPLICATION_GROUP",
                           "MARLOCK_KEYCHAIN_IDENTIFIER"};
    QByteArray saved[4];
    for (int i = 0; i < 4; ++i) {
        saved[i] = qgetenv(names[i]);
        qunsetenv(names[i]);
    }
    EXPECT_EQ(Identity::bundleIdentifier(), QStringLiteral("org.marlock.companion.desktopapp"));
    EXPECT_EQ(Identity::applicationGroup(),
              QStringLiteral("MRLK7Q2X9Z.group.org.marlock.companion.desktopapp"));
    EXPECT_EQ(Identity::keychainIdentifier(), QStringLiteral("MRLK7Q2X9Z.org.marlock.companion.desktopapp"));

    qputenv("MARLOCK_TEAM_PREFIX", "TEAM");
    EXPECT_EQ(Identity::applicationGroup(), QStringLiteral("TEAM.group.org.marlock.companion.desktopapp"));
    qputenv("MARLOCK_APPLICATION_GROUP", "custom.group");
    EXPECT_EQ(Identity::applicationGroup(), QStringLiteral("custom.group"));
    EXPECT_EQ(Identity::keychainIdentifier(), QStringLiteral("TEAM.org.marlock.companion.desktopapp"));

    for (int i = 0; i < 4; ++i)
        saved[i].isNull() ? (void)qunsetenv(names[i]) : (void)qputenv(names[i], saved[i]);
}
