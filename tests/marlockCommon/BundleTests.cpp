#include "marlockCommon/Bundle.h"

#include <plist/plist.h>

#include <gtest/gtest.h>

#include <memory>

using namespace marlockCommon;

TEST(Bundle, IsFoundByItsIdentifierAndHoldsTheInitialViewPreferencesAsAnXmlPropertyList) {
    EXPECT_EQ(bundleIdentifier(), QStringLiteral("org.marlock.common"));
    const auto bytes = resourceData("defaults", "plist");
    ASSERT_TRUE(bytes);
    EXPECT_TRUE(bytes->startsWith("<?xml"));
    EXPECT_EQ(resourcePath("defaults", "plist"), QStringLiteral(":/org.marlock.common/defaults.plist"));

    plist_t parsed = nullptr;
    plist_from_xml(bytes->constData(), static_cast<uint32_t>(bytes->size()), &parsed);
    const std::unique_ptr<void, void (*)(plist_t)> root(parsed, plist_free);
    ASSERT_TRUE(root);
    ASSERT_EQ(plist_get_node_type(root.get()), PLIST_DICT);
    EXPECT_EQ(plist_dict_get_size(root.get()), 3u);

    plist_t separator = plist_dict_get_item(root.get(), "separatorString");
    ASSERT_EQ(plist_get_node_type(separator), PLIST_STRING); // PLIST_NONE when missing
    char* text = nullptr;
    plist_get_string_val(separator, &text);
    EXPECT_STREQ(text, "");
    free(text);
    for (const char* key : {"changeColorWhenCodeWillChange", "animateCodeChanges"}) {
        plist_t flag = plist_dict_get_item(root.get(), key);
        ASSERT_EQ(plist_get_node_type(flag), PLIST_BOOLEAN) << key;
        uint8_t value = 0;
        plist_get_bool_val(flag, &value);
        EXPECT_EQ(value, 1) << key;
    }
}

TEST(Bundle, HasNothingForOtherNames) {
    for (const auto& [name, type] :
         std::initializer_list<std::pair<QString, QString>>{{"defaults", "json"},
                                                            {"preferences", "plist"},
                                                            {"", "plist"},
                                                            {"../org.marlock.common/defaults", "plist"}})
        EXPECT_FALSE(resourceData(name, type)) << name.toStdString();
    // As with the desktop bundles it mirrors, the type may instead end the name.
    EXPECT_EQ(resourceData("defaults.plist", QString()), resourceData("defaults", "plist"));
}
