#include "marlockCommon/OTPToken.h"
#include "marlockCommon/TokenError.h"
#include "marlockCommon/TokenRecord.h"

#include <gtest/gtest.h>

using namespace marlockCommon;

namespace {

// The counter sits at the top of the unsigned range: it survives too.
const TokenRecord sample{.type = OTPType::hotp,
                         .issuer = QString::fromUtf8("Bänk: Ünïcode & more"),
                         .account = "alice@example.org",
                         .secret = QByteArray("\x00\x01\xFEsecret\xFF", 10),
                         .algorithm = OTPAlgorithm::sha512,
                         .digits = 7,
                         .period = 45,
                         .counter = 0xFFFFFFFFFFFFFFFFull};

} // namespace

TEST(TokenRecord, ConvertsToATokenAndBackWithoutLoss) {
    const auto token = sample.toOTPToken();
    EXPECT_EQ(token->type(), OTPType::hotp);
    EXPECT_EQ(token->issuer(), sample.issuer);
    EXPECT_EQ(token->account(), sample.account);
    EXPECT_EQ(token->secret(), sample.secret);
    EXPECT_EQ(token->algorithm(), OTPAlgorithm::sha512);
    EXPECT_EQ(token->digits(), 7);
    EXPECT_EQ(token->period(), 45);
    EXPECT_EQ(token->counter(), sample.counter);
    EXPECT_EQ(token->toTokenRecord(), sample);

    const TokenRecord defaults{.issuer = {}, .account = {}, .secret = "12345678901234567890", .digits = 8};
    EXPECT_EQ(defaults.toOTPToken()->toTokenRecord(), defaults);
    EXPECT_EQ(defaults.toOTPToken()->password(59), QStringLiteral("94287082")); // TOTP, SHA-1, 30 s
}

TEST(TokenRecord, ConversionsCanLeaveTheSecretOut) {
    const auto withoutSecret = sample.toOTPToken(false);
    EXPECT_TRUE(withoutSecret->secret().isEmpty());
    EXPECT_EQ(withoutSecret->issuer(), sample.issuer);
    EXPECT_THROW((void)withoutSecret->password(), TokenError);

    TokenRecord expected = sample;
    expected.secret.clear();
    EXPECT_EQ(sample.toOTPToken()->toTokenRecord(false), expected);
}

TEST(TokenRecord, ConversionKeepsInvalidFieldsAndValidationNamesThem) {
    TokenRecord record = sample;
    record.digits = 10;
    EXPECT_EQ(record.toOTPToken()->toTokenRecord(), record); // conversion never throws
    EXPECT_THROW(record.validate(), TokenError);
    record.digits = 8;
    EXPECT_NO_THROW(record.validate());
    record.period = 0;
    EXPECT_THROW(record.validate(), TokenError);
}
