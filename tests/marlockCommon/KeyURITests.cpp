#include "marlockCommon/Base32.h"
#include "marlockCommon/KeyURI.h"
#include "marlockCommon/TokenError.h"

#include <gtest/gtest.h>

using namespace marlockCommon;

namespace {

std::optional<TokenError::Code> parseError(const QString& uri) {
    try {
        (void)KeyURI::parse(uri);
    } catch (const TokenError& error) {
        return error.code();
    }
    return std::nullopt;
}

TokenRecord record(OTPType type, const QString& issuer, const QString& account) {
    TokenRecord r;
    r.type = type;
    r.issuer = issuer;
    r.account = account;
    r.secret = "12345678901234567890";
    return r;
}

} // namespace

TEST(KeyURI, ReadsAKeyWithEveryParameter) {
    const TokenRecord r = KeyURI::parse(
        QStringLiteral("otpauth://totp/ACME%20Co:john.doe@email.com?secret=HXDMVJECJJWSRB3HWIZR4IFUGFTMXBOZ"
                       "&issuer=ACME%20Co&algorithm=SHA256&digits=8&period=60"));
    EXPECT_EQ(r.type, OTPType::totp);
    EXPECT_EQ(r.issuer, QStringLiteral("ACME Co"));
    EXPECT_EQ(r.account, QStringLiteral("john.doe@email.com"));
    EXPECT_EQ(r.secret, Base32::decode(u"HXDMVJECJJWSRB3HWIZR4IFUGFTMXBOZ"));
    EXPECT_EQ(r.algorithm, OTPAlgorithm::sha256);
    EXPECT_EQ(r.digits, 8);
    EXPECT_EQ(r.period, 60);
    EXPECT_EQ(r.counter, 0u);
}

TEST(KeyURI, FillsInDefaultsAndTheIssuerFromTheLabel) {
    const TokenRecord r =
        KeyURI::parse(QStringLiteral("otpauth://totp/Example:alice?secret=JBSWY3DPEHPK3PXP"));
    EXPECT_EQ(r.issuer, QStringLiteral("Example"));
    EXPECT_EQ(r.account, QStringLiteral("alice"));
    EXPECT_EQ(r.algorithm, OTPAlgorithm::sha1);
    EXPECT_EQ(r.digits, 6);
    EXPECT_EQ(r.period, 30);

    const TokenRecord hotp =
        KeyURI::parse(QStringLiteral("otpauth://hotp/bob?secret=JBSWY3DPEHPK3PXP&counter=42"));
    EXPECT_EQ(hotp.type, OTPType::hotp);
    EXPECT_EQ(hotp.issuer, QString());
    EXPECT_EQ(hotp.account, QStringLiteral("bob"));
    EXPECT_EQ(hotp.counter, 42u);
}

TEST(KeyURI, AcceptsTheVariationsAppsProduce) {
    auto parse = [](const char* uri) { return KeyURI::parse(QString::fromUtf8(uri)); };
    EXPECT_EQ(parse("OTPAUTH://TOTP/A:b?SECRET=jbsw%20y3dp%20ehpk%203pxp&Algorithm=sha512").algorithm,
              OTPAlgorithm::sha512);
    EXPECT_EQ(parse("otpauth://totp/Example:%20%20alice?secret=JBSWY3DPEHPK3PXP").account,
              QStringLiteral("  alice")); // encoded spaces are content
    EXPECT_EQ(parse("otpauth://totp/Example: alice?secret=JBSWY3DPEHPK3PXP").account,
              QStringLiteral("alice")); // a literal space after the separator is not
    const TokenRecord encodedSeparator =
        parse("otpauth://totp/Example%3Aalice?secret=JBSWY3DPEHPK3PXP&issuer=Example");
    EXPECT_EQ(encodedSeparator.issuer, QStringLiteral("Example"));
    EXPECT_EQ(encodedSeparator.account, QStringLiteral("alice"));
    EXPECT_EQ(parse("otpauth://totp/a%3Ab?secret=JBSWY3DPEHPK3PXP").account, QStringLiteral("a:b"));
    EXPECT_EQ(parse("otpauth://totp/Old:alice?secret=JBSWY3DPEHPK3PXP&issuer=New").issuer,
              QStringLiteral("New"));
    EXPECT_EQ(parse("otpauth://totp/Bänk:jörg?secret=JBSWY3DPEHPK3PXP&image=https%3A%2F%2Fx&&").issuer,
              QString::fromUtf8("Bänk"));
    EXPECT_EQ(parse("  otpauth://totp/x?secret=JBSWY3DPEHPK3PXP#fragment\n").account, QStringLiteral("x"));
    EXPECT_EQ(parse("otpauth://totp?secret=JBSWY3DPEHPK3PXP").account, QString()); // no label at all
}

