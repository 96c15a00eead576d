// The jr_ helpers: archive failures come back as error objects.
#include "ArchiveTestSupport.h"

#include "marlockCommon/OTPToken.h"
#include "marlockCompanionCommon/keychain/KeyedArchiverAdditions.h"
#include "marlockCompanionCommon/platform/KeyedArchiverTypes.h"

#include <QDateTime>
#include <QSize>

#include <gtest/gtest.h>

using namespace archivetest;

TEST(KeyedArchiverAdditions, ArchivingFailuresBecomeErrors) {
    platform::Error error;
    EXPECT_FALSE(jr_archivedDataWithRootObject(QVariant::fromValue(QSize(3, 4)), true, &error));
    EXPECT_EQ(error.domain, "NSInvalidArchiveOperationException");
    EXPECT_EQ(error.code, -1);
    EXPECT_EQ(error.userInfo.value(platform::Error::localizedDescriptionKey),
              "NSInvalidArchiveOperationException");
    EXPECT_TRUE(error.userInfo.value(jr_localizedFailureReasonErrorKey).toString().contains("QSize"));
    EXPECT_FALSE(jr_archivedDataWithRootObject(QVariant::fromValue(QSize(3, 4)), false));
}

TEST(KeyedArchiverAdditions, TheStandardClassesDecodeAndOthersNeedTheWhitelist) {
    const QVariantMap standard{{"s", "x"},
                               {"n", 1.5},
                               {"d", QByteArray("b")},
                               {"t", QDateTime::fromSecsSinceEpoch(0, Qt::UTC)},
                               {"z", QVariant::fromValue(nullptr)},
                               {"a", QVariantList{QVariant::fromValue(platform::ArchivedSet{{1}})}}};
    const std::optional<QByteArray> archive = jr_archivedDataWithRootObject(standard, true);
    ASSERT_TRUE(archive);
    EXPECT_EQ(jr_unarchiveData(*archive, true).value().toMap().value("s"), "x");

    marlockCommon::TokenRecord record;
    record.secret = "12345678901234567890";
    const std::optional<QByteArray> tokens =
        jr_archivedDataWithRootObject(QVariantList{object(record.toOTPToken())}, true);
    ASSERT_TRUE(tokens);

    platform::Error error;
    EXPECT_FALSE(jr_unarchiveData(*tokens, true, {}, &error));
    EXPECT_EQ(error.domain, "NSInvalidUnarchiveOperationException");
    EXPECT_EQ(error.code, -1);
    EXPECT_EQ(error.userInfo.value(platform::Error::localizedDescriptionKey),
              "NSInvalidUnarchiveOperationException");
    EXPECT_TRUE(error.userInfo.value(jr_localizedFailureReasonErrorKey).toString().contains("OTPToken"));

    const std::optional<QVariant> root = jr_unarchiveData(*tokens, true, {"OTPToken"}, &error);
    ASSERT_TRUE(root);
    ASSERT_EQ(root->toList().size(), 1);
    const auto token = std::dynamic_pointer_cast<marlockCommon::OTPToken>(
        root->toList().front().value<std::shared_ptr<marlockCommon::SecureCoding>>());
    ASSERT_TRUE(token);
    EXPECT_EQ(token->toTokenRecord(), record);

    // Without secure coding the whitelist does not matter.
    EXPECT_TRUE(jr_unarchiveData(*tokens, false));
    EXPECT_FALSE(jr_unarchiveData("not an archive", true, {}, &error));
    EXPECT_EQ(error.domain, "NSInvalidUnarchiveOperationException");
}
