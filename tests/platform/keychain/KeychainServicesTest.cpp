// Access objects, trusted applications and status messages: the parts of keychain services
// that do not depend on a backend.
#include "marlockCompanionCommon/platform/keychain/KeychainServices.h"

#include <QFileInfo>
#include <QSet>

#include <gtest/gtest.h>

using namespace platform;
namespace Code = platform::KeychainStatusCode;

TEST(KeychainServices, AccessObjectsNeedALabelAndTrustAbsolutePaths) {
    QString self;
    ASSERT_EQ(KeychainServices::trustedApplicationCreateFromPath(std::nullopt, &self), Code::success);
    EXPECT_EQ(self, QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath());
    EXPECT_TRUE(QFileInfo(self).isAbsolute());

    QString other;
    ASSERT_EQ(
        KeychainServices::trustedApplicationCreateFromPath(QStringLiteral("/usr/lib/../lib/widget"), &other),
        Code::success);
    EXPECT_EQ(other, "/usr/lib/widget");

    EXPECT_EQ(KeychainServices::trustedApplicationCreateFromPath(QStringLiteral("relative/app"), &other),
              Code::param);
    EXPECT_EQ(KeychainServices::trustedApplicationCreateFromPath(QString(), &other), Code::param);

    KeychainAccess access;
    ASSERT_EQ(KeychainServices::accessCreate("Label", {"/a", "/b"}, &access), Code::success);
    EXPECT_EQ(access.label, "Label");
    EXPECT_EQ(access.trustedApplications, QStringList({"/a", "/b"}));
    EXPECT_EQ(KeychainServices::accessCreate(QString(), {"/a"}, &access), Code::param);
}

TEST(KeychainServices, EveryStatusHasItsOwnMessage) {
    const QList<KeychainStatus> known = {Code::success,           Code::param,        Code::userCanceled,
                                         Code::internalComponent, Code::notAvailable, Code::authFailed,
                                         Code::duplicateItem,     Code::itemNotFound};
    QSet<QString> messages;
    for (KeychainStatus status : known)
        messages.insert(KeychainServices::copyErrorMessageString(status));
    EXPECT_EQ(messages.size(), known.size());
    EXPECT_EQ(keychainErrorMessage(Code::itemNotFound), "The item could not be found in the keychain.");
    EXPECT_EQ(keychainErrorMessage(-1), "Unknown keychain status -1.");
}
