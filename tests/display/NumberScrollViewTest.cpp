#include "marlockCompanionCommon/display/NumberScrollView.h"
#include "marlockCompanionCommon/graphics/ManualAnimationDriver.h"
#include "tests/graphics/InkProbe.h"

#include <QPainter>

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using Policy = NumberScrollView::ImageCachePolicy;

namespace {

class CountingView : public NumberScrollView {
public:
    void invalidateIntrinsicContentSize() override {
        ++invalidations;
        NumberScrollView::invalidateIntrinsicContentSize();
    }
    int invalidations = 0;
};

// Passes everything to a default cache, counting insertions (each one a glyph image built).
class CountingCache final : public NumberScrollLayerImageCache {
public:
    std::shared_ptr<ImageBox> imageBox(const QString& key, const graphics::Font& font, const QColor& color,
                                       const std::optional<QColor>& background,
                                       const std::optional<QColor>& smoothing) override {
        return inner.imageBox(key, font, color, background, smoothing);
    }
    std::shared_ptr<ImageBox> setImage(const graphics::Image& image, const QString& key,
                                       const graphics::Font& font, const QColor& color,
                                       const std::optional<QColor>& background,
                                       const std::optional<QColor>& smoothing) override {
        ++insertions;
        return inner.setImage(image, key, font, color, background, smoothing);
    }
    void evict() override { inner.evict(); }
    NumberScrollLayer::DefaultImageCache inner;
    int insertions = 0;
};

TEST(NumberScrollView, CompletesAtOnceWithoutRollingAfterTheRollWithItAndNeverWithoutDuration) {
    struct Case {
        const char* text;
        bool animated;
        double duration;
        int callsAtOnce, callsAfterRoll;
    };
    const Case cases[] = {{"", false, 1.0, 1, 1},
                          {"123", false, 1.0, 1, 1},
                          {"456", true, 0.0, 0, 0},
                          {"789", true, 1.0, 0, 1}};
    graphics::ManualAnimationDriver clock;
    NumberScrollView view;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        view.setAnimationDuration(c.duration);
        int calls = 0;
        view.setText(c.text, c.animated, [&calls] { ++calls; });
        EXPECT_EQ(view.text(), c.text);
        EXPECT_EQ(calls, c.callsAtOnce);
        clock.advanceTime(1000ms);
        EXPECT_EQ(calls, c.callsAfterRoll);
    }
}

TEST(NumberScrollView, SizeHintFollowsTheTextAndChangesOnlyWhenItsSizeDoes) {
    CountingView view;
    view.setFont(graphics::Font("Inter", 20));
    view.setText("123");
    const QSizeF three = view.intrinsicContentSize();
    EXPECT_EQ(view.sizeHint(), QSize(qCeil(three.width()), qCeil(three.height())));
    const int before = view.invalidations;
    view.setText("123");
    view.setText("456");
    EXPECT_EQ(view.invalidations, before) << "same text, or same size with tabular digits";
    view.setText("1234");
    EXPECT_EQ(view.invalidations, before + 1);
    view.setFont(graphics::Font("Inter", 30));
    EXPECT_EQ(view.invalidations, before + 2);
    EXPECT_GT(view.intrinsicContentSize().height(), three.height());
}

