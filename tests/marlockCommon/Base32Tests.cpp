#include "marlockCommon/Base32.h"
#include "marlockCommon/TokenError.h"

#include <QRandomGenerator>

#include <gtest/gtest.h>

using namespace marlockCommon;

namespace {

bool rejects(const QString& text) {
    try {
        (void)Base32::decode(text);
    } catch (const TokenError& error) {
        return error.code() == TokenError::Code::invalidBase32;
    }
    return false;
}

} // namespace

TEST(Base32, EncodesAndDecodesTheRfc4648Vectors) {
    const std::pair<QByteArray, QString> vectors[] = {
        {"", ""},
        {"f", "MY======"},
        {"fo", "MZXQ===="},
        {"foo", "MZXW6==="},
        {"foob", "MZXW6YQ="},
        {"fooba", "MZXW6YTB"},
        {"foobar", "MZXW6YTBOI======"},
    };
    for (const auto& [bytes, text] : vectors) {
        EXPECT_EQ(Base32::encode(bytes), text);
        EXPECT_EQ(Base32::decode(text), bytes) << text.toStdString();
        QString unpadded = text;
        unpadded.remove(QLatin1Char('='));
        EXPECT_EQ(Base32::encode(bytes, false), unpadded);
        EXPECT_EQ(Base32::decode(unpadded), bytes) << unpadded.toStdString();
    }
}

TEST(Base32, AcceptsSecretsTheWayAppsWriteThem) {
    const QByteArray hello = Base32::decode(u"JBSWY3DPEHPK3PXP");
    EXPECT_EQ(hello, QByteArray("Hello!\xDE\xAD\xBE\xEF"));
    EXPECT_EQ(Base32::decode(u"jbswy3dpehpk3pxp"), hello);      // lower case
    EXPECT_EQ(Base32::decode(u"jbsw y3dp ehpk 3pxp"), hello);   // groups of four
    EXPECT_EQ(Base32::decode(u"JbSw Y3dP EhPk 3PxP "), hello);  // mixed case, trailing space
    EXPECT_EQ(Base32::decode(u"MZXW 6==="), QByteArray("foo")); // spaces and padding together
    EXPECT_EQ(Base32::decode(u"   "), QByteArray());
}

TEST(Base32, RejectsWhatIsNotBase32) {
    EXPECT_TRUE(rejects(QStringLiteral("JBSWY3DPEHPK3PX1"))); // 1, 0, 8 and 9 are not in the alphabet
    EXPECT_TRUE(rejects(QStringLiteral("MZXW0===")));
    EXPECT_TRUE(rejects(QStringLiteral("MZXW8===")));
    EXPECT_TRUE(rejects(QStringLiteral("MZXW6-YQ")));
    EXPECT_TRUE(rejects(QStringLiteral("MZXW\t6YQ"))); // only spaces are skipped
    EXPECT_TRUE(rejects(QString::fromUtf8("MZXWÄYQ")));
    EXPECT_TRUE(rejects(QStringLiteral("MY==MZXQ"))); // padding in the middle
    EXPECT_TRUE(rejects(QStringLiteral("M")));        // 1, 3 and 6 symbols encode nothing
    EXPECT_TRUE(rejects(QStringLiteral("MZX")));
    EXPECT_TRUE(rejects(QStringLiteral("MZXW6Y")));
    EXPECT_TRUE(rejects(QStringLiteral("MZXW6YTBO")));        // 9 = 8 + 1
    EXPECT_TRUE(rejects(QStringLiteral("MY=")));              // padding that doesn't fill the group
    EXPECT_TRUE(rejects(QStringLiteral("MZXW6YTB========"))); // a full group needs none
    EXPECT_TRUE(rejects(QStringLiteral("====")));
}

TEST(Base32, ErrorsSayWhereTheProblemIs) {
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
