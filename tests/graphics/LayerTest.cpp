#include "marlockCompanionCommon/graphics/Layer.h"
#include "marlockCompanionCommon/graphics/ManualAnimationDriver.h"
#include "marlockCompanionCommon/graphics/ShapeLayer.h"

#include <QPainter>

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using graphics::BasicAnimation;
using graphics::Layer;

namespace {

const QColor bands[] = {Qt::red, Qt::green, Qt::blue, Qt::yellow};

// 10 × 40 points: four 10-point bands, top to bottom.
graphics::Image bandedImage() {
    return graphics::Image({10, 40}, [](QPainter& painter, const QRectF&) {
        for (int i = 0; i < 4; ++i)
            painter.fillRect(QRectF(0, 10 * i, 10, 10), bands[i]);
    });
}

QImage render(const Layer& layer, QSize size, qreal ratio = 1.0) {
    QImage image(size * ratio, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(ratio);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    layer.render(painter);
    return image;
}

// A 40 × 40 root showing, at (5, 5), a 10 × 10 window on the third band of a banded strip.
struct Scroller {
    Layer root;
    Layer* window;
    Layer* strip;
    Scroller() {
        root.setFrame({0, 0, 40, 40});
        window = root.addSublayer(std::make_unique<Layer>());
        window->setFrame({5, 5, 10, 10});
        window->setBounds({0, 20, 10, 10});
        window->setMasksToBounds(true);
        strip = window->addSublayer(std::make_unique<Layer>());
        strip->setFrame({0, 0, 10, 40});
        strip->setContents(bandedImage());
    }
};

TEST(Layer, RendersContentsThroughScrolledClippedBoundsAtTheTargetsPixelRatio) {
    Scroller scroller;
    QImage image = render(scroller.root, {40, 40});
    EXPECT_EQ(image.pixelColor(10, 10), QColor(Qt::blue)) << "the bounds origin selects the third band";
    EXPECT_EQ(image.pixelColor(10, 16).alpha(), 0) << "clipped to the window";
    EXPECT_EQ(image.pixelColor(2, 10).alpha(), 0);

    scroller.window->setMasksToBounds(false);
    image = render(scroller.root, {40, 40});
    EXPECT_EQ(image.pixelColor(10, 16), QColor(Qt::yellow)) << "unclipped, the fourth band shows below";
    scroller.window->setMasksToBounds(true);

    const graphics::Image contents = scroller.strip->contents();
    EXPECT_EQ(contents.drawCount(), 1);
    image = render(scroller.root, {40, 40}, 2.0);
    EXPECT_EQ(contents.drawCount(), 2) << "drawn again for the new pixel ratio";
    EXPECT_EQ(contents.rendition(2.0).size(), QSize(20, 80));
    EXPECT_EQ(image.pixelColor(20, 20), QColor(Qt::blue));
    render(scroller.root, {40, 40}, 2.0);
    EXPECT_EQ(contents.drawCount(), 2) << "kept for that ratio";

    scroller.window->setHidden(true);
    EXPECT_EQ(render(scroller.root, {40, 40}).pixelColor(10, 10).alpha(), 0);
}

TEST(Layer, AnimatedBoundsScrollTheDrawingAndShowInThePresentationCopy) {
    graphics::ManualAnimationDriver clock;
    Scroller scroller;
    scroller.window->addAnimation(BasicAnimation("bounds.origin.y", 0.0, 1.0), "scroll");
    clock.advanceTime(500ms);
    EXPECT_EQ(render(scroller.root, {40, 40}).pixelColor(10, 10), QColor(Qt::green)) << "half-way: y = 10";

    const auto copy = scroller.window->presentationLayer();
    EXPECT_EQ(copy->bounds(), QRectF(0, 10, 10, 10));
    EXPECT_EQ(copy->frame(), scroller.window->frame());
    EXPECT_TRUE(copy->masksToBounds());
    EXPECT_TRUE(copy->sublayers().empty());
    EXPECT_TRUE(copy->animationKeys().isEmpty());
}

TEST(Layer, TreeChangesReachTheRootsRedrawHandler) {
    Layer root;
    int redraws = 0;
    root.setRedrawHandler([&redraws] { ++redraws; });
    Layer* child = root.addSublayer(std::make_unique<Layer>());
    Layer* grandchild = child->addSublayer(std::make_unique<Layer>());
    EXPECT_EQ(grandchild->superlayer(), child);
    redraws = 0;
    grandchild->setBackgroundColor(QColor(Qt::red));
    EXPECT_EQ(redraws, 1);

    std::unique_ptr<Layer> taken = child->removeFromSuperlayer();
    EXPECT_EQ(taken.get(), child);
    EXPECT_EQ(redraws, 2);
    EXPECT_TRUE(root.sublayers().empty());
    EXPECT_EQ(child->superlayer(), nullptr);
    grandchild->setHidden(true);
    EXPECT_EQ(redraws, 2) << "no longer in the tree";
    EXPECT_EQ(child->removeFromSuperlayer(), nullptr);
}

TEST(ShapeLayer, StrokesTheFractionOfThePathBetweenStartAndEndInItsOwnOrientation) {
    QPainterPath corner; // 100 along the top, then 100 down the right side
    corner.moveTo(0, 0);
    corner.lineTo(100, 0);
    corner.lineTo(100, 100);
    struct Case {
        double start, end;
        std::vector<QPointF> points;
    };
    const Case cases[] = {
        {0.25, 0.75, {{50, 0}, {100, 0}, {100, 50}}},
        {0.1, 0.2, {{20, 0}, {40, 0}}},
        {-0.5, 1.5, {{0, 0}, {100, 0}, {100, 100}}},
        {0.6, 0.4, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.start << "…" << c.end);
        const QPainterPath trimmed = graphics::ShapeLayer::trimmedPath(corner, c.start, c.end);
        std::vector<QPointF> points;
        for (int i = 0; i < trimmed.elementCount(); ++i) {
            const QPointF p = trimmed.elementAt(i);
            if (points.empty() || points.back() != p)
                points.push_back(p);
        }
        EXPECT_EQ(points, c.points);
    }

    // Drawn with the geometry flipped, a line half a point above y = 0 lies on the bottom row.
    graphics::ShapeLayer bar;
    bar.setFrame({0, 0, 40, 10});
    QPainterPath line;
    line.moveTo(0, 0.5);
    line.lineTo(40, 0.5);
    bar.setPath(line);
    bar.setStrokeColor(QColor(Qt::red));
    for (const bool flipped : {false, true}) {
        bar.setGeometryFlipped(flipped);
        const QImage image = render(bar, {40, 10});
        EXPECT_EQ(image.pixelColor(20, flipped ? 9 : 0), QColor(Qt::red)) << flipped;
        EXPECT_EQ(image.pixelColor(20, flipped ? 0 : 9).alpha(), 0) << flipped;
    }
}

} // namespace
