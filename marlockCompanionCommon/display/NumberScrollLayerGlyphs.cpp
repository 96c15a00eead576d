// The glyph images of NumberScrollLayer: the digit strip and the images of other characters,
// taken from the image cache when it has them and drawn (then stored there) when it does not.
#include "marlockCompanionCommon/display/NumberScrollLayer.h"

#include "marlockCompanionCommon/display/internal/GlyphRules.h"
#include "marlockCompanionCommon/graphics/TextLine.h"

#include <QPainter>

#include <cmath>

namespace {
const QString digitsKeySuffix = QStringLiteral(".digits");
const QString charactersKeySuffix = QStringLiteral(".characters.");
} // namespace

std::optional<QColor> NumberScrollLayer::opaqueBackgroundColor() const {
    // Only a fully opaque background is baked into glyph images: anything translucent would
    // have to be composited with whatever lies behind the layer, which differs per display.
    const std::optional<QColor> background = backgroundColor();
    if (background && background->alphaF() == 1.0f)
        return background;
    return std::nullopt;
}

bool NumberScrollLayer::fontSmoothing(bool backgroundIsOpaque) const {
    // Sub-pixel smoothing needs to know the colour behind the glyphs: over transparent pixels
    // it leaves coloured fringes, so without an opaque or declared background glyphs get
    // grey-scale antialiasing only.
    return backgroundIsOpaque || fontSmoothingBackgroundColor_.has_value();
}

graphics::Image NumberScrollLayer::digitsImage() {
    if (!digitsImage_)
        digitsImage_ = createDigitsImage(font_);
    return *digitsImage_;
}

QSizeF NumberScrollLayer::digitsImageIndividualDigitSize() {
    return display::internal::individualDigitSize(digitsImage().size());
}

graphics::Image NumberScrollLayer::createDigitsImage(const graphics::Font& font) {
    const QString key = archivedClassName() + digitsKeySuffix;
    const std::optional<QColor> background = opaqueBackgroundColor();
    if (imageCache_) {
        if (auto box =
                imageCache_->imageBox(key, font, textColor_, background, fontSmoothingBackgroundColor_)) {
            cachedDigitsImageBox_ = box;
            return box->acquire();
        }
    }

    QList<graphics::TextLine> digits;
    qreal width = 0;
    qreal height = 0;
    for (int digit = 0; digit <= 9; ++digit) {
        digits.append(graphics::TextLine(QString::number(digit), font));
        width = std::max(width, digits.back().size().width());
        height = std::max(height, digits.back().size().height());
    }
    const qreal cellWidth = std::ceil(width);
    const qreal cellHeight = std::ceil(height);
    const QSizeF size(cellWidth, 10 * cellHeight * display::internal::stripRepetitions);
    const bool smoothing = fontSmoothing(background.has_value());
    graphics::Image image(size, [digits, cellWidth, cellHeight, background, color = textColor_,
                                 smoothing](QPainter& painter, const QRectF& destination) {
        if (background)
            painter.fillRect(destination, *background);
        qreal y = 0;
        for (int repetition = 0; repetition < display::internal::stripRepetitions; ++repetition) {
            for (const graphics::TextLine& digit : digits) {
                digit.draw(painter, QRectF(0, y, cellWidth, cellHeight), color, smoothing);
                y += cellHeight;
            }
        }
    });

    if (imageCache_)
        cachedDigitsImageBox_ =
            imageCache_->setImage(image, key, font, textColor_, background, fontSmoothingBackgroundColor_);
    return image;
}

graphics::Image NumberScrollLayer::createImageForNonDigit(const QString& character,
                                                          const graphics::Font& font) {
    const QString key = archivedClassName() + charactersKeySuffix + character;
    const std::optional<QColor> background = opaqueBackgroundColor();
    if (imageCache_) {
        if (auto box =
                imageCache_->imageBox(key, font, textColor_, background, fontSmoothingBackgroundColor_)) {
            cachedCharacterImageBoxes_.push_back(box);
            return box->acquire();
        }
    }

    const graphics::TextLine line(character, font);
    const QSizeF measured = line.size();
    const qreal cellHeight = digitsImageIndividualDigitSize().height();
    const bool smoothing = fontSmoothing(background.has_value());
    graphics::Image image(QSizeF(std::ceil(measured.width()), cellHeight),
                          [line, measured, cellHeight, background, color = textColor_,
                           smoothing](QPainter& painter, const QRectF& destination) {
                              if (background)
                                  painter.fillRect(destination, *background);
                              // Centred vertically in a cell of digit height.
                              const QRectF box(destination.x(),
                                               destination.y() + (cellHeight - measured.height()) * 0.5,
                                               measured.width(), measured.height());
                              line.draw(painter, box, color, smoothing);
                          });

    if (imageCache_)
        cachedCharacterImageBoxes_.push_back(
            imageCache_->setImage(image, key, font, textColor_, background, fontSmoothingBackgroundColor_));
    return image;
}
