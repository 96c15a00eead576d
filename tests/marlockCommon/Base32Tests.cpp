#include "marlockCommon/Base32.h"
#include "marlockCommon/TokenError.h"

#include <QRandomGenerator>

#include <gtest/gtest.h>

using namespace marlockCommon;

TEST(Base32, EncodesAndDecodesTheRfc4648Vectors) {
    const std::pair<QByteArray, QString> vectors[] = {{"", ""},
                                                      {"f", "MY======"},
                                                      {"fo", "MZXQ===="},
                                                      {"foo", "MZXW6==="},
                                                      {"foob", "MZXW6YQ="},
                                                      {"fooba", "MZXW6YTB"},
                                                      {"foobar", "MZXW6YTBOI======"}};
    for (const auto& [bytes, text] : vectors) {
        SCOPED_TRACE(text.toStdString());
        QString unpadded = text;
        unpadded.remove(QLatin1Char('='));
        EXPECT_EQ(Base32::encode(bytes), text);
        EXPECT_EQ(Base32::decode(text), bytes);
        EXPECT_EQ(Base32::encode(bytes, false), unpadded);
        EXPECT_EQ(Base32::decode(unpadded), bytes);
    }
}

TEST(Base32, AcceptsSecretsTheWayAppsWriteThem) {
    const QByteArray hello("Hello!\xDE\xAD\xBE\xEF");
    for (const char* text :
         {"JBSWY3DPEHPK3PXP", "jbswy3dpehpk3pxp", "jbsw y3dp ehpk 3pxp", "JbSw Y3dP EhPk 3PxP "})
        EXPECT_EQ(Base32::decode(QString::fromLatin1(text)), hello) << text;
    EXPECT_EQ(Base32::decode(u"MZXW 6==="), QByteArray("foo")); // spaces and padding together
    EXPECT_EQ(Base32::decode(u"   "), QByteArray());
}

TEST(Base32, RejectsWhatIsNotBase32AndSaysWhere) {
    // Outside the alphabet (1, 0, 8, 9, -, a tab: only spaces are skipped, non-ASCII); an "=" inside
    // a group whose length would otherwise be right; 1, 3, 6 and 8 + 1 symbols encode nothing;
    // padding that doesn't fill the group, or fills it and goes on; padding after a full group;
    // padding alone.
    const char* invalid[] = {"JBSWY3DPEHPK3PX1",
                             "MZXW0===",
                             "MZXW8===",
                             "MZXW6-YQ",
                             "MZXW\t6YQ",
                             "MZXWÄYQ",
                             "MZXW6=YQ",
                             "M",
                             "MZX",
                             "MZXW6Y",
                             "MZXW6YTBO",
                             "MY=",
                             "MY==============",
                             "MZXW6YTB========",
                             "===="};
    for (const char* text : invalid) {
        SCOPED_TRACE(text);
        try {
            (void)Base32::decode(QString::fromUtf8(text));
            ADD_FAILURE() << "accepted";
        } catch (const TokenError& error) {
            EXPECT_EQ(error.code(), TokenError::Code::invalidBase32);
        }
    }
    try {
        (void)Base32::decode(u"ABC!");
        FAIL() << "no TokenError thrown";
    } catch (const TokenError& error) {
        EXPECT_EQ(error.message(),
                  QStringLiteral("Bad Base32 secret: invalid character \"!\" at position 3"));
    }
}

TEST(Base32, RoundTripsArbitraryBytes) {
    QRandomGenerator random(20240601);
    for (int length = 0; length < 70; ++length) {
        QByteArray bytes(length, '\0');
        for (auto& byte : bytes)
            byte = static_cast<char>(random.bounded(256));
        EXPECT_EQ(Base32::decode(Base32::encode(bytes)), bytes) << length;
        EXPECT_EQ(Base32::decode(Base32::encode(bytes, false).toLower()), bytes) << length;
    }
}
