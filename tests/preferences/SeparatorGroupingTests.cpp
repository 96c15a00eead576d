#include "marlockCompanionCommon/preferences/ViewPreferencesManager.h"

#include "tests/preferences/QStringPrinter.h"

#include <gtest/gtest.h>

namespace {

QString s(const char16_t* text) {
    return QString::fromUtf16(text);
}

QString format(const char16_t* code, const char16_t* separator) {
    return ViewPreferencesManager::insertSeparator(s(code), s(separator));
}

TEST(SeparatorGrouping, GroupsThreeThenThreeThenTheRest) {
    EXPECT_EQ(format(u"123456", u"-"), s(u"123-456"));
    EXPECT_EQ(format(u"1234567", u"-"), s(u"123-4567"));
    EXPECT_EQ(format(u"12345678", u"-"), s(u"123-456-78"));
    EXPECT_EQ(format(u"1234567890", u"-"), s(u"123-456-7890")) << "never split further";
    EXPECT_EQ(format(u"1234", u"-"), s(u"123-4"));
    EXPECT_EQ(format(u"123", u"-"), s(u"123"));
    EXPECT_EQ(format(u"", u"-"), s(u""));
}

TEST(SeparatorGrouping, ASecondInsertionFollowsTheSixthCharacterOfTheCode) {
    EXPECT_EQ(format(u"12345678", u"--"), s(u"123--456--78"));
    EXPECT_EQ(format(u"123456", u"  "), s(u"123  456"));
}

TEST(SeparatorGrouping, AnEmptySeparatorLeavesEveryCodeAlone) {
    for (const char16_t* code : {u"", u"1", u"1234", u"12345678", u"123456789012"})
        EXPECT_EQ(format(code, u""), QString::fromUtf16(code));
}

TEST(SeparatorGrouping, CountsUtf16CodeUnits) {
    // U+1F511 is one character but two UTF-16 units (a surrogate pair), so the second insertion
    // lands two units further on, still right after the sixth digit.
    EXPECT_EQ(format(u"12345678", u"\U0001F511"), s(u"123\U0001F511456\U0001F51178"));
    EXPECT_EQ(format(u"1234", u"\U0001F511"), s(u"123\U0001F5114"));

    // Codes outside the BMP: each character counts two. Two of them are already four units, and
    // the insertion at unit 3 falls between the halves of the second one.
    EXPECT_EQ(format(u"\U0001D7CF\U0001D7D0", u"-"), s(u"\U0001D7CF\xD835-\xDFD0"));
    EXPECT_EQ(format(u"a\U0001D7CFb", u"-"), s(u"a\U0001D7CF-b"));
    // Four of them are eight units: 3 + 3 + 2 units.
    EXPECT_EQ(format(u"\U0001D7CF\U0001D7D0\U0001D7D1\U0001D7D2", u"-"),
              s(u"\U0001D7CF\xD835-\xDFD0\U0001D7D1-\U0001D7D2"));
    // Fewer than four units: unchanged, even when that is two characters.
    EXPECT_EQ(format(u"1\U0001D7CF", u"-"), s(u"1\U0001D7CF"));
}

} // namespace
