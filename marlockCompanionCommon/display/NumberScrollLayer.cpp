#include "marlockCompanionCommon/display/NumberScrollLayer.h"

#include "marlockCompanionCommon/display/internal/GlyphRules.h"
#include "marlockCompanionCommon/graphics/Transaction.h"

#include <algorithm>

using display::internal::digitValue;

namespace {
const QString myContentsKey = QStringLiteral("myContents");
const QString centredColonKey = QStringLiteral("verticallyCenteredColon");
const QString digitsMarker = QStringLiteral("digits");
} // namespace

NumberScrollLayer::NumberScrollLayer()
    : font_(graphics::Font::systemFont(12).monospacedDigitsFont()) {}

NumberScrollLayer::NumberScrollLayer(std::shared_ptr<NumberScrollLayerImageCache> imageCache)
    : NumberScrollLayer() {
    imageCache_ = std::move(imageCache);
}

NumberScrollLayer::~NumberScrollLayer() {
    endRolls();
}

void NumberScrollLayer::endRolls() {
    // Ended here, while the layer is whole: a roll's completion block may well call back into it.
    for (graphics::Layer* entry : contentLayers_)
        entry->removeAnimation(QStringLiteral("scroll"));
}

std::shared_ptr<NumberScrollLayer::DefaultImageCache> NumberScrollLayer::globalImageCache() {
    static const auto cache = std::make_shared<DefaultImageCache>();
    return cache;
}

void NumberScrollLayer::evictGlobalImageCache() {
    globalImageCache()->evict();
}

void NumberScrollLayer::setImageCache(std::shared_ptr<NumberScrollLayerImageCache> imageCache) {
    releaseCachedImages();
    imageCache_ = std::move(imageCache);
}

void NumberScrollLayer::setText(const QString& text) {
    if (text == text_)
        return;
    text_ = text;
    characters_ = display::internal::characters(text);
    graphics::ScopedTransaction transaction(/*disableActions=*/true);
    relayoutScrollLayers();
    setScrollLayerContents();
}

void NumberScrollLayer::setFont(const graphics::Font& font) {
    const graphics::Font monospaced = font.monospacedDigitsFont();
    if (monospaced == font_)
        return;
    releaseCachedImages();
    font_ = monospaced;
    if (text_.isEmpty())
        return;
    graphics::ScopedTransaction transaction(/*disableActions=*/true);
    // Kept positions would go on showing glyphs of the old font in cells of the old size, so a
    // new font builds every position anew.
    removeContentLayers();
    relayoutScrollLayers();
    setScrollLayerContents();
}

void NumberScrollLayer::setTextColor(const QColor& color) {
    if (color == textColor_)
        return;
    releaseCachedImages();
    textColor_ = color;
    if (!text_.isEmpty())
        recolorScrollLayers();
}

void NumberScrollLayer::setFontSmoothingBackgroundColor(const std::optional<QColor>& color) {
    if (color == fontSmoothingBackgroundColor_)
        return;
    releaseCachedImages();
    fontSmoothingBackgroundColor_ = color;
    recolorScrollLayers();
}

void NumberScrollLayer::setBackgroundColor(const std::optional<QColor>& color) {
    if (color == backgroundColor())
        return;
    Layer::setBackgroundColor(color);
    releaseCachedImages();
    recolorScrollLayers();
}

graphics::MediaTimingFunction NumberScrollLayer::animationCurve() const {
    if (!animationCurve_)
        animationCurve_ = graphics::MediaTimingFunction(0.0, 0.0, 0.1, 1.0);
    return *animationCurve_;
}

void NumberScrollLayer::releaseCachedImages() {
    releaseCachedCharacterImages();
    releaseCachedDigitsImage();
}

void NumberScrollLayer::releaseCachedCharacterImages() {
    for (const auto& box : cachedCharacterImageBoxes_)
        box->relinquish();
    cachedCharacterImageBoxes_.clear();
}

void NumberScrollLayer::releaseCachedDigitsImage() {
    if (cachedDigitsImageBox_)
        cachedDigitsImageBox_->relinquish();
    cachedDigitsImageBox_.reset();
    digitsImage_.reset();
}

std::unique_ptr<graphics::Layer> NumberScrollLayer::makeDigitContainer(qreal x) {
    const graphics::Image strip = digitsImage();
    const QSizeF cell = digitsImageIndividualDigitSize();
    auto stripLayer = std::make_unique<graphics::Layer>();
    stripLayer->setContents(strip);
    stripLayer->setFrame(QRectF(QPointF(0, 0), strip.size()));
    stripLayer->setMasksToBounds(true);
    auto container = std::make_unique<graphics::Layer>();
    container->setValue(digitsMarker, myContentsKey);
    container->setMasksToBounds(true);
    container->setFrame(QRectF(QPointF(x, 0), cell));
    container->addSublayer(std::move(stripLayer));
    return container;
}

std::unique_ptr<graphics::Layer> NumberScrollLayer::makeCharacterLayer(const QString& character,
                                                                       bool centredColon, qreal x) {
    const graphics::Image image =
        createImageForNonDigit(character, centredColon ? font_.verticallyCenteredColonFont() : font_);
    auto layer = std::make_unique<graphics::Layer>();
    layer->setContents(image);
    layer->setFrame(QRectF(QPointF(x, 0), image.size()));
    layer->setValue(character, myContentsKey);
    layer->setValue(centredColon, centredColonKey);
    return layer;
}

