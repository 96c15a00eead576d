#pragma once

#include "marlockCompanionCommon/graphics/Font.h"

#include <QList>
#include <QPointF>
#include <QRawFont>
#include <QString>

namespace graphics::internal {

// The glyphs of one line of text after OpenType shaping, with positions relative to the start of
// the baseline (y down, in pixels of the raw font's size).
struct ShapedText {
    QList<quint32> glyphIndexes;
    QList<QPointF> positions;
    qreal advance = 0.0;
};

// Shapes `text` with HarfBuzz over the tables of `rawFont`, applying `features` to the whole
// text. Thread-safe.
ShapedText shapeText(const QRawFont& rawFont, const QString& text, const QList<FontFeature>& features);

} // namespace graphics::internal
