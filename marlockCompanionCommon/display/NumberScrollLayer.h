#pragma once

#include "marlockCommon/KeyedCoding.h"
#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/display/NumberScrollLayerDefaultImageCache.h"
#include "marlockCompanionCommon/display/NumberScrollLayerImageCache.h"
#include "marlockCompanionCommon/graphics/Font.h"
#include "marlockCompanionCommon/graphics/Layer.h"
#include "marlockCompanionCommon/graphics/MediaTimingFunction.h"

#include <QColor>
#include <QSizeF>
#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

// An odometer-style text layer for one-time codes: each character is a sublayer, and every digit
// shows one cell of a tall pre-rendered strip (the ten digits, twice) through a clipping container.
// A roll spins each digit one full turn of ten cells and lands it on its digit again, the
// characters finishing one after another from left to right.
//
// Nothing is laid out or drawn while a roll runs: it only moves the containers' bounds over the
// strip. Glyph images (the strip, one image per other character) are drawn once per font and
// colours and, with an image cache, shared with every other layer of the same font and colours.
// Digits are always tabular (the font setter adds "tnum"); a colon between digits (or a digit
// and a capital) is drawn in the font's verticallyCenteredColonFont().
//
// Layout matches characters by position: changing one character never moves or rebuilds the
// others, and digits keep their containers, so a roll works on every digit. Sublayers carry
// "myContents" ("digits", or the character) and, for other characters, "verticallyCenteredColon"
// in their key-value storage.
//
// Archived (marlockCommon::SecureCoding, class "NumberScrollLayer") under the keys
// "NumberScrollLayer.font", ".textColor", ".text", ".animationCurve" and ".animationDuration",
// after the base layer's geometry. Needs a QGuiApplication; main thread only.
//
//   auto layer = std::make_unique<NumberScrollLayer>(cache);
//   layer->setFont(graphics::Font("Inter", 24));
//   layer->setText(QStringLiteral("287 082"));
//   layer->playScrollAnimation([] { /* rolled */ });
class MCC_EXPORT NumberScrollLayer : public graphics::Layer, public marlockCommon::SecureCoding {
public:
    using DefaultImageCache = NumberScrollLayerDefaultImageCache;
    using ImageBox = NumberScrollLayerImageCache::ImageBox;

    // Which way digits spin: up passes them in increasing order (7, 8, 9, 0 … 7), down in
    // decreasing order.
    enum class AnimationDirection { up = 0, down = 1 };

    // Empty text, black, the system font at 12 points, 1 s rolls, rolling up, no image cache.
    NumberScrollLayer();
    explicit NumberScrollLayer(std::shared_ptr<NumberScrollLayerImageCache> imageCache);
    // Ends rolls still running (their completions run now) but does not release cached images:
    // owners call releaseCachedImages() when taking it down.
    ~NumberScrollLayer() override;

    // Where glyph images are shared (none: this layer draws its own). Changing it releases the
    // cached images; the next layout or recolour takes images from the new cache.
    std::shared_ptr<NumberScrollLayerImageCache> imageCache() const { return imageCache_; }
    void setImageCache(std::shared_ptr<NumberScrollLayerImageCache> imageCache);

    // Setting a different text lays it out at once (no animation); an equal text changes nothing.
    QString text() const { return text_; }
    void setText(const QString& text);
    // Always with tabular digits. A different font releases the cached images and lays the text
    // out again with new glyphs.
    graphics::Font font() const { return font_; }
    void setFont(const graphics::Font& font);
    // A different colour releases the cached images and recolours every character.
    QColor textColor() const { return textColor_; }
    void setTextColor(const QColor& color);
    // With a transparent background, the colour sub-pixel smoothing may assume behind the glyphs
    // (switches smoothing on; on Linux there is no way to pass the colour on). None by default.
    std::optional<QColor> fontSmoothingBackgroundColor() const { return fontSmoothingBackgroundColor_; }
    void setFontSmoothingBackgroundColor(const std::optional<QColor>& color);
    // An opaque background (alpha exactly 1) is baked into the glyph images, so a change
    // releases them and recolours; a translucent one is only filled behind them.
    void setBackgroundColor(const std::optional<QColor>& color) override;

