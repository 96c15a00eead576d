// Writes seed inputs for the two fuzzers: valid containers (so the success path is covered from
// the start), followed by the bytes the fuzzers read from the end (mode and piece seed). The
// seeds kept in fuzz/RNCryptor/corpus were made with it; run the fuzz build's copy, whose keys
// are derived with the fuzzing round count, or the password seeds would not open:
//   build-fuzz/fuzz/RNCryptor/fuzz_RNCryptor_make_seeds
//       fuzz/RNCryptor/corpus/Decryptor fuzz/RNCryptor/corpus/DecryptorV3Keys
#include "marlockCompanionCommon/RNCryptor/RNCryptor.h"

#include <QDir>
#include <QFile>

namespace {

void write(const QString& directory, const QString& name, const QByteArray& container,
           const QByteArray& tail) {
    QDir().mkpath(directory);
    QFile file(directory + QLatin1Char('/') + name);
    if (file.open(QIODevice::WriteOnly))
        file.write(container + tail);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    const QString decryptorDir = QString::fromLocal8Bit(argv[1]);
    const QString keysDir = QString::fromLocal8Bit(argv[2]);
    const QByteArray pieceSeed("\x5a\x17\x03\x99", 4);
    int index = 0;
    for (qsizetype size : {0, 1, 16, 33, 100}) {
        const QByteArray plaintext(size, char('a' + index));
        const QString name = QStringLiteral("seed-%1").arg(index++);
        const QByteArray password = RNCryptor::encrypt(plaintext, QStringLiteral("fuzz passcode"));
        write(decryptorDir, name + QStringLiteral("-pieces"), password, pieceSeed + QByteArray(1, '\0'));
        write(decryptorDir, name + QStringLiteral("-oneshot"), password, pieceSeed + QByteArray(1, '\1'));
        const QByteArray keys =
            RNCryptor::EncryptorV3(QByteArray(32, 'e'), QByteArray(32, 'h')).encrypt(plaintext);
        write(keysDir, name, keys, pieceSeed);
    }
    return 0;
}
