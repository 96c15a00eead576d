// The product links are fixed values, but a typo in one sends people to a page that is not the
// maker's, or to no page at all.
#include "marlockCompanionCommon/links/ProductLinks.h"

#include <QSet>

#include <gtest/gtest.h>

TEST(ProductLinks, EveryLinkIsAWellFormedAddressOfTheMaker) {
    const auto links = ProductLinks::all();
    QSet<QString> titles;
    QSet<QUrl> urls;
    for (const auto& link : links) {
        SCOPED_TRACE(link.url.toString().toStdString());
        EXPECT_TRUE(link.url.isValid());
        EXPECT_FALSE(link.title.isEmpty());
        titles.insert(link.title);
        urls.insert(link.url);
        if (link.url.scheme() == "mailto") {
            EXPECT_EQ(link.url.path(), ProductLinks::supportAddress());
        } else {
            EXPECT_EQ(link.url.scheme(), "https");
            EXPECT_EQ(link.url.host(), "marlock.org");
            EXPECT_TRUE(link.url.userInfo().isEmpty() && link.url.port() == -1);
        }
    }
    EXPECT_EQ(titles.size(), qsizetype(links.size())) << "each title once";
    EXPECT_EQ(urls, (QSet<QUrl>{ProductLinks::webPage(), ProductLinks::supportPage(),
                                ProductLinks::supportMail(), ProductLinks::privacyPolicy(),
                                ProductLinks::appStorePage(), ProductLinks::googlePlayPage()}));
    EXPECT_TRUE(ProductLinks::supportAddress().endsWith("@marlock.org"));
}