TEST(NumberScrollView, CachePolicyDecidesWhereImagesGoAndLeavingTheGlobalCacheLetsThemBeEvicted) {
    NumberScrollView a, b;
    EXPECT_EQ(a.imageCachePolicy(), Policy::never());
    EXPECT_EQ(a.layer()->imageCache(), nullptr);
    for (NumberScrollView* view : {&a, &b}) {
        view->setFont(graphics::Font("Inter", 33));
        view->setImageCachePolicy(Policy::global());
        view->setText("12");
    }
    const auto global = a.layer()->imageCache();
    EXPECT_EQ(b.layer()->imageCache(), global) << "one cache for the process";
    const auto globalStrip = [&global](const NumberScrollView& view) {
        return global->imageBox("NumberScrollLayer.digits", view.font(), view.textColor(), std::nullopt,
                                std::nullopt);
    };
    ASSERT_TRUE(globalStrip(a));
    EXPECT_EQ(globalStrip(a)->acquireCount(), 2);

    a.setImageCachePolicy(Policy::never());
    EXPECT_EQ(globalStrip(b)->acquireCount(), 1);
    NumberScrollLayer::evictGlobalImageCache();
    EXPECT_TRUE(globalStrip(b)) << "still held by the other view";
    b.setImageCachePolicy(Policy::never());
    NumberScrollLayer::evictGlobalImageCache();
    EXPECT_FALSE(globalStrip(b));

    auto cache = std::make_shared<CountingCache>();
    a.setImageCachePolicy(Policy::custom(cache));
    EXPECT_EQ(a.layer()->imageCache(), cache);
    a.setText("34");
    EXPECT_EQ(cache->insertions, 1) << "the strip, made from the new cache on the next layout";
    a.setFont(graphics::Font("Inter", 12), Qt::darkGreen);
    EXPECT_EQ(cache->insertions, 2) << "font and colour together rebuild once";
    EXPECT_EQ(a.textColor(), QColor(Qt::darkGreen));
    EXPECT_EQ(a.font(), graphics::Font("Inter", 12).monospacedDigitsFont());
    a.setTextColor(Qt::red);
    a.setFont(graphics::Font("Inter", 14));
    EXPECT_EQ(cache->insertions, 4) << "one after the other, twice";
}

TEST(NumberScrollView, FollowsThePaletteUntilGivenAColourAndDrawsAtTheScreensPixelRatio) {
    NumberScrollView view;
    view.setFont(graphics::Font("Inter", 20));
    view.setText("88");
    view.resize(view.sizeHint());
    EXPECT_FALSE(view.backgroundColor()) << "none unless set";
    EXPECT_EQ(view.textColor(), view.palette().color(QPalette::WindowText));

    QPalette dark = view.palette();
    dark.setColor(QPalette::Window, QColor(30, 30, 30));
    dark.setColor(QPalette::WindowText, QColor(230, 230, 230));
    view.setPalette(dark);
    EXPECT_EQ(view.textColor(), QColor(230, 230, 230));
    const QImage grabbed = view.grab().toImage();
    const inkprobe::Ink text = inkprobe::inkOf(grabbed, {}, QColor(30, 30, 30));
    ASSERT_GT(text.mass, 20);
    int lightest = 0;
    for (int y = 0; y < grabbed.height(); ++y) {
        for (int x = 0; x < grabbed.width(); ++x)
            lightest = std::max(lightest, qGray(grabbed.pixel(x, y)));
    }
    EXPECT_GT(lightest, 200) << "light figures on the dark window";
    EXPECT_EQ(qGray(grabbed.pixel(0, 0)), 30);

    QImage doubled(view.size() * 2, QImage::Format_ARGB32_Premultiplied);
    doubled.setDevicePixelRatio(2);
    doubled.fill(Qt::transparent);
    const graphics::Image strip = view.layer()->contentLayers()[0]->sublayers()[0]->contents();
    const int draws = strip.drawCount();
    view.render(&doubled);
    EXPECT_EQ(strip.drawCount(), draws + 1) << "drawn again for the doubled resolution";
    EXPECT_GT(inkprobe::inkOf(doubled).mass, 3.5 * text.mass) << "four times the pixels";

    view.setTextColor(Qt::red);
    view.setPalette(QPalette());
    EXPECT_EQ(view.textColor(), QColor(Qt::red)) << "a colour the host chose stays";
    view.setBackgroundColor(QColor(Qt::yellow));
    EXPECT_EQ(view.backgroundColor(), QColor(Qt::yellow));
    EXPECT_EQ(view.layer()->backgroundColor(), QColor(Qt::yellow));
}

} // namespace
