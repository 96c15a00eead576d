#include "marlockCompanionCommon/graphics/TextLine.h"

#include "marlockCompanionCommon/graphics/internal/HarfBuzzShaper.h"

#include <QPainter>

namespace graphics {

TextLine::TextLine(const QString& text, const Font& font)
    : text_(text)
    , font_(font) {
    const QRawFont rawFont = font.rawFont();
    const internal::ShapedText shaped = internal::shapeText(rawFont, text, font.features());
    glyphs_.setRawFont(rawFont);
    glyphs_.setGlyphIndexes(shaped.glyphIndexes);
    glyphs_.setPositions(shaped.positions);
    width_ = shaped.advance;
    if (rawFont.isValid()) {
        ascent_ = rawFont.ascent();
        descent_ = rawFont.descent();
        leading_ = rawFont.leading();
    }
}

void TextLine::draw(QPainter& painter, const QRectF& rect, const QColor& color, bool fontSmoothing) const {
    if (glyphs_.isEmpty())
        return;
    QGlyphRun run = glyphs_;
    if (!fontSmoothing)
        run.setRawFont(font_.rawFont(false));
    painter.save();
    painter.setClipRect(rect, Qt::IntersectClip);
    painter.setPen(color);
    painter.drawGlyphRun(QPointF(rect.left() + (rect.width() - width_) / 2, rect.top() + ascent_), run);
    painter.restore();
}

} // namespace graphics
