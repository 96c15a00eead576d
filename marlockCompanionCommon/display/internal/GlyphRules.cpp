#include "marlockCompanionCommon/display/internal/GlyphRules.h"

#include <QTextBoundaryFinder>

namespace display::internal {
namespace {

bool isUppercaseLetter(const QString& character) {
    return character.toUpper() == character && character.toLower() != character;
}

} // namespace

QStringList characters(const QString& text) {
    QStringList result;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype start = 0;
    while (finder.toNextBoundary() != -1) {
        const qsizetype end = finder.position();
        result.append(text.mid(start, end - start));
        start = end;
    }
    return result;
}

std::optional<int> digitValue(const QString& character) {
    if (character.size() != 1 || character[0] < QLatin1Char('0') || character[0] > QLatin1Char('9'))
        return std::nullopt;
    return character[0].unicode() - '0';
}

bool needsVerticallyCenteredColon(const QStringList& characters, qsizetype index) {
    if (index <= 0 || index + 1 >= characters.size() || characters[index] != QLatin1String(":"))
        return false;
    const QString& before = characters[index - 1];
    const QString& after = characters[index + 1];
    const auto digitOrCapital = [](const QString& c) { return digitValue(c) || isUppercaseLetter(c); };
    return (digitValue(before) && digitOrCapital(after)) || (digitValue(after) && digitOrCapital(before));
}

QSizeF individualDigitSize(const QSizeF& stripSize) {
    return {stripSize.width(), stripSize.height() / 10.0 / stripRepetitions};
}

QRectF upperRect(int digit, const QSizeF& stripSize) {
    const QSizeF cell = individualDigitSize(stripSize);
    return {0.0, digit * cell.height(), stripSize.width(), cell.height()};
}

QRectF lowerRect(int digit, const QSizeF& stripSize) {
    return upperRect(digit, stripSize).translated(0.0, stripSize.height() / 2.0);
}

} // namespace display::internal
