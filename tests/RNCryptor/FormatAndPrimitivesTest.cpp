#include "marlockCompanionCommon/RNCryptor/ConsistentTime_p.h"
#include "marlockCompanionCommon/RNCryptor/CryptorOperation_p.h"
#include "marlockCompanionCommon/RNCryptor/RNCryptor.h"
#include "tests/RNCryptor/ReferenceContainer.h"

#include <gtest/gtest.h>

#include <openssl/crypto.h>
#include <openssl/provider.h>

namespace {

using RNCryptor::FormatV3;
using namespace RNCryptor::internal;

// Makes every OpenSSL algorithm unavailable on this thread, so that the random source and the key
// derivation fail for real. Only ever called inside a death test's child process.
void withoutAnyCryptoProvider() {
    OSSL_LIB_CTX* empty = OSSL_LIB_CTX_new();
    OSSL_PROVIDER_load(empty, "null");
    OSSL_LIB_CTX_set0_default(empty);
}

TEST(FormatV3, MakeKeyIsPbkdf2OfTheUtf8PasswordWithTheWholeSalt) {
    const QByteArray salt = reference::pattern(8, 1);
    const QByteArray key = FormatV3::makeKey(QStringLiteral("correct horse"), salt);
    EXPECT_EQ(key, FormatV3::makeKey(QStringLiteral("correct horse"), salt));
    EXPECT_NE(key, FormatV3::makeKey(QStringLiteral("correct horse"), reference::pattern(8, 2)));
    // Non-ASCII passwords count UTF-8 bytes (7 characters, 12 bytes here); the salt's length is not
    // the format's business here: all of it is used.
    for (const auto& [password, anySalt] : {std::pair{QStringLiteral("correct horse"), salt},
                                            {QStringLiteral("pässwö€"), salt},
                                            {QStringLiteral("pässwö€"), reference::pattern(20, 3)}})
        EXPECT_EQ(FormatV3::makeKey(password, anySalt), reference::pbkdf2Key(password, anySalt));
}

TEST(FormatV3, RandomDataHasTheRequestedLengthAndVaries) {
    for (int length : {0, 8, 16})
        EXPECT_EQ(RNCryptor::randomData(length).size(), length);
    EXPECT_NE(RNCryptor::randomData(16), RNCryptor::randomData(16));
}

TEST(FormatV3DeathTest, FailingPrimitivesStopTheProcessWithTheirMessages) {
    EXPECT_DEATH(
        (withoutAnyCryptoProvider(), (void)RNCryptor::randomData(16)),
        "^marlockCompanionCommon/RNCryptor:[0-9]+: Fatal error: SECURITY FAILURE: Could not generate secure "
        "random numbers: -[0-9]+\\.\n");
    EXPECT_DEATH(
        (withoutAnyCryptoProvider(), (void)FormatV3::makeKey(QStringLiteral("password"), QByteArray(8, 'x'))),
        "^marlockCompanionCommon/RNCryptor:[0-9]+: Fatal error: SECURITY FAILURE: Could not derive secure "
        "password \\(-[0-9]+\\): 32 bytes\\.\n");
}

TEST(ConsistentTime, ComparesWholeStringsWhateverTheLengths) {
    const QByteArray mac = reference::pattern(32, 7);
    QByteArray oneByteOff = mac;
    oneByteOff[31] = char(oneByteOff[31] ^ 0x01);

    EXPECT_TRUE(isEqualInConsistentTime(mac, mac));
    EXPECT_FALSE(isEqualInConsistentTime(mac, oneByteOff));
    EXPECT_FALSE(isEqualInConsistentTime(mac, mac.first(16)));
    // Every wrapped byte matches, but the length does not.
    EXPECT_FALSE(isEqualInConsistentTime(mac, mac + mac));
    EXPECT_TRUE(isEqualInConsistentTime(QByteArray(), QByteArray()));
    EXPECT_FALSE(isEqualInConsistentTime(mac, QByteArray()));
}

TEST(ConsistentTimeDeathTest, NonEmptyAgainstEmptyTrustedIsAProgrammingError) {
    EXPECT_DEATH((void)isEqualInConsistentTime(QByteArray(), QByteArray("x")),
                 "marlockCompanionCommon/RNCryptor:[0-9]+: Fatal error: ");
}

TEST(RNCryptorError, RawValuesOfErrorsAndOperationsAndPlatformErrors) {
    using RNCryptor::Error;
    EXPECT_FALSE(Error::fromRawValue(0));
    EXPECT_FALSE(Error::fromRawValue(6));
    const Error::Code inOrder[] = {Error::hmacMismatch, Error::unknownHeader, Error::messageTooShort,
                                   Error::memoryFailure, Error::invalidCredentialType};
    for (int raw = 1; raw <= 5; ++raw) {
        const std::optional<Error> error = Error::fromRawValue(raw);
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code(), inOrder[raw - 1]);
        EXPECT_EQ(error->rawValue(), raw);
    }

    const platform::Error converted = Error(Error::invalidCredentialType);
    EXPECT_EQ(converted.domain, QStringLiteral("marlockCompanionCommon.RNCryptor.Error"));
    EXPECT_EQ(converted.code, 5);
    EXPECT_TRUE(converted.userInfo.isEmpty());
    EXPECT_STREQ(Error(Error::hmacMismatch).what(), "RNCryptor.Error.hmacMismatch");

    EXPECT_EQ(cryptorOperationFromRawValue(0), CryptorOperation::encrypt);
    EXPECT_EQ(cryptorOperationFromRawValue(1), CryptorOperation::decrypt);
    EXPECT_FALSE(cryptorOperationFromRawValue(2));
}

} // namespace
