#include "marlockCommon/Base32.h"
#include "marlockCommon/KeyURI.h"
#include "marlockCommon/TokenError.h"

#include <gtest/gtest.h>

using namespace marlockCommon;

namespace {

TokenRecord parse(const char* uri) {
    return KeyURI::parse(QString::fromUtf8(uri));
}

std::optional<TokenError::Code> parseError(const char* uri) {
    try {
        (void)parse(uri);
    } catch (const TokenError& error) {
        return error.code();
    }
    return std::nullopt;
}

const QByteArray rfcKey = "12345678901234567890";

} // namespace

TEST(KeyURI, ReadsEveryParameterAndFillsInDefaultsAndTheIssuerFromTheLabel) {
    EXPECT_EQ(parse("otpauth://totp/ACME%20Co:john.doe@email.com?secret=HXDMVJECJJWSRB3HWIZR4IFUGFTMXBOZ"
                    "&issuer=ACME%20Co&algorithm=SHA256&digits=8&period=60"),
              (TokenRecord{.type = OTPType::totp,
                           .issuer = "ACME Co",
                           .account = "john.doe@email.com",
                           .secret = Base32::decode(u"HXDMVJECJJWSRB3HWIZR4IFUGFTMXBOZ"),
                           .algorithm = OTPAlgorithm::sha256,
                           .digits = 8,
                           .period = 60,
                           .counter = 0}));
    const QByteArray hello = Base32::decode(u"JBSWY3DPEHPK3PXP");
    EXPECT_EQ(parse("otpauth://totp/Example:alice?secret=JBSWY3DPEHPK3PXP"),
              (TokenRecord{.issuer = "Example", .account = "alice", .secret = hello}));
    EXPECT_EQ(
        parse("otpauth://hotp/bob?secret=JBSWY3DPEHPK3PXP&counter=42"),
        (TokenRecord{.type = OTPType::hotp, .issuer = {}, .account = "bob", .secret = hello, .counter = 42}));
}

TEST(KeyURI, AcceptsTheVariationsAppsProduce) {
    EXPECT_EQ(parse("OTPAUTH://TOTP/A:b?SECRET=jbsw%20y3dp%20ehpk%203pxp&Algorithm=sha512").algorithm,
              OTPAlgorithm::sha512);
    const std::tuple<const char*, const char*, const char*> cases[] = {
        // Encoded spaces are content; a literal space after the separator is not.
        {"otpauth://totp/Example:%20%20alice?secret=JBSWY3DPEHPK3PXP", "Example", "  alice"},
        {"otpauth://totp/Example: alice?secret=JBSWY3DPEHPK3PXP", "Example", "alice"},
        {"otpauth://totp/Example%3Aalice?secret=JBSWY3DPEHPK3PXP&issuer=Example", "Example", "alice"},
        {"otpauth://totp/a%3Ab?secret=JBSWY3DPEHPK3PXP", "", "a:b"},
        {"otpauth://totp/Old:alice?secret=JBSWY3DPEHPK3PXP&issuer=New", "New", "alice"},
        {"otpauth://totp/Bänk:jörg?secret=JBSWY3DPEHPK3PXP&image=https%3A%2F%2Fx&&", "Bänk", "jörg"},
        {"  otpauth://totp/x?secret=JBSWY3DPEHPK3PXP#fragment\n", "", "x"},
        {"otpauth://totp?secret=JBSWY3DPEHPK3PXP", "", ""}, // no label at all
    };
    for (const auto& [uri, issuer, account] : cases) {
        const TokenRecord r = parse(uri);
        EXPECT_EQ(r.issuer, QString::fromUtf8(issuer)) << uri;
        EXPECT_EQ(r.account, QString::fromUtf8(account)) << uri;
    }
}

TEST(KeyURI, NamesWhatIsWrongWithAMalformedKey) {
    using Code = TokenError::Code;
    const std::pair<const char*, Code> cases[] = {
        {"", Code::invalidURI},
        {"otpauth:totp/x?secret=JBSWY3DPEHPK3PXP", Code::invalidURI},
        {"https://totp/x?secret=JBSWY3DPEHPK3PXP", Code::unsupportedScheme},
        {"otpauth://motp/x?secret=JBSWY3DPEHPK3PXP", Code::unknownType},
        {"otpauth://totp/a%2?secret=JBSWY3DPEHPK3PXP", Code::invalidEncoding},
        {"otpauth://totp/a%C3?secret=JBSWY3DPEHPK3PXP", Code::invalidEncoding},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&digits=6&digits=8", Code::duplicateParameter},
        {"otpauth://totp/x?issuer=Example", Code::missingSecret},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PX1", Code::invalidBase32},
        {"otpauth://totp/x?secret=", Code::emptySecret},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&algorithm=MD5", Code::invalidAlgorithm},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&digits=9", Code::invalidDigits},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&digits=+6", Code::invalidDigits},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&period=0", Code::invalidPeriod},
        {"otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&period=99999999999", Code::invalidPeriod},
        {"otpauth://hotp/x?secret=JBSWY3DPEHPK3PXP", Code::missingCounter},
        {"otpauth://hotp/x?secret=JBSWY3DPEHPK3PXP&counter=-1", Code::invalidCounter},
        {"otpauth://hotp/x?secret=JBSWY3DPEHPK3PXP&counter=18446744073709551616", Code::invalidCounter},
    };
    for (const auto& [uri, code] : cases)
        EXPECT_EQ(parseError(uri), code) << uri;
    try {
        (void)parse("otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&algorithm=MD5");
    } catch (const TokenError& error) {
        EXPECT_EQ(error.message(), QStringLiteral("Bad algorithm (expected SHA1, SHA256 or SHA512): MD5"));
    }
}

TEST(KeyURI, WritesTheFormatAppsRead) {
    EXPECT_EQ(
        KeyURI::format({.issuer = "ACME Co", .account = "john.doe@email.com", .secret = rfcKey}),
        QStringLiteral("otpauth://totp/ACME%20Co:john.doe%40email.com?secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ"
                       "&issuer=ACME%20Co&algorithm=SHA1&digits=6&period=30"));
    TokenRecord h{.type = OTPType::hotp, .issuer = {}, .account = "bob", .secret = rfcKey, .counter = 7};
    EXPECT_EQ(KeyURI::format(h), QStringLiteral("otpauth://hotp/bob?secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ"
                                                "&algorithm=SHA1&digits=6&counter=7"));
    h.digits = 4;
    EXPECT_THROW((void)KeyURI::format(h), TokenError);
}

TEST(KeyURI, RoundTripsEveryValidRecord) {
    const QString awkward[] = {QString(),
                               QStringLiteral("plain"),
                               QStringLiteral("with space"),
                               QStringLiteral(" leading and trailing "),
                               "colon:inside",
                               "%3A and %zz and %",
                               "?&=#/+",
                               QString::fromUtf8("Ünïcödé ✓ 😀")};
    for (const QString& issuer : awkward)
        for (const QString& account : awkward)
            for (auto type : {OTPType::totp, OTPType::hotp}) {
                const TokenRecord r{.type = type,
                                    .issuer = issuer,
                                    .account = account,
                                    .secret = rfcKey,
                                    .algorithm = OTPAlgorithm::sha256,
                                    .digits = 7,
                                    .period = type == OTPType::totp ? 45 : 90,
                                    .counter = type == OTPType::hotp ? 0xFFFFFFFFFFFFFFFFull : 3};
                const QString uri = KeyURI::format(r);
                EXPECT_EQ(KeyURI::parse(uri), r) << uri.toStdString();
            }
}
