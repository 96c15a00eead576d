#include "marlockCompanionCommon/platform/storage/internal/CloudFileNames.h"

#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStore.h"

#include <QByteArray>
#include <QStringDecoder>

namespace platform::internal::CloudFileNames {
namespace {

const QLatin1String temporaryPrefix("~marlock.");

bool isAlphanumeric(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

QString encode(const QByteArray& bytes, bool strict) {
    static const char hex[] = "0123456789ABCDEF";
    QString name;
    name.reserve(bytes.size() * 3);
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        const char c = bytes.at(i);
        const bool plain = isAlphanumeric(c) || (!strict && (c == '-' || c == '_' || (c == '.' && i > 0)));
        if (plain) {
            name.append(QLatin1Char(c));
        } else {
            const auto byte = static_cast<unsigned char>(c);
            name.append(QLatin1Char('%'));
            name.append(QLatin1Char(hex[byte >> 4]));
            name.append(QLatin1Char(hex[byte & 0xF]));
        }
    }
    return name;
}

int hexValue(QChar c) {
    if (c >= QLatin1Char('0') && c <= QLatin1Char('9'))
        return c.unicode() - '0';
    if (c >= QLatin1Char('A') && c <= QLatin1Char('F'))
        return c.unicode() - 'A' + 10;
    return -1; // lower case is never written, so a name holding it is not ours
}

} // namespace

QString fileNameForKey(const QString& key) {
    const QByteArray bytes = key.toUtf8();
    const QString name = encode(bytes, false);
    return isSyncEngineFile(name) ? encode(bytes, true) : name;
}

std::optional<QString> keyForFileName(const QString& fileName) {
    if (fileName.isEmpty() || isSyncEngineFile(fileName) || isTemporaryFile(fileName))
        return std::nullopt;
    // A key is at most 64 bytes, three characters each when encoded: longer names need no decoding.
    if (fileName.size() > 3 * UbiquitousKeyValueStore::maximumKeyLength)
        return std::nullopt;
    QByteArray bytes;
    for (qsizetype i = 0; i < fileName.size(); ++i) {
        const QChar c = fileName.at(i);
        if (c != QLatin1Char('%')) {
            if (c.unicode() > 0x7F)
                return std::nullopt;
            bytes.append(static_cast<char>(c.unicode()));
            continue;
        }
        if (i + 2 >= fileName.size())
            return std::nullopt;
        const int high = hexValue(fileName.at(i + 1)), low = hexValue(fileName.at(i + 2));
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes.append(static_cast<char>(high * 16 + low));
        i += 2;
    }
    if (bytes.isEmpty() || bytes.size() > UbiquitousKeyValueStore::maximumKeyLength)
        return std::nullopt;
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString key = decoder(bytes);
    if (decoder.hasError())
        return std::nullopt;
    // One file per key: a name that is not exactly the one this key gets is someone else's.
    if (fileNameForKey(key) != fileName)
        return std::nullopt;
    return key;
}

bool isSyncEngineFile(const QString& fileName) {
    const auto starts = [&](const char* prefix) { return fileName.startsWith(QLatin1String(prefix)); };
    const auto ends = [&](const char* suffix) { return fileName.endsWith(QLatin1String(suffix)); };
    const auto has = [&](const char* part) { return fileName.contains(QLatin1String(part)); };
    return (starts(".syncthing.") && ends(".tmp")) || starts("~") || starts(".~lock") || ends(".part") ||
           fileName == QLatin1String(".stfolder") || fileName == QLatin1String(".stignore") ||
           starts(".sync") || has(".sync-conflict-") || has(" (conflicted copy") || has("_conflict-");
}

QString temporaryFileName(const QString& fileName, qint64 processId, quint32 random) {
    return temporaryPrefix + fileName +
           QStringLiteral(".%1.%2.tmp").arg(processId).arg(random, 8, 16, QLatin1Char('0'));
}

bool isTemporaryFile(const QString& fileName) {
    return fileName.startsWith(temporaryPrefix) && fileName.endsWith(QLatin1String(".tmp"));
}

} // namespace platform::internal::CloudFileNames
