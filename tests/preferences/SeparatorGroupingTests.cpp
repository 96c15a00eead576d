#include "marlockCompanionCommon/preferences/ViewPreferencesManager.h"

#include "tests/preferences/QStringPrinter.h"

#include <gtest/gtest.h>

namespace {

TEST(SeparatorGrouping, GroupsThreeThenThreeThenTheRestCountingUtf16CodeUnits) {
    const struct {
        const char16_t *code, *separator, *expected;
    } cases[] = {
        {u"123456", u"-", u"123-456"},
        {u"1234567", u"-", u"123-4567"},
        {u"12345678", u"-", u"123-456-78"},
        {u"1234567890", u"-", u"123-456-7890"}, // never split further
        {u"1234", u"-", u"123-4"},
        {u"123", u"-", u"123"},
        {u"", u"-", u""},
        // A second insertion follows the sixth character of the code.
        {u"12345678", u"--", u"123--456--78"},
        {u"123456", u"  ", u"123  456"},
        // An empty separator leaves every code alone.
        {u"", u"", u""},
        {u"1", u"", u"1"},
        {u"1234", u"", u"1234"},
        {u"12345678", u"", u"12345678"},
        {u"123456789012", u"", u"123456789012"},
        // U+1F511 is one character but two UTF-16 units (a surrogate pair), so the second
        // insertion lands two units further on, still right after the sixth digit.
        {u"12345678", u"\U0001F511", u"123\U0001F511456\U0001F51178"},
        {u"1234", u"\U0001F511", u"123\U0001F5114"},
        // Codes outside the BMP: each character counts two. Two of them are already four units,
        // and the insertion at unit 3 falls between the halves of the second one.
        {u"\U0001D7CF\U0001D7D0", u"-", u"\U0001D7CF\xD835-\xDFD0"},
        {u"a\U0001D7CFb", u"-", u"a\U0001D7CF-b"},
        // Four of them are eight units: 3 + 3 + 2 units.
        {u"\U0001D7CF\U0001D7D0\U0001D7D1\U0001D7D2", u"-", u"\U0001D7CF\xD835-\xDFD0\U0001D7D1-\U0001D7D2"},
        // Fewer than four units: unchanged, even when that is two characters.
        {u"1\U0001D7CF", u"-", u"1\U0001D7CF"}};
    for (const auto& c : cases) {
        const QString code = QString::fromUtf16(c.code);
        SCOPED_TRACE(code.toStdString() + " with " + QString::fromUtf16(c.separator).toStdString());
        EXPECT_EQ(ViewPreferencesManager::insertSeparator(code, QString::fromUtf16(c.separator)),
                  QString::fromUtf16(c.expected));
    }
}

} // namespace
