#include "marlockCompanionCommon/views/ProgressView.h"
#include "marlockCompanionCommon/graphics/ManualAnimationDriver.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using Direction = ProgressView::Direction;

namespace {

TEST(ProgressView, StartsEmptyRedAndOnePointTallWithNothingAnimating) {
    ProgressView view;
    const graphics::ShapeLayer* layer = view.progressLayer();
    EXPECT_EQ(layer->strokeStart(), 0.0);
    EXPECT_EQ(layer->strokeEnd(), 0.0);
    EXPECT_EQ(layer->strokeColor(), QColor(Qt::red));
    EXPECT_EQ(layer->lineWidth(), 1.0);
    EXPECT_EQ(view.intrinsicContentSize(), QSizeF(ProgressView::noIntrinsicMetric, 1.0));
    EXPECT_TRUE(layer->animationKeys().isEmpty());
    EXPECT_EQ(ProgressView::directionFromRawValue(1), Direction::backward);
    EXPECT_FALSE(ProgressView::directionFromRawValue(2));
}

TEST(ProgressView, FractionAndDirectionBecomeTheStrokeUnclamped) {
    struct Case {
        double progress;
        Direction direction;
        double start, end;
    };
    const Case cases[] = {{0.25, Direction::forward, 0, 0.25},
                          {0.25, Direction::backward, 0.75, 1},
                          {1.5, Direction::forward, 0, 1.5},
                          {1.5, Direction::backward, -0.5, 1}};
    ProgressView view;
    for (const Case& c : cases) {
        view.setProgress(c.progress, c.direction, false);
        EXPECT_EQ(view.progressLayer()->strokeStart(), c.start) << c.progress;
        EXPECT_EQ(view.progressLayer()->strokeEnd(), c.end) << c.progress;
        EXPECT_TRUE(view.progressLayer()->animationKeys().isEmpty()) << "not animated when asked not to";
    }
    view.setDoubleValue(0.4);
    EXPECT_EQ(view.progress(), 0.4);
    EXPECT_EQ(view.direction(), Direction::backward) << "kept";
}

TEST(ProgressView, AnimatesChangesImplicitlyUnlessAskedNotTo) {
    graphics::ManualAnimationDriver clock;
    ProgressView view;
    view.setProgress(0.5, true);
    const auto animation = view.progressLayer()->animation("strokeEnd");
    ASSERT_TRUE(animation);
    EXPECT_EQ(animation->duration, 0.25);
    EXPECT_EQ(animation->timingFunction, graphics::MediaTimingFunction::defaultTiming());
    EXPECT_EQ(view.progressLayer()->presentationValue("strokeEnd").toDouble(), 0.0);
    clock.advanceTime(250ms);
    EXPECT_TRUE(view.progressLayer()->animationKeys().isEmpty());
    EXPECT_EQ(view.progressLayer()->presentationValue("strokeEnd").toDouble(), 0.5);

    view.setProgress(0.7);
    EXPECT_TRUE(view.progressLayer()->animation("strokeEnd")) << "the property setter animates too";
}

TEST(ProgressView, DrawsItsLineAlongTheBottomEdgeInTheTint) {
    ProgressView view;
    view.resize(100, 20);
    view.show(); // a hidden widget gets its resize event only when shown
    const QPainterPath path = view.progressLayer()->path();
    ASSERT_EQ(path.elementCount(), 2);
    EXPECT_EQ(QPointF(path.elementAt(0)), QPointF(0, 0.5));
    EXPECT_EQ(QPointF(path.elementAt(1)), QPointF(100, 0.5));

    view.setProgress(0.25, false);
    const auto bottomRow = [&view](int x) { return view.grab().toImage().pixelColor(x, 19); };
    QImage image = view.grab().toImage();
    EXPECT_EQ(image.pixelColor(10, 19), QColor(Qt::red));
    EXPECT_NE(image.pixelColor(50, 19), QColor(Qt::red));
    EXPECT_NE(image.pixelColor(10, 0), QColor(Qt::red)) << "nothing at the top";

    view.setTintColor(QColor(Qt::blue));
    EXPECT_EQ(bottomRow(10), QColor(Qt::blue));
    view.setTintColor(std::nullopt);
    EXPECT_EQ(bottomRow(10), QColor(Qt::red));
    view.setIndicatorHidden(true);
    EXPECT_NE(bottomRow(10), QColor(Qt::red));
    view.setIndicatorHidden(false);

    // A new line width waits for the next frame change to move the line up.
    view.setLineWidth(3);
    EXPECT_EQ(view.sizeHint().height(), 3);
    EXPECT_EQ(view.progressLayer()->path().elementAt(0).y, 0.5);
    view.resize(100, 21);
    EXPECT_EQ(view.progressLayer()->path().elementAt(0).y, 1.5);
}

} // namespace
