#include "marlockCompanionCommon/RNCryptor/ConsistentTime_p.h"
#include "marlockCompanionCommon/RNCryptor/CryptorOperation_p.h"
#include "marlockCompanionCommon/RNCryptor/Engine_p.h"
#include "marlockCompanionCommon/RNCryptor/RNCryptor.h"
#include "tests/RNCryptor/ReferenceContainer.h"

#include <gtest/gtest.h>

#include <openssl/crypto.h>
#include <openssl/provider.h>

#include <vector>

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

TEST(FormatV3DeathTest, CiphersThatCannotBeSetUpStopTheProcess) {
    const QByteArray key(32, 'k');
    const QByteArray iv(16, 'i');
    // A key-based encryptor draws nothing at random and derives nothing: only its own set-up
    // can fail here.
    EXPECT_DEATH((withoutAnyCryptoProvider(), RNCryptor::EncryptorV3(key, key, iv)),
                 "^marlockCompanionCommon/RNCryptor:[0-9]+: Fatal error: SECURITY FAILURE: Could not set up "
                 "HMAC-SHA256 \\(-[0-9]+\\)\\.\n");
    EXPECT_DEATH((withoutAnyCryptoProvider(), Engine(CryptorOperation::decrypt, key, iv)),
                 "^marlockCompanionCommon/RNCryptor:[0-9]+: Fatal error: SECURITY FAILURE: Could not set up "
                 "AES-CBC \\(-[0-9]+\\)\\.\n");
}

// Reads bytes for the comparison and counts the reads of each byte of either string.
struct CountingReader {
    const quint8* untrusted;
    std::vector<int>* untrustedReads;
    std::vector<int>* trustedReads;
    quint8 operator()(const quint8* bytes, qsizetype index) const {
        ++(bytes == untrusted ? *untrustedReads : *trustedReads)[size_t(index)];
        return bytes[index];
    }
};

// The time a comparison takes must not tell where the first difference is: whatever the
// inputs, every untrusted byte is read once, against the trusted byte at its place (wrapping).
TEST(ConsistentTime, ReadsEveryByteWhereverTheFirstDifferenceIs) {
    const QByteArray mac = reference::pattern(32, 7);
    auto flipped = [&](qsizetype from, qsizetype to) {
        QByteArray changed = mac;
        for (qsizetype at = from; at < to; ++at)
            changed[at] = char(changed[at] ^ 0x5a);
        return changed;
    };
    const struct {
        const char* name;
        QByteArray trusted;
        QByteArray untrusted;
        bool equal;
    } cases[] = {
        {"equal", mac, mac, true},
        {"first byte differs", mac, flipped(0, 1), false},
        {"last byte differs", mac, flipped(31, 32), false},
        {"every byte differs", mac, flipped(0, 32), false},
        {"shorter", mac, mac.first(16), false},
        {"longer, every wrapped byte equal", mac, mac + mac, false},
        {"empty", mac, QByteArray(), false},
        {"both empty", QByteArray(), QByteArray(), true},
    };
    for (const auto& [name, trustedValue, untrustedValue, equal] : cases) {
        SCOPED_TRACE(name);
        // Copies of their own, so that the reader tells the two strings apart by address.
        const QByteArray trusted(trustedValue.constData(), trustedValue.size());
        const QByteArray untrusted(untrustedValue.constData(), untrustedValue.size());
        std::vector<int> untrustedReads(size_t(untrusted.size()));
        std::vector<int> trustedReads(size_t(trusted.size()));
        const CountingReader reader{reinterpret_cast<const quint8*>(untrusted.constData()), &untrustedReads,
                                    &trustedReads};
        EXPECT_EQ(isEqualInConsistentTime(trusted, untrusted, reader), equal);
        EXPECT_EQ(isEqualInConsistentTime(trusted, untrusted), equal);
        EXPECT_EQ(untrustedReads, std::vector<int>(untrustedReads.size(), 1));
        std::vector<int> expectedTrustedReads(trustedReads.size());
        for (qsizetype i = 0; i < untrusted.size(); ++i)
            ++expectedTrustedReads[size_t(i % trusted.size())];
        EXPECT_EQ(trustedReads, expectedTrustedReads);
    }
}

TEST(ConsistentTimeDeathTest, NonEmptyAgainstEmptyTrustedIsAProgrammingError) {
    EXPECT_DEATH(
        (void)isEqualInConsistentTime(QByteArray(), QByteArray("x")),
        "marlockCompanionCommon/RNCryptor:[0-9]+: Fatal error: A non-empty value was compared against an "
        "empty trusted value");
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
