#include "marlockCompanionCommon/RNCryptor/RNCryptor.h"
#include "marlockCompanionCommon/RNCryptor/SecretBytes_p.h"
#include "marlockCompanionCommon/platform/runtime/SystemLog.h"
#include "tests/RNCryptor/ReferenceContainer.h"

#include <gtest/gtest.h>

#include <openssl/err.h>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace {

using RNCryptor::Error;
using RNCryptor::internal::BasicSecretBytes;
using RNCryptor::internal::wipe;

const QString password = QStringLiteral("sync passcode");
const QByteArray encryptionKey = reference::pattern(32, 11);
const QByteArray hmacKey = reference::pattern(32, 12);

// The error a call throws, or nothing.
std::optional<Error::Code> errorOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const Error& error) {
        return error.code();
    }
    return std::nullopt;
}

// Feeds `data` in pieces of `pieceSize` bytes and returns all output, final call included.
QByteArray streamed(RNCryptorType& cryptor, const QByteArray& data, qsizetype pieceSize) {
    QByteArray output;
    for (qsizetype at = 0; at < data.size(); at += pieceSize)
        output += cryptor.update(data.sliced(at, std::min(pieceSize, data.size() - at)));
    return output + cryptor.finalData();
}

TEST(RNCryptor, PasswordRoundTripWithFreshSaltsEachTime) {
    const QByteArray plaintext = reference::pattern(1000, 1);
    const QByteArray first = RNCryptor::encrypt(plaintext, password);
    const QByteArray second = RNCryptor::encrypt(plaintext, password);
    EXPECT_NE(first, second);
    EXPECT_EQ(first.size(), 34 + 16 * (1000 / 16 + 1) + 32);
    EXPECT_EQ(RNCryptor::decrypt(first, password), plaintext);
    EXPECT_EQ(RNCryptor::decrypt(second, password), plaintext);
    EXPECT_EQ(RNCryptor::encrypt(QByteArray(), password).size(), 82);
}

TEST(RNCryptor, StreamingInAnyPieceSizeGivesTheSameOutput) {
    const QByteArray plaintext = reference::pattern(333, 2);
    const QByteArray container = RNCryptor::encrypt(plaintext, password);
    RNCryptor::EncryptorV3 keyEncryptor(encryptionKey, hmacKey);
    const QByteArray keyContainer = streamed(keyEncryptor, plaintext, 1);
    for (qsizetype pieceSize : std::initializer_list<qsizetype>{1, 7, 16, 33, 34, 100, 1000}) {
        SCOPED_TRACE(pieceSize);
        RNCryptor::Decryptor decryptor(password);
        EXPECT_EQ(streamed(decryptor, container, pieceSize), plaintext);
        RNCryptor::DecryptorV3 keyDecryptor(encryptionKey, hmacKey);
        EXPECT_EQ(streamed(keyDecryptor, keyContainer, pieceSize), plaintext);
        // Writing in pieces gives a container that reads back the same; 1-byte writes included.
        RNCryptor::Encryptor encryptor(password);
        EXPECT_EQ(RNCryptor::decrypt(streamed(encryptor, plaintext, pieceSize), password), plaintext);
    }
}

TEST(EncryptorV3, HeaderLeavesWithTheFirstOutput) {
    RNCryptor::EncryptorV3 encryptor(password);
    const QByteArray header = encryptor.update(QByteArray(10, 'a'));
    EXPECT_EQ(header.size(), 34);
    EXPECT_EQ(header.first(2), QByteArray("\x03\x01", 2));
    EXPECT_EQ(encryptor.finalData().size(), 16 + 32);

    RNCryptor::EncryptorV3 noUpdate(password);
    EXPECT_EQ(noUpdate.finalData().size(), 82);
    RNCryptor::EncryptorV3 keyBased(encryptionKey, hmacKey);
    const QByteArray container = keyBased.finalData();
    EXPECT_EQ(container.size(), 66);
    EXPECT_EQ(container.first(2), QByteArray("\x03\x00", 2));
}

TEST(DecryptorV3, GathersTheHeaderBeforeDecidingAnything) {
    const QByteArray container = RNCryptor::encrypt(QByteArray("secret"), password);
    for (qsizetype length = 1; length < 34; ++length) {
        RNCryptor::DecryptorV3 decryptor(password);
        for (qsizetype i = 0; i < length; ++i)
            EXPECT_TRUE(decryptor.update(container.sliced(i, 1)).isEmpty());
        EXPECT_EQ(errorOf([&] { (void)decryptor.finalData(); }), Error::messageTooShort) << length;
    }
    // A whole header and nothing else: the missing MAC is a MAC mismatch.
    RNCryptor::DecryptorV3 headerOnly(password);
    EXPECT_TRUE(headerOnly.update(container.first(34)).isEmpty());
    EXPECT_EQ(errorOf([&] { (void)headerOnly.finalData(); }), Error::hmacMismatch);
}

