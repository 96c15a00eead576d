#include "marlockCommon/Base32.h"

#include "marlockCommon/TokenError.h"

namespace marlockCommon::Base32 {

namespace {

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";

// The 5-bit value of one character, or -1.
int valueOf(QChar c) {
    const char16_t u = c.unicode();
    if (u >= u'A' && u <= u'Z')
        return u - u'A';
    if (u >= u'a' && u <= u'z')
        return u - u'a';
    if (u >= u'2' && u <= u'7')
        return u - u'2' + 26;
    return -1;
}

[[noreturn]] void fail(const QString& why) {
    throw TokenError(TokenError::Code::invalidBase32, why);
}

} // namespace

QString encode(const QByteArray& bytes, bool padding) {
    QString out;
    out.reserve((bytes.size() + 4) / 5 * 8);
    quint32 buffer = 0;
    int bits = 0;
    for (const char byte : bytes) {
        buffer = (buffer << 8) | static_cast<quint8>(byte);
        bits += 8;
        while (bits >= 5) {
            bits -= 5;
            out += QLatin1Char(alphabet[(buffer >> bits) & 0x1F]);
        }
    }
    if (bits > 0)
        out += QLatin1Char(alphabet[(buffer << (5 - bits)) & 0x1F]);
    if (padding)
        while (out.size() % 8 != 0)
            out += QLatin1Char('=');
    return out;
}

QByteArray decode(QStringView text) {
    QByteArray out;
    out.reserve(text.size() * 5 / 8);
    quint32 buffer = 0;
    int bits = 0;
    qsizetype symbols = 0;
    qsizetype padding = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c == QLatin1Char(' '))
            continue;
        if (c == QLatin1Char('=')) {
            ++padding;
            continue;
        }
        if (padding > 0)
            fail(QStringLiteral("\"=\" before the end at position %1").arg(i));
        const int value = valueOf(c);
        if (value < 0)
            fail(QStringLiteral("invalid character \"%1\" at position %2").arg(c).arg(i));
        buffer = (buffer << 5) | static_cast<quint32>(value);
        bits += 5;
        ++symbols;
        if (bits >= 8) {
            bits -= 8;
            out += static_cast<char>((buffer >> bits) & 0xFF);
        }
    }
    // A final group of 8 symbols holds 5 bytes; 2, 4, 5 or 7 symbols hold 1 to 4. Other remainders
    // cannot come from any byte string.
    const qsizetype remainder = symbols % 8;
    if (remainder == 1 || remainder == 3 || remainder == 6)
        fail(QStringLiteral("%1 symbols is not a length any bytes encode to").arg(symbols));
    // Padding, when there is any, fills the last group and no more: "MY" takes exactly six "=".
    if (padding > 0 && (remainder == 0 || padding != 8 - remainder))
        fail(QStringLiteral("%1 padding characters after %2 symbols").arg(padding).arg(symbols));
    return out;
}

} // namespace marlockCommon::Base32
