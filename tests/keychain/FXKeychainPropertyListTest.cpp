#include "marlockCompanionCommon/keychain/FXKeychainPropertyList.h"

#include <gtest/gtest.h>

TEST(FXKeychainPropertyList, NullsAreLeftOutAtEveryLevelAndEverythingElseStays) {
    const QVariant null = QVariant::fromValue(nullptr);
    EXPECT_FALSE(FXKeychain_propertyListRepresentation(null));
    EXPECT_FALSE(FXKeychain_propertyListRepresentation(QVariant()));
    EXPECT_EQ(FXKeychain_propertyListRepresentation(7), QVariant(7));
    EXPECT_EQ(FXKeychain_propertyListRepresentation("text"), QVariant("text"));

    const QVariantList list{1, null, QVariantList{null, "a"}, QVariantMap{{"gone", null}, {"kept", 2}}};
    EXPECT_EQ(FXKeychain_propertyListRepresentation(list),
              QVariant(QVariantList{1, QVariantList{"a"}, QVariantMap{{"kept", 2}}}));

    QVariantHash hash{{"x", null}, {"y", QVariantList{null}}};
    EXPECT_EQ(FXKeychain_propertyListRepresentation(hash), QVariant(QVariantHash{{"y", QVariantList{}}}));
}
