#include "marlockCommon/Bundle.h"

#include <plist/plist.h>

#include <gtest/gtest.h>

#include <memory>

using namespace marlockCommon;

namespace {

struct PlistFree {
    void operator()(plist_t node) const { plist_free(node); }
};
using Plist = std::unique_ptr<void, PlistFree>;

} // namespace

TEST(Bundle, IsFoundByItsIdentifier) {
    EXPECT_EQ(bundleIdentifier(), QStringLiteral("org.marlock.common"));
}

TEST(Bundle, HoldsTheInitialViewPreferencesAsAnXmlPropertyList) {
    const auto bytes = resourceData(QStringLiteral("defaults"), QStringLiteral("plist"));
    ASSERT_TRUE(bytes);
    EXPECT_TRUE(bytes->startsWith("<?xml"));
    EXPECT_EQ(resourcePath(QStringLiteral("defaults"), QStringLiteral("plist")),
              QStringLiteral(":/org.marlock.common/defaults.plist"));

    plist_t parsed = nullptr;
    plist_from_xml(bytes->constData(), static_cast<uint32_t>(bytes->size()), &parsed);
    const Plist root(parsed);
    ASSERT_TRUE(root);
    ASSERT_EQ(plist_get_node_type(root.get()), PLIST_DICT);
    EXPECT_EQ(plist_dict_get_size(root.get()), 3u);

    plist_t separator = plist_dict_get_item(root.get(), "separatorString");
    ASSERT_TRUE(separator);
    ASSERT_EQ(plist_get_node_type(separator), PLIST_STRING);
    char* text = nullptr;
    plist_get_string_val(separator, &text);
    EXPECT_STREQ(text, "");
    free(text);

    for (const char* key : {"changeColorWhenCodeWillChange", "animateCodeChanges"}) {
        plist_t flag = plist_dict_get_item(root.get(), key);
        ASSERT_TRUE(flag) << key;
        ASSERT_EQ(plist_get_node_type(flag), PLIST_BOOLEAN) << key;
        uint8_t value = 0;
        plist_get_bool_val(flag, &value);
        EXPECT_EQ(value, 1) << key;
    }
}

TEST(Bundle, HasNothingForOtherNames) {
    EXPECT_FALSE(resourceData(QStringLiteral("defaults"), QStringLiteral("json")));
    EXPECT_FALSE(resourceData(QStringLiteral("preferences"), QStringLiteral("plist")));
    EXPECT_FALSE(resourceData(QString(), QStringLiteral("plist")));
    EXPECT_FALSE(resourceData(QStringLiteral("../org.marlock.common/defaults"), QStringLiteral("plist")));
    // As with the desktop bundles it mirrors, the type may instead end the name.
    EXPECT_EQ(resourceData(QStringLiteral("defaults.plist"), QString()),
              resourceData(QStringLiteral("defaults"), QStringLiteral("plist")));
}