// A failed header parse keeps the bytes and fails again on every later call; the general
// decryptor stays with the version it chose and fails the same way.
TEST(DecryptorV3, AFailedHeaderFailsAgainOnEveryLaterCall) {
    const QByteArray keyContainer = RNCryptor::EncryptorV3(encryptionKey, hmacKey).encrypt(QByteArray("x"));
    RNCryptor::DecryptorV3 versioned(password);
    RNCryptor::Decryptor general(password);
    for (RNCryptorType* decryptor : std::initializer_list<RNCryptorType*>{&versioned, &general}) {
        EXPECT_EQ(errorOf([&] { (void)decryptor->update(keyContainer); }), Error::invalidCredentialType);
        EXPECT_EQ(errorOf([&] { (void)decryptor->update(QByteArray("more")); }),
                  Error::invalidCredentialType);
        EXPECT_EQ(errorOf([&] { (void)decryptor->finalData(); }), Error::messageTooShort);
    }
    EXPECT_TRUE(RNCryptor::DecryptorV3::canDecrypt(QByteArray("\x03", 1)));
    EXPECT_FALSE(RNCryptor::DecryptorV3::canDecrypt(QByteArray("\x02", 1)));
}

TEST(Decryptor, ChoosesTheVersionFromTheFirstByte) {
    for (char version : {'\x02', '\x04'}) {
        RNCryptor::Decryptor decryptor(password);
        EXPECT_EQ(errorOf([&] { (void)decryptor.update(QByteArray(1, version) + QByteArray(100, '\0')); }),
                  Error::unknownHeader);
        EXPECT_EQ(errorOf([&] { (void)decryptor.update(QByteArray(1, '\x03')); }), Error::unknownHeader);
    }

    RNCryptor::Decryptor waiting(password);
    EXPECT_TRUE(waiting.update(QByteArray()).isEmpty()); // no byte yet: nothing decided
    EXPECT_TRUE(waiting.update(QByteArray(1, '\x03')).isEmpty());
    EXPECT_EQ(errorOf([&] { (void)waiting.finalData(); }), Error::messageTooShort);

    RNCryptor::Decryptor nothing(password);
    EXPECT_EQ(errorOf([&] { (void)nothing.finalData(); }), Error::unknownHeader);
    EXPECT_EQ(errorOf([&] { (void)RNCryptor::decrypt(QByteArray(), password); }), Error::unknownHeader);
}

TEST(Decryptor, FailureTable) {
    const QByteArray plaintext("token records");
    const QByteArray container = RNCryptor::encrypt(plaintext, password);
    auto decrypting = [](const QByteArray& data, const QString& with) {
        return errorOf([&] { (void)RNCryptor::decrypt(data, with); });
    };

    EXPECT_EQ(decrypting(container, QStringLiteral("wrong")), Error::hmacMismatch);
    EXPECT_EQ(decrypting(container.chopped(1), password), Error::hmacMismatch);
    EXPECT_EQ(decrypting(container.first(34 + 20), password), Error::hmacMismatch);
    EXPECT_EQ(decrypting(container.first(20), password), Error::messageTooShort);
    for (qsizetype at = 0; at < container.size(); ++at) {
        QByteArray damaged = container;
        damaged[at] = char(damaged[at] ^ 0x10);
        const Error::Code expected =
            at == 0 ? Error::unknownHeader : (at == 1 ? Error::invalidCredentialType : Error::hmacMismatch);
        EXPECT_EQ(decrypting(damaged, password), expected) << "byte " << at;
    }

    // A wrong password yields plaintext-shaped output from update, and the error at the end.
    RNCryptor::Decryptor wrong(QStringLiteral("wrong"));
    EXPECT_EQ(wrong.update(container).size(), 0); // one block: kept back
    EXPECT_EQ(errorOf([&] { (void)wrong.finalData(); }), Error::hmacMismatch);
}

