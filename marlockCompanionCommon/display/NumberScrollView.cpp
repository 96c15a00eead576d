#include "marlockCompanionCommon/display/NumberScrollView.h"

#include "marlockCompanionCommon/graphics/Transaction.h"

#include <QEvent>
#include <QPainter>

#include <cmath>

NumberScrollView::ImageCachePolicy
NumberScrollView::ImageCachePolicy::custom(std::shared_ptr<NumberScrollLayerImageCache> cache) {
    ImageCachePolicy policy;
    policy.kind_ = Kind::custom;
    policy.cache_ = std::move(cache);
    return policy;
}

NumberScrollView::ImageCachePolicy NumberScrollView::ImageCachePolicy::global() {
    ImageCachePolicy policy;
    policy.kind_ = Kind::global;
    return policy;
}

NumberScrollView::NumberScrollView(QWidget* parent)
    : QWidget(parent)
    , layer_(std::make_unique<NumberScrollLayer>()) {
    layer_->setRedrawHandler([this] { update(); });
    layer_->setFrame(QRectF(QPointF(0, 0), size()));
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    followPalette();
    configureImageCache();
}

NumberScrollView::~NumberScrollView() {
    layer_->setRedrawHandler({});
    // A roll's completion may use this view, so rolls end while it is still whole.
    layer_->endRolls();
}

void NumberScrollView::setText(const QString& text) {
    const QSizeF before = layer_->boundingSize();
    layer_->setText(text);
    invalidateIfSizeChanged(before);
}

void NumberScrollView::setText(const QString& text, bool animated, std::function<void()> completion) {
    setText(text);
    if (!animated) {
        if (completion)
            completion();
        return;
    }
    layer_->playScrollAnimation(std::move(completion));
}

void NumberScrollView::setFont(const graphics::Font& font) {
    const QSizeF before = layer_->boundingSize();
    layer_->setFont(font);
    invalidateIfSizeChanged(before);
}

void NumberScrollView::setTextColor(const QColor& color) {
    textColorIsExplicit_ = true;
    graphics::ScopedTransaction transaction(/*disableActions=*/true);
    layer_->setTextColor(color);
}

void NumberScrollView::setFont(const graphics::Font& font, const QColor& textColor) {
    textColorIsExplicit_ = true;
    const QSizeF before = layer_->boundingSize();
    {
        graphics::ScopedTransaction transaction(/*disableActions=*/true);
        // Straight into the layer's field: the font setter below releases the images and lays
        // out again, which already draws in the new colour, so the colour setter's own release
        // and recolour pass would be wasted.
        layer_->textColor_ = textColor;
        layer_->setFont(font);
    }
    invalidateIfSizeChanged(before);
}

void NumberScrollView::setAnimationDirection(NumberScrollLayer::AnimationDirection direction) {
    layer_->setAnimationDirection(direction);
}

void NumberScrollView::setFontSmoothingBackgroundColor(const std::optional<QColor>& color) {
    layer_->setFontSmoothingBackgroundColor(color);
}

void NumberScrollView::setBackgroundColor(const std::optional<QColor>& color) {
    layer_->setBackgroundColor(color);
}

void NumberScrollView::setImageCachePolicy(const ImageCachePolicy& policy) {
    imageCachePolicy_ = policy;
    configureImageCache();
}

void NumberScrollView::configureImageCache() {
    layer_->releaseCachedImages();
    switch (imageCachePolicy_.kind()) {
    case ImageCachePolicy::Kind::global:
        layer_->setImageCache(NumberScrollLayer::globalImageCache());
        break;
    case ImageCachePolicy::Kind::never:
        layer_->setImageCache(nullptr);
        break;
    case ImageCachePolicy::Kind::custom:
        layer_->setImageCache(imageCachePolicy_.cache());
        break;
    }
}

QSize NumberScrollView::sizeHint() const {
    const QSizeF size = layer_->boundingSize();
    return {static_cast<int>(std::ceil(size.width())), static_cast<int>(std::ceil(size.height()))};
}

QSize NumberScrollView::minimumSizeHint() const {
    return sizeHint();
}

void NumberScrollView::invalidateIntrinsicContentSize() {
    updateGeometry();
}

void NumberScrollView::invalidateIfSizeChanged(const QSizeF& before) {
    if (layer_->boundingSize() != before)
        invalidateIntrinsicContentSize();
}

void NumberScrollView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    layer_->render(painter);
}

void NumberScrollView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    layer_->setFrame(QRectF(QPointF(0, 0), size()));
}

void NumberScrollView::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        followPalette();
}

void NumberScrollView::followPalette() {
    if (textColorIsExplicit_)
        return;
    graphics::ScopedTransaction transaction(/*disableActions=*/true);
    layer_->setTextColor(palette().color(QPalette::WindowText));
}
