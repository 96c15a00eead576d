// The jr_ helpers: archive failures come back as error objects.
#include "ArchiveTestSupport.h"

#include "marlockCommon/OTPToken.h"
#include "marlockCompanionCommon/keychain/KeyedArchiverAdditions.h"
#include "marlockCompanionCommon/keychain/KeyedArchiverTypes.h"

#include <QDateTime>
#include <QSize>

#include <gtest/gtest.h>

using namespace archivetest;

namespace {

// The error an archiving exception becomes: its name as domain and description, code -1, and a
// reason naming the class at fault.
void expectExceptionError(const platform::Error& error, const QString& name, const QString& culprit) {
    EXPECT_EQ(error.domain, name);
    EXPECT_EQ(error.code, -1);
    EXPECT_EQ(error.userInfo.value(platform::Error::localizedDescriptionKey), name);
    EXPECT_TRUE(error.userInfo.value(jr_localizedFailureReasonErrorKey).toString().contains(culprit));
}

} // namespace

TEST(KeyedArchiverAdditions, ArchivingFailuresBecomeErrors) {
    platform::Error error;
    EXPECT_FALSE(jr_archivedDataWithRootObject(QVariant::fromValue(QSize(3, 4)), true, &error));
    expectExceptionError(error, "NSInvalidArchiveOperationException", "QSize");
    EXPECT_FALSE(jr_archivedDataWithRootObject(QVariant::fromValue(QSize(3, 4)), false));
}

TEST(KeyedArchiverAdditions, TheStandardClassesDecodeAndOthersNeedTheWhitelist) {
    const QVariantMap standard{{"s", "x"},
                               {"n", 1.5},
                               {"d", QByteArray("b")},
                               {"t", QDateTime::fromSecsSinceEpoch(0, Qt::UTC)},
                               {"z", QVariant::fromValue(nullptr)},
                               {"a", QVariantList{QVariant::fromValue(platform::ArchivedSet{{1}})}}};
    const std::optional<QByteArray> standardArchive = jr_archivedDataWithRootObject(standard, true);
    ASSERT_TRUE(standardArchive);
    EXPECT_EQ(jr_unarchiveData(*standardArchive, true).value().toMap().value("s"), "x");

    // An array of tokens, as the token flows archive them.
    QVariantList tokens;
    std::vector<marlockCommon::TokenRecord> records;
    for (int i = 0; i < 3; ++i) {
        records.push_back({i == 2 ? marlockCommon::OTPType::hotp : marlockCommon::OTPType::totp,
                           QStringLiteral("Issuer %1").arg(i), QStringLiteral("user%1@example.org").arg(i),
                           QByteArray("12345678901234567890").left(10 + i),
                           marlockCommon::OTPAlgorithm::sha256, 6 + i, 30, 1ull << 40});
        tokens.append(object(records.back().toOTPToken()));
    }
    const std::optional<QByteArray> archive = jr_archivedDataWithRootObject(tokens, true);
    ASSERT_TRUE(archive);

    platform::Error error;
    EXPECT_FALSE(jr_unarchiveData(*archive, true, {}, &error));
    expectExceptionError(error, "NSInvalidUnarchiveOperationException", "OTPToken");

    const std::optional<QVariant> root = jr_unarchiveData(*archive, true, {"OTPToken"}, &error);
    ASSERT_TRUE(root);
    ASSERT_EQ(root->toList().size(), 3);
    for (int i = 0; i < 3; ++i) {
        const auto token = decoded<marlockCommon::OTPToken>(root->toList()[i]);
        ASSERT_TRUE(token);
        EXPECT_EQ(token->toTokenRecord(), records[i]);
    }

    // Without secure coding the whitelist does not matter.
    EXPECT_TRUE(jr_unarchiveData(*archive, false));
    EXPECT_FALSE(jr_unarchiveData("not an archive", true, {}, &error));
    EXPECT_EQ(error.domain, "NSInvalidUnarchiveOperationException");
}