TEST(DecryptorV3, KeyContainersNeedKeysAndPasswordContainersNeedPasswords) {
    const QByteArray iv = reference::pattern(16, 13);
    const QByteArray plaintext = reference::pattern(64, 3);
    const QByteArray keyContainer = RNCryptor::EncryptorV3(encryptionKey, hmacKey, iv).encrypt(plaintext);
    EXPECT_EQ(errorOf([&] { (void)RNCryptor::decrypt(keyContainer, password); }),
              Error::invalidCredentialType);
    EXPECT_EQ(errorOf([&] { (void)RNCryptor::DecryptorV3(hmacKey, encryptionKey).decrypt(keyContainer); }),
              Error::hmacMismatch);

    const QByteArray passwordContainer = RNCryptor::encrypt(plaintext, password);
    EXPECT_EQ(
        errorOf([&] { (void)RNCryptor::DecryptorV3(encryptionKey, hmacKey).decrypt(passwordContainer); }),
        Error::invalidCredentialType);
}

TEST(RNCryptorDeathTest, BrokenPreconditionsStopTheProcessButEncryptorV3TakesAnEmptyPassword) {
    const QByteArray iv(16, 'i');
    EXPECT_DEATH(
        RNCryptor::Encryptor{QString()},
        "^marlockCompanionCommon/RNCryptor:[0-9]+: Fatal error: Precondition failed: password must not "
        "be empty\n");
    EXPECT_DEATH((void)RNCryptor::encrypt(QByteArray("x"), QString()), "password must not be empty");
    EXPECT_DEATH(
        RNCryptor::EncryptorV3(encryptionKey.first(31), hmacKey, iv),
        "marlockCompanionCommon/RNCryptor:[0-9]+: Fatal error: Precondition failed: encryption key must "
        "be 32 bytes");
    EXPECT_DEATH(RNCryptor::EncryptorV3(encryptionKey, hmacKey.first(16)), "HMAC key must be 32 bytes");
    EXPECT_DEATH(RNCryptor::EncryptorV3(encryptionKey, hmacKey, iv.first(15)), "IV must be 16 bytes");
    EXPECT_DEATH(RNCryptor::DecryptorV3(encryptionKey, QByteArray()), "HMAC key must be 32 bytes");

    // Only the general encryptor refuses an empty password; the version-3 one accepts it.
    const QByteArray container = RNCryptor::EncryptorV3{QString()}.encrypt(QByteArray("x"));
    EXPECT_EQ(RNCryptor::DecryptorV3(QString()).decrypt(container), QByteArray("x"));
}

TEST(RNCryptor, LogsNothingAndWipesOnlyWhatItAloneHolds) {
    QStringList lines;
    platform::SystemLogCapture capture([&](const QString& line) { lines << line; });
    const QByteArray container = RNCryptor::encrypt(QByteArray("secret"), password);
    EXPECT_EQ(RNCryptor::decrypt(container, password), QByteArray("secret"));
    EXPECT_EQ(errorOf([&] { (void)RNCryptor::decrypt(container, QStringLiteral("wrong")); }),
              Error::hmacMismatch);
    EXPECT_TRUE(lines.isEmpty()) << lines.join(QLatin1Char('\n')).toStdString();

    // A key the caller still holds is released, not overwritten under the caller's feet.
    const QByteArray callersKey(32, 'k');
    QByteArray shared = callersKey;
    wipe(shared);
    EXPECT_TRUE(shared.isEmpty());
    EXPECT_EQ(callersKey, QByteArray(32, 'k'));
}

// Hands out memory like std::allocator and keeps a copy of each block as it is when given back.
struct RecordingAllocator {
    using value_type = char;
    template <typename> struct rebind { using other = RecordingAllocator; };
    std::vector<QByteArray>* handedBack;

    char* allocate(size_t size) { return std::allocator<char>().allocate(size); }
    void deallocate(char* block, size_t size) {
        handedBack->push_back(QByteArray(block, qsizetype(size)));
        std::allocator<char>().deallocate(block, size);
    }
    bool operator==(const RecordingAllocator&) const = default;
};

TEST(SecretBytes, MemoryIsZeroWhenItsHolderGivesItBack) {
    using Secret = BasicSecretBytes<RecordingAllocator>;
    std::vector<QByteArray> handedBack;
    const RecordingAllocator allocator{&handedBack};
    {
        Secret key(QByteArray(32, 'k'), allocator);
        const Secret password = Secret::fromText(u"pässwörd", allocator);
        EXPECT_EQ(password.text(), QStringLiteral("pässwörd"));
        // A move leaves one holder of the bytes, which cleanses them.
        const Secret moved(std::move(key));
        EXPECT_EQ(moved.bytes(), QByteArray(32, 'k'));
    }
    ASSERT_EQ(handedBack.size(), 2u);
    EXPECT_EQ(handedBack[0], QByteArray(32, '\0'));
    EXPECT_EQ(handedBack[1], QByteArray(16, '\0')); // the password's 8 UTF-16 code units
}

