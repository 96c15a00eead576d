#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/graphics/ShapeLayer.h"

#include <QWidget>

#include <memory>
#include <optional>

// A thin horizontal progress bar: one straight stroke along the bottom edge of the widget whose
// visible part grows from the left (forward) or shrinks toward the right (backward) with a
// fraction. Used to show how much of a code's period has passed.
//
// All drawing is one shape layer (progressLayer()). Changes of the fraction animate over 0.25 s
// (the layer's implicit animation) unless made with animated = false. Fractions are passed on
// as given, never clamped (the layer clamps only what it draws). Main thread only.
//
//   auto* bar = new ProgressView(window);
//   bar->setProgress(elapsed / period, ProgressView::Direction::backward, /*animated=*/true);
class MCC_EXPORT ProgressView : public QWidget {
    Q_OBJECT
    Q_PROPERTY(double progress READ progress WRITE setProgress)
    Q_PROPERTY(double doubleValue READ doubleValue WRITE setDoubleValue)
    Q_PROPERTY(double lineWidth READ lineWidth WRITE setLineWidth)
    Q_PROPERTY(bool indicatorHidden READ indicatorHidden WRITE setIndicatorHidden)
public:
    // forward = 0 fills from the left; backward = 1 keeps the right end and moves the left one.
    enum class Direction { forward = 0, backward = 1 };
    Q_ENUM(Direction)
    // The direction with that raw value; absent for anything but 0 and 1.
    static std::optional<Direction> directionFromRawValue(int rawValue);

    // What intrinsicContentSize() reports for the width: the bar takes whatever width it gets.
    static constexpr double noIntrinsicMetric = -1.0;

    // Progress 0 forward, red, one point wide.
    explicit ProgressView(QWidget* parent = nullptr);
    ~ProgressView() override;
    Q_DISABLE_COPY(ProgressView)

    double progress() const { return progress_; }
    void setProgress(double progress);
    Direction direction() const { return direction_; }
    void setDirection(Direction direction);
    // Another name for progress, for bindings that expect a double value.
    double doubleValue() const { return progress(); }
    void setDoubleValue(double value) { setProgress(value); }

    // Stores both and shows them, animated or at once.
    Q_INVOKABLE void setProgress(double progress, ProgressView::Direction direction, bool animated);
    // The same, keeping the direction.
    Q_INVOKABLE void setProgress(double progress, bool animated);

    // The stroke colour; absent means red.
    std::optional<QColor> tintColor() const { return tintColor_; }
    void setTintColor(const std::optional<QColor>& color);
    // The stroke width and the height the bar asks for. The path keeps its distance from the
    // bottom edge until the next resize.
    double lineWidth() const { return lineWidth_; }
    void setLineWidth(double width);
    // Hides the bar's layer.
    bool indicatorHidden() const { return indicatorHidden_; }
    void setIndicatorHidden(bool hidden);

    // Re-apply progress and direction, tint, and line width to the layer.
    Q_INVOKABLE void configureProgress();
    Q_INVOKABLE void configureTintColor();
    Q_INVOKABLE void configureLineWidth();

    // The bar's line: across the widget, half a line width above its bottom edge (in the layer's
    // y-up coordinates, y = bounds' bottom + line width / 2).
    QPainterPath path() const;
    // (noIntrinsicMetric, lineWidth()).
    QSizeF intrinsicContentSize() const { return {noIntrinsicMetric, lineWidth_}; }
    // No width preference; lineWidth() rounded up as height.
    QSize sizeHint() const override;

    graphics::ShapeLayer* progressLayer() const { return progressLayer_.get(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void moveEvent(QMoveEvent* event) override;

private:
    void commonInit();
    void frameDidChange();

    std::unique_ptr<graphics::ShapeLayer> progressLayer_;
    std::optional<QColor> tintColor_;
    double lineWidth_ = 1.0;
    double progress_ = 0.0;
    Direction direction_ = Direction::forward;
    bool indicatorHidden_ = false;
};
