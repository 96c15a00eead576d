#include "marlockCompanionCommon/views/VibrantTextFieldBackgroundView.h"
#include "marlockCompanionCommon/platform/runtime/SystemVersion.h"

#include <QPainter>

#include <gtest/gtest.h>

namespace {

QImage drawn(QWidget& view) {
    QImage image(view.size(), QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    view.render(&image, {}, {}, QWidget::DrawChildren);
    return image;
}

TEST(VibrantTextFieldBackgroundView, FillsWithTheGreyOfTheSystemVersion) {
    const std::pair<platform::OperatingSystemVersion, int> cases[] = {
        {{10, 11, 6}, 64}, {{10, 12, 0}, 204}, {{11, 0, 0}, 204}, {{10, 12, 1}, 204}};
    VibrantTextFieldBackgroundView view;
    view.resize(100, 22);
    EXPECT_TRUE(view.allowsVibrancy());
    for (const auto& [version, white] : cases) {
        platform::ScopedOperatingSystemVersion system(version);
        const QColor centre = drawn(view).pixelColor(50, 11);
        EXPECT_NEAR(centre.red(), white, 2) << version.minorVersion;
        EXPECT_NEAR(centre.alpha(), 64, 1) << version.minorVersion;
    }
    EXPECT_EQ(platform::operatingSystemVersion(), (platform::OperatingSystemVersion{10, 12, 0}))
        << "Linux reports";
}

TEST(VibrantTextFieldBackgroundView, OutlinesARoundedRectangleHalfAPointInsideItsBounds) {
    VibrantTextFieldBackgroundView view;
    view.resize(100, 22);
    EXPECT_EQ(view.backgroundPath().boundingRect(), QRectF(0.5, 0.5, 99, 21));
    const QImage image = drawn(view);
    const int inside = image.pixelColor(50, 11).alpha();
    for (const QPoint edge : {QPoint(50, 0), QPoint(50, 21), QPoint(0, 11), QPoint(99, 11)})
        EXPECT_GT(image.pixelColor(edge).alpha(), inside + 20) << edge.x() << "," << edge.y();
    EXPECT_LT(image.pixelColor(0, 0).alpha(), image.pixelColor(50, 0).alpha() / 2) << "rounded corner";

    QPalette dark = view.palette();
    dark.setColor(QPalette::WindowText, Qt::white);
    view.setPalette(dark);
    EXPECT_EQ(view.strokeColor().red(), 255);
    EXPECT_NEAR(view.strokeColor().alphaF(), 0.26, 0.01);
}

} // namespace
