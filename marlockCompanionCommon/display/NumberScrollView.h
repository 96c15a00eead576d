#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/display/NumberScrollLayer.h"

#include <QWidget>

#include <functional>
#include <memory>
#include <optional>

// The widget that shows a one-time code as a NumberScrollLayer: text with an optional roll and a
// completion, font and colours, the natural size of the text as sizeHint(), and where its glyph
// images are shared.
//
// Unless the host sets a text colour, the text takes the palette's window-text colour and follows
// palette changes (light and dark themes). Glyphs are drawn at the device pixel ratio of the
// screen the widget is on. By default images are not shared (ImageCachePolicy::never()); views of
// one window showing codes in the same font should share the process-wide cache. Main thread only.
//
//   auto* code = new NumberScrollView(window);
//   code->setImageCachePolicy(NumberScrollView::ImageCachePolicy::global());
//   code->setFont(graphics::Font("Inter", 28));
//   code->setText(QStringLiteral("287 082"), /*animated=*/true);   // on each tick of the clock
class MCC_EXPORT NumberScrollView : public QWidget {
    Q_OBJECT
public:
    // Where the view's glyph images come from and go to.
    class MCC_EXPORT ImageCachePolicy {
    public:
        enum class Kind { custom, never, global };
        // The given cache.
        static ImageCachePolicy custom(std::shared_ptr<NumberScrollLayerImageCache> cache);
        // No cache: the view draws its own images.
        static ImageCachePolicy never() { return ImageCachePolicy(); }
        // The process-wide NumberScrollLayer::DefaultImageCache.
        static ImageCachePolicy global();

        Kind kind() const { return kind_; }
        // The cache of a custom policy (null otherwise).
        std::shared_ptr<NumberScrollLayerImageCache> cache() const { return cache_; }
        bool operator==(const ImageCachePolicy&) const = default;

    private:
        Kind kind_ = Kind::never;
        std::shared_ptr<NumberScrollLayerImageCache> cache_;
    };

    explicit NumberScrollView(QWidget* parent = nullptr);
    ~NumberScrollView() override;
    Q_DISABLE_COPY(NumberScrollView)

    QString text() const { return layer_->text(); }
    // Lays the text out at once; updates sizeHint() when the text's size changed.
    void setText(const QString& text);
    // Sets the text, then rolls it when `animated`. Not animated, `completion` runs at once;
    // animated, it runs once the roll has finished, and never when animationDuration() is 0
    // (nothing rolls then).
    void setText(const QString& text, bool animated, std::function<void()> completion = {});

    // The layer's font (always with tabular digits). This hides QWidget::font(), which the
    // view does not use.
    graphics::Font font() const { return layer_->font(); }
    void setFont(const graphics::Font& font);
    QColor textColor() const { return layer_->textColor(); }
    // Applied without a fade; from then on the palette no longer decides the colour.
    void setTextColor(const QColor& color);
    // Both at once, with one rebuild of the glyphs.
    void setFont(const graphics::Font& font, const QColor& textColor);

    double animationDuration() const { return layer_->animationDuration(); }
    void setAnimationDuration(double seconds) { layer_->setAnimationDuration(seconds); }
    graphics::MediaTimingFunction animationCurve() const { return layer_->animationCurve(); }
    void setAnimationCurve(const graphics::MediaTimingFunction& curve) { layer_->setAnimationCurve(curve); }
    NumberScrollLayer::AnimationDirection animationDirection() const { return layer_->animationDirection(); }
    void setAnimationDirection(NumberScrollLayer::AnimationDirection direction);
    std::optional<QColor> fontSmoothingBackgroundColor() const {
        return layer_->fontSmoothingBackgroundColor();
    }
    void setFontSmoothingBackgroundColor(const std::optional<QColor>& color);
    // Filled behind the text; none by default. An opaque colour is baked into the glyphs.
    std::optional<QColor> backgroundColor() const { return layer_->backgroundColor(); }
    void setBackgroundColor(const std::optional<QColor>& color);

    ImageCachePolicy imageCachePolicy() const { return imageCachePolicy_; }
    // Releases the images held from the previous cache; the next layout or recolour uses the
    // new one.
    void setImageCachePolicy(const ImageCachePolicy& policy);

    // The laid-out text's size, in points.
    QSizeF intrinsicContentSize() const { return layer_->boundingSize(); }
    // intrinsicContentSize() rounded up to whole pixels.
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    // Tells layouts that sizeHint() changed.
    virtual void invalidateIntrinsicContentSize();

    // The hosted layer.
    NumberScrollLayer* layer() const { return layer_.get(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void configureImageCache();
    void followPalette();
    void invalidateIfSizeChanged(const QSizeF& before);

    ImageCachePolicy imageCachePolicy_;
    std::unique_ptr<NumberScrollLayer> layer_;
    bool textColorIsExplicit_ = false;
};