void NumberScrollLayer::relayoutScrollLayers() {
    qreal x = 0;
    qreal totalWidth = 0;
    qreal height = 0;
    std::vector<graphics::Layer*> layers;
    layers.reserve(characters_.size());
    for (qsizetype i = 0; i < characters_.size(); ++i) {
        const QString& character = characters_[i];
        graphics::Layer* existing = i < qsizetype(contentLayers_.size()) ? contentLayers_[i] : nullptr;
        graphics::Layer* entry = nullptr;
        if (digitValue(character)) {
            if (existing && existing->value(myContentsKey).toString() == digitsMarker)
                entry = existing;
            else
                entry = addSublayer(makeDigitContainer(x));
        } else {
            const bool centred = display::internal::needsVerticallyCenteredColon(characters_, i);
            if (existing && existing->value(myContentsKey).toString() == character &&
                existing->value(centredColonKey).toBool() == centred)
                entry = existing;
            else
                entry = addSublayer(makeCharacterLayer(character, centred, x));
        }
        if (entry == existing) {
            existing->removeAllAnimations();
            existing->setPosition(QPointF(x, existing->position().y()));
        } else if (existing) {
            existing->removeFromSuperlayer();
        }
        const qreal width = entry->bounds().width();
        x += width;
        totalWidth += width;
        height = std::max(height, entry->bounds().height());
        layers.push_back(entry);
    }
    for (size_t i = layers.size(); i < contentLayers_.size(); ++i)
        contentLayers_[i]->removeFromSuperlayer();
    contentLayers_ = std::move(layers);
    boundingSize_ = QSizeF(totalWidth, height);
}

void NumberScrollLayer::removeContentLayers() {
    for (graphics::Layer* layer : contentLayers_)
        layer->removeFromSuperlayer();
    contentLayers_.clear();
}

void NumberScrollLayer::setScrollLayerContents() {
    const QSizeF strip = digitsImage().size();
    for (qsizetype i = 0; i < characters_.size() && i < qsizetype(contentLayers_.size()); ++i) {
        if (const auto digit = digitValue(characters_[i])) {
            graphics::Layer* container = contentLayers_[i];
            container->setBounds(
                QRectF(display::internal::upperRect(*digit, strip).topLeft(), container->bounds().size()));
        }
    }
}

void NumberScrollLayer::recolorScrollLayers() {
    for (qsizetype i = 0; i < characters_.size() && i < qsizetype(contentLayers_.size()); ++i) {
        graphics::Layer* entry = contentLayers_[i];
        if (digitValue(characters_[i])) {
            const auto strip = entry->sublayers();
            if (!strip.empty())
                strip.front()->setContents(digitsImage());
        } else {
            const bool centred = display::internal::needsVerticallyCenteredColon(characters_, i);
            entry->setContents(createImageForNonDigit(characters_[i],
                                                      centred ? font_.verticallyCenteredColonFont() : font_));
        }
    }
}

void NumberScrollLayer::playScrollAnimation(std::function<void()> completion) {
    if (animationDuration_ == 0)
        return;
    const double step = animationDuration_ / static_cast<double>(contentLayers_.size() + 1);
    double duration = 2 * step;
    const QSizeF strip = digitsImage().size();
    const bool up = animationDirection_ == AnimationDirection::up;

    graphics::Transaction::begin();
    graphics::Transaction::setDisableActions(true);
    if (completion)
        graphics::Transaction::setCompletionBlock(std::move(completion));
    for (qsizetype i = 0; i < characters_.size(); ++i) {
        const auto digit = digitValue(characters_[i]);
        if (digit && i < qsizetype(contentLayers_.size())) {
            graphics::Layer* container = contentLayers_[i];
            const qreal upper = display::internal::upperRect(*digit, strip).y();
            const qreal lower = display::internal::lowerRect(*digit, strip).y();
            // The final cell is in place before the roll starts: both copies of a digit look the
            // same, so the roll only shows a full turn that ends where the model already is.
            QRectF bounds = container->bounds();
            bounds.moveTop(up ? lower : upper);
            container->setBounds(bounds);
            container->addAnimation(graphics::BasicAnimation(QStringLiteral("bounds.origin.y"),
                                                             up ? upper : lower, duration, animationCurve()),
                                    QStringLiteral("scroll"));
        }
        duration += step;
    }
    graphics::Transaction::commit();
}

std::unique_ptr<graphics::Layer> NumberScrollLayer::makePresentationCopy() const {
    auto copy = std::make_unique<NumberScrollLayer>();
    copyLayerProperties(*copy);
    copy->imageCache_ = imageCache_;
    copy->setTextColor(textColor_);
    copy->setFont(font_);
    copy->animationCurve_ = animationCurve();
    copy->animationDuration_ = animationDuration_;
    // Stored, not laid out: a presentation copy draws no glyphs and holds no cache boxes.
    copy->text_ = text_;
    copy->characters_ = characters_;
    return copy;
}
