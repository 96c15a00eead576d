#include "marlockCompanionCommon/RNCryptor/RNCryptor.h"
#include "tests/RNCryptor/ReferenceContainer.h"

#include <gtest/gtest.h>

namespace {

// Plaintext sizes at the padding boundaries: empty, one byte short of a block, exactly one and
// several blocks, and a container-sized payload.
const QList<qsizetype> sizes = {0, 1, 15, 16, 17, 32, 4096, 65536 + 5};
const QStringList passwords = {QStringLiteral("p"), QStringLiteral("Passwort mit Ümläuten"),
                               QStringLiteral("密码🔑"),
                               QStringLiteral("a long passphrase, with punctuation!")};

TEST(Interoperability, LibraryOpensPasswordContainersBuiltFromTheLayout) {
    int seed = 0;
    for (const QString& password : passwords) {
        for (qsizetype size : sizes) {
            ++seed;
            const QByteArray plaintext = reference::pattern(int(size), seed);
            const QByteArray encryptionSalt = reference::pattern(8, seed + 100);
            const QByteArray hmacSalt = reference::pattern(8, seed + 200);
            const QByteArray iv = reference::pattern(16, seed + 300);
            const QByteArray container =
                reference::encryptWithPassword(plaintext, password, encryptionSalt, hmacSalt, iv);
            EXPECT_EQ(RNCryptor::decrypt(container, password), plaintext) << password.toStdString() << size;
            // With the same salts and IV the library writes the very same bytes.
            EXPECT_EQ(RNCryptor::EncryptorV3(password, encryptionSalt, hmacSalt, iv).encrypt(plaintext),
                      container);
        }
    }
}

TEST(Interoperability, LayoutReaderOpensLibraryPasswordContainers) {
    for (const QString& password : passwords) {
        for (qsizetype size : sizes) {
            const QByteArray plaintext = reference::pattern(int(size), int(size) + 7);
            const QByteArray container = RNCryptor::encrypt(plaintext, password);
            EXPECT_EQ(reference::decryptWithPassword(container, password), plaintext) << size;
            EXPECT_EQ(reference::decryptWithPassword(container, password + QLatin1Char('x')), std::nullopt);
        }
    }
}

TEST(Interoperability, KeyContainersBothWays) {
    const QByteArray encryptionKey = reference::pattern(32, 1);
    const QByteArray hmacKey = reference::pattern(32, 2);
    for (qsizetype size : sizes) {
        const QByteArray plaintext = reference::pattern(int(size), 3);
        const QByteArray iv = reference::pattern(16, int(size));
        const QByteArray built = reference::encryptWithKeys(plaintext, encryptionKey, hmacKey, iv);
        EXPECT_EQ(RNCryptor::DecryptorV3(encryptionKey, hmacKey).decrypt(built), plaintext) << size;
        EXPECT_EQ(RNCryptor::EncryptorV3(encryptionKey, hmacKey, iv).encrypt(plaintext), built) << size;

        RNCryptor::EncryptorV3 streaming(encryptionKey, hmacKey);
        QByteArray written;
        for (qsizetype at = 0; at < plaintext.size(); at += 7)
            written += streaming.update(plaintext.sliced(at, std::min<qsizetype>(7, plaintext.size() - at)));
        written += streaming.finalData();
        EXPECT_EQ(reference::decryptWithKeys(written, encryptionKey, hmacKey), plaintext) << size;
    }
}

} // namespace
