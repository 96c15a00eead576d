#include "marlockCommon/OTPToken.h"
#include "marlockCommon/TokenError.h"
#include "marlockCommon/TokenRecord.h"

#include <gtest/gtest.h>

using namespace marlockCommon;

namespace {

TokenRecord sampleRecord() {
    TokenRecord record;
    record.type = OTPType::hotp;
    record.issuer = QString::fromUtf8("Bänk: Ünïcode & more");
    record.account = QStringLiteral("alice@example.org");
    record.secret = QByteArray("\x00\x01\xFEsecret\xFF", 10);
    record.algorithm = OTPAlgorithm::sha512;
    record.digits = 7;
    record.period = 45;
    record.counter = 0xFFFFFFFFFFFFFFFFull; // the top of the unsigned range survives too
    return record;
}

} // namespace

TEST(TokenRecord, ConvertsToATokenAndBackWithoutLoss) {
    const TokenRecord record = sampleRecord();
    const auto token = record.toOTPToken();
    EXPECT_EQ(token->type(), OTPType::hotp);
    EXPECT_EQ(token->issuer(), record.issuer);
    EXPECT_EQ(token->account(), record.account);
    EXPECT_EQ(token->secret(), record.secret);
    EXPECT_EQ(token->algorithm(), OTPAlgorithm::sha512);
    EXPECT_EQ(token->digits(), 7);
    EXPECT_EQ(token->period(), 45);
    EXPECT_EQ(token->counter(), record.counter);
    EXPECT_EQ(token->toTokenRecord(), record);

    TokenRecord defaults;
    EXPECT_EQ(defaults.toOTPToken()->toTokenRecord(), defaults);
}

TEST(TokenRecord, ConversionsCanLeaveTheSecretOut) {
    const TokenRecord record = sampleRecord();
    const auto withoutSecret = record.toOTPToken(false);
    EXPECT_TRUE(withoutSecret->secret().isEmpty());
    EXPECT_EQ(withoutSecret->issuer(), record.issuer);
    EXPECT_THROW((void)withoutSecret->password(), TokenError);

    const TokenRecord listed = record.toOTPToken()->toTokenRecord(false);
    EXPECT_TRUE(listed.secret.isEmpty());
    TokenRecord expected = record;
    expected.secret.clear();
    EXPECT_EQ(listed, expected);
}

TEST(TokenRecord, ConversionKeepsInvalidFieldsAndValidationNamesThem) {
    TokenRecord record = sampleRecord();
    record.digits = 10;
    EXPECT_EQ(record.toOTPToken()->toTokenRecord(), record); // conversion never throws
    EXPECT_THROW(record.validate(), TokenError);
    record.digits = 8;
    EXPECT_NO_THROW(record.validate());
    record.period = 0;
    EXPECT_THROW(record.validate(), TokenError);
}

TEST(TokenRecord, ComputesTheSameCodeAsItsToken) {
    TokenRecord record;
    record.secret = "12345678901234567890";
    record.digits = 8;
    EXPECT_EQ(record.toOTPToken()->password(59), QStringLiteral("94287082"));
}