TEST(KeyURI, NamesWhatIsWrongWithAMalformedKey) {
    using Code = TokenError::Code;
    const std::pair<const char*, Code> cases[] = {
        {"", Code::invalidURI},
        {"JBSWY3DPEHPK3PXP", Code::invalidURI},
        {"otpauth:totp/x?secret=JBSWY3DPEHPK3PXP", Code::invalidURI},
        {"https://totp/x?secret=JBSWY3DPEHPK3PXP", Code::unsupportedScheme},
        {"otpauth-migration://offline?data=abc", Code::unsupportedScheme},
        {"otpauth://motp/x?secret=JBSWY3DPEHPK3PXP", Code::unknownType},
        {"otpauth:///x?secret=JBSWY3DPEHPK3PXP", Code::unknownType},
        {"otpauth://totp/a%2?secret=JBSWY3DPEHPK3PXP", Code::invalidEncoding},
        {"otpauth://totp/a%C3?secret=JBSWY3DPEHPK3PXP", Code::invalidEncoding},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&issuer=%zz", Code::invalidEncoding},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&digits=6&digits=8", Code::duplicateParameter},
        {"otpauth://totp/x?issuer=Example", Code::missingSecret},
        {"otpauth://totp/x", Code::missingSecret},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PX1", Code::invalidBase32},
        {"otpauth://totp/x?secret=JBSW-Y3DP", Code::invalidBase32},
        {"otpauth://totp/x?secret=", Code::emptySecret},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&algorithm=MD5", Code::invalidAlgorithm},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&algorithm=", Code::invalidAlgorithm},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&digits=5", Code::invalidDigits},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&digits=9", Code::invalidDigits},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&digits=six", Code::invalidDigits},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&digits=+6", Code::invalidDigits},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&period=0", Code::invalidPeriod},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&period=-30", Code::invalidPeriod},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&period=30.5", Code::invalidPeriod},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&period=99999999999", Code::invalidPeriod},
        {"otpauth://hotp/x?secret=JBSWY3DPEHPK3PXP", Code::missingCounter},
        {"otpauth://hotp/x?secret=JBSWY3DPEHPK3PXP&counter=-1", Code::invalidCounter},
        {"otpauth://hotp/x?secret=JBSWY3DPEHPK3PXP&counter=18446744073709551616", Code::invalidCounter},
    };
    for (const auto& [uri, code] : cases)
        EXPECT_EQ(parseError(QString::fromUtf8(uri)), code) << uri;

    try {
        (void)KeyURI::parse(QStringLiteral("otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&algorithm=MD5"));
    } catch (const TokenError& error) {
        EXPECT_EQ(error.message(), QStringLiteral("Bad algorithm (expected SHA1, SHA256 or SHA512): MD5"));
    }
}

TEST(KeyURI, WritesTheFormatAppsRead) {
    TokenRecord r = record(OTPType::totp, QStringLiteral("ACME Co"), QStringLiteral("john.doe@email.com"));
    EXPECT_EQ(KeyURI::format(r), QStringLiteral("otpauth://totp/ACME%20Co:john.doe%40email.com"
                                                "?secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ&issuer=ACME%20Co"
                                                "&algorithm=SHA1&digits=6&period=30"));
    TokenRecord h = record(OTPType::hotp, QString(), QStringLiteral("bob"));
    h.counter = 7;
    EXPECT_EQ(KeyURI::format(h), QStringLiteral("otpauth://hotp/bob?secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ"
                                                "&algorithm=SHA1&digits=6&counter=7"));
    h.digits = 4;
    EXPECT_THROW((void)KeyURI::format(h), TokenError);
}

TEST(KeyURI, RoundTripsEveryValidRecord) {
    const QString awkward[] = {
        QString(),
        QStringLiteral("plain"),
        QStringLiteral("with space"),
        QStringLiteral(" leading and trailing "),
        QStringLiteral("colon:inside"),
        QStringLiteral("%3A and %zz and %"),
        QStringLiteral("?&=#/+"),
        QString::fromUtf8("Ünïcödé ✓ 😀"),
    };
    for (const QString& issuer : awkward) {
        for (const QString& account : awkward) {
            for (auto type : {OTPType::totp, OTPType::hotp}) {
                TokenRecord r = record(type, issuer, account);
                r.algorithm = OTPAlgorithm::sha256;
                r.digits = 7;
                r.period = type == OTPType::totp ? 45 : 90;
                r.counter = type == OTPType::hotp ? 0xFFFFFFFFFFFFFFFFull : 3;
                const QString uri = KeyURI::format(r);
                EXPECT_EQ(KeyURI::parse(uri), r) << uri.toStdString();
            }
        }
    }
}