    // Seconds for a whole roll; 0 switches rolls off.
    double animationDuration() const { return animationDuration_; }
    void setAnimationDuration(double seconds) { animationDuration_ = seconds; }
    // Cubic Bézier (0, 0), (0.1, 1) unless set.
    graphics::MediaTimingFunction animationCurve() const;
    void setAnimationCurve(const graphics::MediaTimingFunction& curve) { animationCurve_ = curve; }
    AnimationDirection animationDirection() const { return animationDirection_; }
    void setAnimationDirection(AnimationDirection direction) { animationDirection_ = direction; }

    // The size of the laid-out text.
    QSizeF boundingSize() const { return boundingSize_; }
    // One sublayer per character of text(), in order.
    const std::vector<graphics::Layer*>& contentLayers() const { return contentLayers_; }

    // Relinquishes every cached image box this layer holds, so the cache may evict them.
    void releaseCachedImages();

    // Rolls the current text: the character at index i of n rolls for duration × (i + 2) / (n + 1),
    // so the last lands after exactly animationDuration(). `completion` runs once after every
    // roll has finished. With a duration of 0 nothing rolls and the completion is never called.
    void playScrollAnimation(std::function<void()> completion = {});

    // Drops the images of the process-wide cache that no display holds any more (asynchronously).
    static void evictGlobalImageCache();

    static QString archivedClassName() { return QStringLiteral("NumberScrollLayer"); }
    QString className() const override { return archivedClassName(); }
    void encode(marlockCommon::KeyedEncoder& coder) const override;
    // A layer from its archive entry (laid out): missing or mistyped values keep their initial
    // values; a text longer than 4096 UTF-16 units fails the decoding.
    static std::shared_ptr<NumberScrollLayer> decode(marlockCommon::KeyedDecoder& coder);

protected:
    // Carries the cache, colours, font, curve, duration and text (not laid out); not the
    // direction or smoothing colour.
    std::unique_ptr<graphics::Layer> makePresentationCopy() const override;

private:
    friend class NumberScrollView;

    static std::shared_ptr<DefaultImageCache> globalImageCache();

    void endRolls();
    void relayoutScrollLayers();
    void setScrollLayerContents();
    void recolorScrollLayers();
    void removeContentLayers();
    void releaseCachedCharacterImages();
    void releaseCachedDigitsImage();
    std::unique_ptr<graphics::Layer> makeDigitContainer(qreal x);
    std::unique_ptr<graphics::Layer> makeCharacterLayer(const QString& character, bool centredColon, qreal x);

    // Glyph images (NumberScrollLayerGlyphs.cpp).
    std::optional<QColor> opaqueBackgroundColor() const;
    bool fontSmoothing(bool backgroundIsOpaque) const;
    graphics::Image digitsImage();
    QSizeF digitsImageIndividualDigitSize();
    graphics::Image createDigitsImage(const graphics::Font& font);
    graphics::Image createImageForNonDigit(const QString& character, const graphics::Font& font);

    std::shared_ptr<NumberScrollLayerImageCache> imageCache_;
    QString text_;
    QStringList characters_;
    std::shared_ptr<ImageBox> cachedDigitsImageBox_;
    std::vector<std::shared_ptr<ImageBox>> cachedCharacterImageBoxes_;
    QColor textColor_ = QColor(Qt::black);
    graphics::Font font_;
    double animationDuration_ = 1.0;
    mutable std::optional<graphics::MediaTimingFunction> animationCurve_;
    AnimationDirection animationDirection_ = AnimationDirection::up;
    std::optional<graphics::Image> digitsImage_;
    std::vector<graphics::Layer*> contentLayers_;
    QSizeF boundingSize_;
    std::optional<QColor> fontSmoothingBackgroundColor_;
};
