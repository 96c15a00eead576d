#include "marlockCompanionCommon/RNCryptor/DecryptorEngineV3_p.h"
#include "marlockCompanionCommon/RNCryptor/Engine_p.h"
#include "marlockCompanionCommon/RNCryptor/Error.h"
#include "marlockCompanionCommon/RNCryptor/HMACV3_p.h"
#include "marlockCompanionCommon/RNCryptor/OverflowingBuffer_p.h"
#include "tests/RNCryptor/ReferenceContainer.h"

#include <gtest/gtest.h>

#include <QRandomGenerator>

namespace {

using namespace RNCryptor::internal;

const QByteArray key = reference::pattern(32, 1);
const QByteArray hmacKey = reference::pattern(32, 2);
const QByteArray iv = reference::pattern(16, 3);

// Random piece sizes cover more ways of cutting a stream than a fixed list; a fresh seed each
// run, printed with every failure, and MARLOCK_TEST_SEED=<seed> runs the same pieces again.
quint32 pieceSeed() {
    bool given = false;
    const quint32 seed = qEnvironmentVariable("MARLOCK_TEST_SEED").toUInt(&given);
    return given ? seed : QRandomGenerator::global()->generate();
}

// The OpenSSL behaviour the container relies on, checked rather than assumed: encryption keeps an
// incomplete block back, decryption keeps the last whole block back until the final call.
TEST(Engine, KeepsBlocksBackLikeThePlatformCryptor) {
    Engine fifteen(CryptorOperation::encrypt, key, iv);
    EXPECT_TRUE(fifteen.update(QByteArray(15, 'a')).isEmpty());
    const QByteArray oneBlock = fifteen.finalData();
    EXPECT_EQ(oneBlock.size(), 16);

    Engine sixteen(CryptorOperation::encrypt, key, iv);
    const QByteArray firstBlock = sixteen.update(QByteArray(16, 'a'));
    const QByteArray paddingBlock = sixteen.finalData();
    EXPECT_EQ(firstBlock.size(), 16);
    EXPECT_EQ(paddingBlock.size(), 16);

    Engine decrypting(CryptorOperation::decrypt, key, iv);
    EXPECT_TRUE(decrypting.update(firstBlock).isEmpty()); // might be the padding: kept back
    EXPECT_EQ(decrypting.update(paddingBlock.first(5)), QByteArray(16, 'a'));
    EXPECT_TRUE(decrypting.update(paddingBlock.sliced(5)).isEmpty());
    EXPECT_TRUE(decrypting.finalData().isEmpty()); // a whole block of padding

    Engine decryptingOneBlock(CryptorOperation::decrypt, key, iv);
    EXPECT_TRUE(decryptingOneBlock.update(oneBlock).isEmpty());
    EXPECT_EQ(decryptingOneBlock.finalData(), QByteArray(15, 'a'));
}

// The output-size query answers as for a final call: a bound for the update and the final step.
// The update length is exact: the streaming paths size their output by it.
TEST(Engine, OutputNeverExceedsTheSizeQueryWhateverThePieces) {
    const quint32 seed = pieceSeed();
    SCOPED_TRACE(testing::Message() << "MARLOCK_TEST_SEED=" << seed);
    QRandomGenerator random(seed);
    const QByteArray plaintext = reference::pattern(1000, 4);
    const QByteArray expected =
        reference::encryptWithKeys(plaintext, key, hmacKey, iv).sliced(18).chopped(32);
    for (CryptorOperation operation : {CryptorOperation::encrypt, CryptorOperation::decrypt}) {
        const QByteArray input = operation == CryptorOperation::encrypt ? plaintext : expected;
        Engine engine(operation, key, iv);
        QByteArray output;
        for (qsizetype at = 0; at < input.size();) {
            const qsizetype piece = std::min<qsizetype>(random.bounded(1, 40), input.size() - at);
            const qsizetype exact = engine.updateLength(piece);
            const qsizetype bound = engine.sizeBuffer(piece);
            const QByteArray out = engine.update(input.sliced(at, piece));
            EXPECT_EQ(out.size(), exact);
            EXPECT_LE(out.size(), bound);
            output += out;
            at += piece;
        }
        const qsizetype bound = engine.sizeBuffer(0);
        const QByteArray last = engine.finalData();
        EXPECT_LE(last.size(), bound);
        EXPECT_EQ(output + last, operation == CryptorOperation::encrypt ? expected : plaintext);
    }
}

TEST(Engine, ResultsStayTheCallersOwn) {
    Engine engine(CryptorOperation::encrypt, key, iv);
    const QByteArray first = engine.update(QByteArray(32, 'a'));
    const QByteArray copy(first.constData(), first.size());
    (void)engine.update(QByteArray(48, 'b'));
    (void)engine.finalData();
    EXPECT_EQ(first, copy);
}

TEST(HMACV3, StreamingGivesTheMacOfTheWholeInput) {
    // RFC 4231, test case 2.
    HMACV3 hmac(QByteArray("Jefe"));
    hmac.update(QByteArray("what do ya want "));
    hmac.update(QByteArray());
    hmac.update(QByteArray("for nothing?"));
    EXPECT_EQ(hmac.finalData().toHex(),
              QByteArray("5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"));
}

TEST(OverflowingBuffer, HoldsBackTheLastCapacityBytes) {
    const QByteArray stream = reference::pattern(40, 5);

    OverflowingBuffer tens(32);
    EXPECT_TRUE(tens.update(stream.sliced(0, 10)).isEmpty());
    EXPECT_TRUE(tens.update(stream.sliced(10, 10)).isEmpty());
    EXPECT_TRUE(tens.update(stream.sliced(20, 10)).isEmpty());
    EXPECT_EQ(tens.update(stream.sliced(30, 5)), stream.first(3));
    EXPECT_EQ(tens.finalData(), stream.sliced(3, 32));

    OverflowingBuffer large(32);
    EXPECT_EQ(large.update(stream), stream.first(8));
    EXPECT_EQ(large.finalData(), stream.last(32));

    OverflowingBuffer exact(32);
    EXPECT_TRUE(exact.update(stream.first(10)).isEmpty());
    EXPECT_EQ(exact.update(stream.sliced(8, 32)), stream.first(10));
    EXPECT_EQ(exact.finalData(), stream.sliced(8, 32));

    OverflowingBuffer fresh(32);
    EXPECT_TRUE(fresh.finalData().isEmpty());
    fresh.update(QByteArray("abc"));
    EXPECT_EQ(fresh.finalData(), QByteArray("abc"));
    EXPECT_TRUE(fresh.finalData().isEmpty());
}

TEST(OverflowingBuffer, EverythingComesOutOnceInOrder) {
    const quint32 seed = pieceSeed();
    SCOPED_TRACE(testing::Message() << "MARLOCK_TEST_SEED=" << seed);
    QRandomGenerator random(seed);
    // One byte at a time: each byte past the first 32 releases the oldest held one.
    const QByteArray stream = reference::pattern(3000, 7);
    OverflowingBuffer bytewise(32);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(bytewise.update(stream.sliced(i, 1)), i < 32 ? QByteArray() : stream.sliced(i - 32, 1))
            << i;
    EXPECT_EQ(bytewise.finalData(), stream.sliced(68, 32));

    for (int round = 0; round < 50; ++round) {
        OverflowingBuffer buffer(32);
        QByteArray out;
        for (qsizetype at = 0; at < stream.size();) {
            const qsizetype piece = std::min<qsizetype>(random.bounded(0, 80), stream.size() - at);
            out += buffer.update(stream.sliced(at, piece));
            at += piece;
        }
        const QByteArray held = buffer.finalData();
        EXPECT_EQ(held, stream.last(32));
        EXPECT_EQ(out + held, stream);
    }
}

QByteArray keyBody(const QByteArray& plaintext) {
    return reference::encryptWithKeys(plaintext, key, hmacKey, iv).sliced(18);
}

// The error code finalData() throws, or nothing.
std::optional<RNCryptor::Error::Code> errorOf(DecryptorEngineV3& engine) {
    try {
        (void)engine.finalData();
    } catch (const RNCryptor::Error& error) {
        return error.code();
    }
    return std::nullopt;
}

TEST(DecryptorEngineV3, ChecksTheHeldBackMacAtTheEnd) {
    const QByteArray header = QByteArray("\x03\x00", 2) + iv;
    const QByteArray plaintext = reference::pattern(100, 8);

    DecryptorEngineV3 right(key, hmacKey, iv, header);
    QByteArray out = right.update(keyBody(plaintext));
    out += right.finalData();
    EXPECT_EQ(out, plaintext);

    DecryptorEngineV3 wrongMacKey(key, reference::pattern(32, 9), iv, header);
    EXPECT_EQ(wrongMacKey.update(keyBody(plaintext)), plaintext.first(96)); // unauthenticated, handed out
    EXPECT_EQ(errorOf(wrongMacKey), RNCryptor::Error::hmacMismatch);

    DecryptorEngineV3 shortBody(key, hmacKey, iv, header);
    EXPECT_TRUE(shortBody.update(keyBody(plaintext).first(20)).isEmpty());
    EXPECT_EQ(errorOf(shortBody), RNCryptor::Error::hmacMismatch) << "20 held bytes are never a 32-byte MAC";
}

TEST(DecryptorEngineV3DeathTest, WrongKeyOrIvSizesStopTheProcess) {
    const QByteArray header(18, '\x03');
    EXPECT_DEATH(DecryptorEngineV3(key.first(16), hmacKey, iv, header),
                 "marlockCompanionCommon/RNCryptor:[0-9]+: Fatal error: Precondition failed: encryption key");
    EXPECT_DEATH(DecryptorEngineV3(key, hmacKey + "x", iv, header), "Precondition failed: HMAC key");
    EXPECT_DEATH(DecryptorEngineV3(key, hmacKey, iv.first(8), header), "Precondition failed: IV");
}

} // namespace
