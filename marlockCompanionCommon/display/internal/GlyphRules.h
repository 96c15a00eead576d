#pragma once

#include <QRectF>
#include <QSizeF>
#include <QString>
#include <QStringList>

#include <optional>

// The pure rules of the number display's glyph layout: how text splits into characters, which
// characters are digits, which colons are drawn centred, and where a digit's cells lie in the
// digit strip (ten digits, then the same ten again, one cell each, top to bottom).
namespace display::internal {

// How many times the strip holds the ten digits.
constexpr int stripRepetitions = 2;

// The user-perceived characters of `text` (grapheme clusters), in order.
QStringList characters(const QString& text);

// The value of a character that is exactly one decimal digit "0" to "9"; absent otherwise.
std::optional<int> digitValue(const QString& character);

// Whether the character at `index` is a colon to draw in the centred-colon font: it has a
// neighbour on both sides, one of them a digit and the other a digit or an upper-case letter.
// So 12:34 and A:1 centre their colon; a:1, :1, 1: and AB:CD do not.
bool needsVerticallyCenteredColon(const QStringList& characters, qsizetype index);

// One digit's cell: the strip's width, a twentieth of its height.
QSizeF individualDigitSize(const QSizeF& stripSize);
// The cell of `digit` in the first repetition, and in the second (half the strip lower).
QRectF upperRect(int digit, const QSizeF& stripSize);
QRectF lowerRect(int digit, const QSizeF& stripSize);

} // namespace display::internal