// A container whose MAC is valid can still carry a bad padding: whoever holds the keys can write
// any ciphertext. OpenSSL reports the padding on the thread's error queue, where it must not
// stay for the next OpenSSL user of the thread to find; errors queued before are left alone.
TEST(DecryptorV3, LeavesNoOpenSSLErrorBehindAfterABadPadding) {
    const QByteArray iv = reference::pattern(16, 14);
    QByteArray signedPart =
        reference::encryptWithKeys(QByteArray(16, 'p'), encryptionKey, hmacKey, iv).chopped(32);
    // In CBC this byte of the first block turns the last byte of the padding block from 0x10 into
    // 0x11 (and garbles the first plaintext block).
    signedPart[18 + 15] = char(signedPart[18 + 15] ^ 0x01);
    const QByteArray badPadding = signedPart + reference::hmacSha256(hmacKey, signedPart);

    ERR_clear_error();
    (void)RNCryptor::DecryptorV3(encryptionKey, hmacKey).decrypt(badPadding); // the MAC holds: no throw
    EXPECT_EQ(ERR_peek_error(), 0ul);

    ERR_raise(ERR_LIB_USER, 42);
    const unsigned long earlier = ERR_peek_error();
    (void)RNCryptor::DecryptorV3(encryptionKey, hmacKey).decrypt(badPadding);
    EXPECT_EQ(ERR_get_error(), earlier);
    EXPECT_EQ(ERR_get_error(), 0ul);
}

// Interoperability with the plain reference implementation, at plaintext sizes on the padding
// boundaries: empty, one byte short of a block, exactly one and several blocks, and a large payload.
const QList<qsizetype> sizes = {0, 1, 15, 16, 17, 32, 4096, 65536 + 5};

TEST(Interoperability, PasswordContainersBothWays) {
    int seed = 0;
    for (const QString& password :
         {QStringLiteral("p"), QStringLiteral("Passwort mit Ümläuten"), QStringLiteral("密码🔑"),
          QStringLiteral("a long passphrase, with punctuation!")}) {
        for (qsizetype size : sizes) {
            SCOPED_TRACE(password.toStdString() + " " + std::to_string(size));
            ++seed;
            const QByteArray plaintext = reference::pattern(int(size), seed);
            const QByteArray encryptionSalt = reference::pattern(8, seed + 100);
            const QByteArray hmacSalt = reference::pattern(8, seed + 200);
            const QByteArray iv = reference::pattern(16, seed + 300);
            const QByteArray built =
                reference::encryptWithPassword(plaintext, password, encryptionSalt, hmacSalt, iv);
            EXPECT_EQ(RNCryptor::decrypt(built, password), plaintext);
            // With the same salts and IV the library writes the very same bytes.
            EXPECT_EQ(RNCryptor::EncryptorV3(password, encryptionSalt, hmacSalt, iv).encrypt(plaintext),
                      built);

            const QByteArray written = RNCryptor::encrypt(plaintext, password);
            EXPECT_EQ(reference::decryptWithPassword(written, password), plaintext);
            EXPECT_EQ(reference::decryptWithPassword(written, password + QLatin1Char('x')), std::nullopt);
        }
    }
}

TEST(Interoperability, KeyContainersBothWays) {
    for (qsizetype size : sizes) {
        SCOPED_TRACE(size);
        const QByteArray plaintext = reference::pattern(int(size), 3);
        const QByteArray iv = reference::pattern(16, int(size));
        const QByteArray built = reference::encryptWithKeys(plaintext, encryptionKey, hmacKey, iv);
        EXPECT_EQ(RNCryptor::DecryptorV3(encryptionKey, hmacKey).decrypt(built), plaintext);
        EXPECT_EQ(RNCryptor::EncryptorV3(encryptionKey, hmacKey, iv).encrypt(plaintext), built);

        RNCryptor::EncryptorV3 streaming(encryptionKey, hmacKey);
        EXPECT_EQ(reference::decryptWithKeys(streamed(streaming, plaintext, 7), encryptionKey, hmacKey),
                  plaintext);
    }
}

} // namespace
