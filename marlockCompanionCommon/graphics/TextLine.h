#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/graphics/Font.h"

#include <QColor>
#include <QGlyphRun>
#include <QRectF>
#include <QString>

class QPainter;

namespace graphics {

// One line of text shaped once with its font's OpenType features (HarfBuzz), then measured and
// drawn as a glyph run as often as needed. A value type, cheap to copy into drawing steps.
//
//   graphics::TextLine line(QStringLiteral("42"), font);
//   QSizeF size = line.size();
//   line.draw(painter, QRectF(QPointF(0, 0), size), Qt::black);
class MCC_EXPORT TextLine {
public:
    // Shapes `text` in `font`. Needs a QGuiApplication.
    TextLine(const QString& text, const Font& font);

    QString text() const { return text_; }
    Font font() const { return font_; }

    // The advance width of the shaped glyphs.
    qreal width() const { return width_; }
    qreal ascent() const { return ascent_; }
    qreal descent() const { return descent_; }
    qreal leading() const { return leading_; }
    // width() × (ascent + descent + leading): the box the line needs.
    QSizeF size() const { return {width_, ascent_ + descent_ + leading_}; }

    // The glyphs chosen by shaping, in order.
    QList<quint32> glyphIndexes() const { return glyphs_.glyphIndexes(); }

    // Draws the line in `color` inside `rect`: centred horizontally, its baseline ascent() below
    // the rectangle's top, nothing outside the rectangle. With `fontSmoothing` false the glyphs
    // get grey-scale antialiasing only (no sub-pixel colour fringes over transparent pixels).
    void draw(QPainter& painter, const QRectF& rect, const QColor& color, bool fontSmoothing = false) const;

private:
    QString text_;
    Font font_;
    QGlyphRun glyphs_;
    qreal width_ = 0;
    qreal ascent_ = 0;
    qreal descent_ = 0;
    qreal leading_ = 0;
};

} // namespace graphics
