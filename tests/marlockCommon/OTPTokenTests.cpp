#include "marlockCommon/OTPToken.h"
#include "marlockCommon/TimeSource.h"
#include "marlockCommon/TokenError.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace marlockCommon;

namespace {

// The test keys of RFC 4226 and RFC 6238: ASCII digits, as long as each hash's output.
const QByteArray sha1Key = "12345678901234567890";
const QByteArray sha256Key = "12345678901234567890123456789012";
const QByteArray sha512Key = "1234567890123456789012345678901234567890123456789012345678901234";

std::shared_ptr<OTPToken> makeToken(OTPType type, OTPAlgorithm algorithm, const QByteArray& key, int digits) {
    return TokenRecord{
        .type = type, .issuer = {}, .account = {}, .secret = key, .algorithm = algorithm, .digits = digits}
        .toOTPToken();
}

TokenError::Code errorOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const TokenError& error) {
        return error.code();
    }
    ADD_FAILURE() << "no TokenError thrown";
    return {};
}

} // namespace

TEST(OTPToken, ComputesTheHotpCodesOfRfc4226AppendixD) {
    const char* expected[] = {"755224", "287082", "359152", "969429", "338314",
                              "254676", "287922", "162583", "399871", "520489"};
    auto token = makeToken(OTPType::hotp, OTPAlgorithm::sha1, sha1Key, 6);
    for (quint64 counter = 0; counter < 10; ++counter) {
        EXPECT_EQ(token->passwordForCounter(counter), QString::fromLatin1(expected[counter])) << counter;
        token->setCounter(counter);
        EXPECT_EQ(token->password(), QString::fromLatin1(expected[counter])) << counter;
    }
    // HOTP ignores the time.
    token->setCounter(3);
    EXPECT_EQ(token->password(59), QStringLiteral("969429"));
    EXPECT_EQ(token->password(2000000000), QStringLiteral("969429"));
    EXPECT_EQ(token->timeRemaining(59), 0);
}

TEST(OTPToken, ComputesTheTotpCodesOfRfc6238AppendixB) {
    struct Vector {
        double time;
        const char *sha1, *sha256, *sha512;
    };
    const Vector vectors[] = {
        {59, "94287082", "46119246", "90693936"},         {1111111109, "07081804", "68084774", "25091201"},
        {1111111111, "14050471", "67062674", "99943326"}, {1234567890, "89005924", "91819424", "93441116"},
        {2000000000, "69279037", "90698825", "38618901"}, {20000000000, "65353130", "77737706", "47863826"},
    };
    auto sha1 = makeToken(OTPType::totp, OTPAlgorithm::sha1, sha1Key, 8);
    auto sha256 = makeToken(OTPType::totp, OTPAlgorithm::sha256, sha256Key, 8);
    auto sha512 = makeToken(OTPType::totp, OTPAlgorithm::sha512, sha512Key, 8);
    for (const auto& v : vectors) {
        EXPECT_EQ(sha1->password(v.time), QString::fromLatin1(v.sha1)) << v.time;
        EXPECT_EQ(sha256->password(v.time), QString::fromLatin1(v.sha256)) << v.time;
        EXPECT_EQ(sha512->password(v.time), QString::fromLatin1(v.sha512)) << v.time;
    }
}

TEST(OTPToken, ShorterCodesAreTheLowDigitsAndStepsFollowThePeriod) {
    auto token = makeToken(OTPType::totp, OTPAlgorithm::sha1, sha1Key, 6);
    EXPECT_EQ(token->password(1111111109), QStringLiteral("081804")); // keeps the leading zero
    token->setDigits(7);
    EXPECT_EQ(token->password(1111111109), QStringLiteral("7081804"));
    token->setDigits(8);
    token->setPeriod(60);
    // With 60-second steps, t = 118 is step 1, whose 30-second code belongs to t = 59.
    EXPECT_EQ(token->password(118), QStringLiteral("94287082"));
    EXPECT_EQ(token->password(119.999), QStringLiteral("94287082"));
    EXPECT_NE(token->password(120), QStringLiteral("94287082"));
}

TEST(OTPToken, RefusesInvalidFieldsAndTimesOutsideTheCounterRange) {
    auto token = makeToken(OTPType::totp, OTPAlgorithm::sha1, sha1Key, 6);
    token->setDigits(5);
    EXPECT_EQ(errorOf([&] { (void)token->password(59); }), TokenError::Code::invalidDigits);
    token->setDigits(9);
    EXPECT_EQ(errorOf([&] { (void)token->passwordForCounter(1); }), TokenError::Code::invalidDigits);
    token->setDigits(6);
    token->setPeriod(0);
    EXPECT_EQ(errorOf([&] { (void)token->password(59); }), TokenError::Code::invalidPeriod);
    token->setPeriod(-30);
    EXPECT_EQ(errorOf([&] { token->validate(); }), TokenError::Code::invalidPeriod);
    token->setPeriod(30);
    for (double time : {-1.0, std::nan(""), std::numeric_limits<double>::infinity(), 1e30})
        EXPECT_EQ(errorOf([&] { (void)token->password(time); }), TokenError::Code::invalidTime) << time;
    EXPECT_EQ(token->password(0).size(), 6);
    token->setSecret({});
    EXPECT_EQ(errorOf([&] { (void)token->password(59); }), TokenError::Code::emptySecret);
}

TEST(OTPToken, ErrorsNameTheProblemAndTheValue) {
    try {
        makeToken(OTPType::totp, OTPAlgorithm::sha1, sha1Key, 12)->validate();
        FAIL() << "no TokenError thrown";
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "Bad digits (must be 6, 7 or 8): 12");
        const auto& tokenError = dynamic_cast<const TokenError&>(error);
        EXPECT_EQ(TokenError::codeName(tokenError.code()), QStringLiteral("invalidDigits"));
        EXPECT_EQ(tokenError.detail(), QStringLiteral("12"));
        EXPECT_EQ(TokenError::domain(), QStringLiteral("marlockCommon.TokenError"));
    }
}

TEST(OTPToken, CurrentCodesAndTimeRemainingReadTheSharedTimeSourceOrTheSystemClock) {
    auto token = makeToken(OTPType::totp, OTPAlgorithm::sha256, sha256Key, 8);
    setTimeIntervalSince1970Source([] { return 1111111109.0; });
    EXPECT_EQ(token->password(), QStringLiteral("68084774"));
    EXPECT_DOUBLE_EQ(token->timeRemaining(), 1.0); // 1111111109 is one second before a boundary
    setTimeIntervalSince1970Source([] { return 1111111111.5; });
    EXPECT_EQ(token->password(), QStringLiteral("67062674"));
    EXPECT_DOUBLE_EQ(token->timeRemaining(), 28.5);
    setTimeIntervalSince1970Source([] { return 1111111110.0; }); // exactly on a boundary: a full period
    EXPECT_DOUBLE_EQ(token->timeRemaining(), 30.0);
    setTimeIntervalSince1970Source({});
    // 2020-01-01 lies well in the past of any machine running this; the overrides above would not.
    EXPECT_GT(timeIntervalSince1970(), 1577836800.0);
}
