#include "marlockCompanionCommon/display/NumberScrollLayer.h"
#include "marlockCompanionCommon/display/internal/GlyphRules.h"
#include "marlockCompanionCommon/graphics/ManualAnimationDriver.h"
#include "marlockCompanionCommon/graphics/SystemFont.h"
#include "tests/graphics/InkProbe.h"

#include <QPainter>

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using display::internal::lowerRect;
using display::internal::upperRect;
using Direction = NumberScrollLayer::AnimationDirection;

namespace {

graphics::Image stripOf(const NumberScrollLayer& layer, int index) {
    return layer.contentLayers().at(index)->sublayers().at(0)->contents();
}

TEST(GlyphRules, ColonsDigitsAndStripCells) {
    const std::pair<const char*, std::vector<bool>> texts[] = {
        {"12:34", {false, false, true, false, false}},
        {"A:1", {false, true, false}},
        {"1:A", {false, true, false}},
        {"a:1", {false, false, false}},
        {":1", {false, false}},
        {"1:", {false, false}},
        {"AB:CD", {false, false, false, false, false}},
        {"1::1", {false, false, false, false}},
    };
    for (const auto& [text, centred] : texts) {
        const QStringList characters = display::internal::characters(QString::fromUtf8(text));
        ASSERT_EQ(characters.size(), qsizetype(centred.size())) << text;
        for (qsizetype i = 0; i < characters.size(); ++i)
            EXPECT_EQ(display::internal::needsVerticallyCenteredColon(characters, i), centred[i])
                << text << " @" << i;
    }
    EXPECT_EQ(display::internal::characters(QString::fromUtf8("e\u0301:5")).size(), 3) << "grapheme clusters";
    EXPECT_EQ(display::internal::digitValue("7"), 7);
    for (const char* notDigit : {"x", "+", "12", "\u0663", ""})
        EXPECT_FALSE(display::internal::digitValue(QString::fromUtf8(notDigit))) << notDigit;

    const QSizeF strip(14, 360);
    EXPECT_EQ(display::internal::individualDigitSize(strip), QSizeF(14, 18));
    EXPECT_EQ(upperRect(3, strip), QRectF(0, 54, 14, 18));
    EXPECT_EQ(lowerRect(3, strip), QRectF(0, 234, 14, 18));
}

class NumberScrollLayerTest : public testing::Test {
protected:
    NumberScrollLayerTest() { layer.setFont(graphics::Font("Inter", 20)); }
    NumberScrollLayer layer;
};

TEST_F(NumberScrollLayerTest, LayoutKeepsTheLayerOfEveryPositionThatStillFits) {
    layer.setText("123 456");
    const std::vector<graphics::Layer*> first = layer.contentLayers();
    const QSizeF cell = display::internal::individualDigitSize(stripOf(layer, 0).size());
    const qreal space = first[3]->bounds().width();
    EXPECT_EQ(layer.boundingSize(), QSizeF(6 * cell.width() + space, cell.height()));
    EXPECT_EQ(first[6]->bounds(), QRectF(QPointF(0, 6 * cell.height()), cell));
    EXPECT_EQ(first[3]->value("myContents"), " ");
    EXPECT_EQ(first[0]->value("myContents"), "digits");

    layer.setText("123 457");
    EXPECT_EQ(layer.contentLayers(), first) << "every position kept, the space included";
    EXPECT_EQ(first[6]->bounds(), QRectF(QPointF(0, 7 * cell.height()), cell));
    EXPECT_EQ(first[5]->bounds(), QRectF(QPointF(0, 5 * cell.height()), cell));

    const qreal fourthX = first[4]->frame().x();
    layer.setText("12A 457");
    const std::vector<graphics::Layer*> third = layer.contentLayers();
    EXPECT_NE(third[2], first[2]) << "a digit turned letter gets a new layer";
    for (int i : {0, 1, 3, 4, 5, 6})
        EXPECT_EQ(third[i], first[i]) << i;
    EXPECT_EQ(third[4]->frame().x(), fourthX - cell.width() + third[2]->bounds().width())
        << "moved, not rebuilt";

    layer.setText("12A");
    EXPECT_EQ(layer.sublayers().size(), 3u);
    layer.setText("");
    EXPECT_TRUE(layer.sublayers().empty());
    EXPECT_EQ(layer.boundingSize(), QSizeF(0, 0));
}

TEST_F(NumberScrollLayerTest, RollsEveryDigitOneTurnStaggeredLeftToRightInEitherDirection) {
    graphics::ManualAnimationDriver clock;
    layer.setText("123 456");
    const QSizeF strip = stripOf(layer, 0).size();
    for (const Direction direction : {Direction::up, Direction::down}) {
        SCOPED_TRACE(direction == Direction::up ? "up" : "down");
        layer.setAnimationDirection(direction);
        int completions = 0;
        layer.playScrollAnimation([&completions] { ++completions; });
        for (int i = 0; i < 7; ++i) {
            const auto roll = layer.contentLayers()[i]->animation("scroll");
            if (i == 3) {
                EXPECT_FALSE(roll) << "the space takes its slot without rolling";
                continue;
            }
            const int digit = QStringLiteral("123 456").mid(i, 1).toInt();
            const qreal upper = upperRect(digit, strip).y(), lower = lowerRect(digit, strip).y();
            ASSERT_TRUE(roll);
            EXPECT_EQ(roll->keyPath, "bounds.origin.y");
            EXPECT_DOUBLE_EQ(roll->duration, 0.125 * (i + 2));
            EXPECT_EQ(roll->timingFunction, graphics::MediaTimingFunction(0, 0, 0.1, 1));
            EXPECT_EQ(roll->fromValue.toDouble(), direction == Direction::up ? upper : lower);
            EXPECT_EQ(layer.contentLayers()[i]->bounds().y(), direction == Direction::up ? lower : upper)
                << "the model already shows the digit";
        }
        const double start = layer.contentLayers()[0]->presentationValue("bounds.origin.y").toDouble();
        clock.advanceTime(100ms);
        const double moved =
            layer.contentLayers()[0]->presentationValue("bounds.origin.y").toDouble() - start;
        EXPECT_GT(direction == Direction::up ? moved : -moved, 0) << "digits pass in the direction's order";
        clock.advanceTime(899ms);
        EXPECT_EQ(completions, 0);
        clock.advanceTime(1ms);
        EXPECT_EQ(completions, 1);
        clock.advanceTime(1000ms);
        EXPECT_EQ(completions, 1);
    }

    layer.setAnimationDuration(0);
    bool called = false;
    layer.playScrollAnimation([&called] { called = true; });
    clock.advanceTime(2000ms);
    EXPECT_FALSE(called) << "nothing rolls, nothing reports";
    for (graphics::Layer* entry : layer.contentLayers())
        EXPECT_TRUE(entry->animationKeys().isEmpty());
}

TEST_F(NumberScrollLayerTest, StripCellsShowTheirDigitsAndColonsBetweenFiguresAreCentred) {
    // DejaVu's figures are tabular anyway, so QPainter can draw the expected digits on its own.
    layer.setFont(graphics::Font("DejaVu Sans", 40));
    layer.setText("0");
    const QImage strip = stripOf(layer, 0).rendition(1.0);
    const QSizeF cell = display::internal::individualDigitSize(stripOf(layer, 0).size());
    inkprobe::Ink expected[10];
    for (int digit = 0; digit < 10; ++digit) {
        QImage reference(cell.toSize(), QImage::Format_ARGB32_Premultiplied);
        reference.fill(Qt::transparent);
        QPainter painter(&reference);
        QFont font("DejaVu Sans");
        font.setPixelSize(40);
        painter.setFont(font);
        painter.drawText(reference.rect(), Qt::AlignHCenter | Qt::AlignTop, QString::number(digit));
        expected[digit] = inkprobe::inkOf(reference);
    }
    for (int k = 0; k < 20; ++k) {
        const QRect area = upperRect(k, stripOf(layer, 0).size()).toRect();
        const inkprobe::Ink ink = inkprobe::inkOf(strip, area);
        int closest = 0;
        double best = 1e9;
        for (int digit = 0; digit < 10; ++digit) {
            const QPointF offset = ink.centre - area.topLeft() - expected[digit].centre;
            const double distance = std::abs(ink.mass - expected[digit].mass) / expected[digit].mass * 10 +
                                    std::hypot(offset.x(), offset.y());
            if (distance < best)
                std::tie(best, closest) = std::pair(distance, digit);
        }
        EXPECT_EQ(closest, k % 10) << "cell " << k;
    }

    graphics::ScopedSystemFont system({"Inter", ".InterUI"});
    layer.setFont(graphics::Font::systemFont(100));
    const auto middleOfColon = [this](const char* text, int index) {
        layer.setText(text);
        return inkprobe::inkOf(layer.contentLayers().at(index)->contents().rendition(1.0)).centre.y();
    };
    const QRect twoCell = upperRect(2, stripOf(layer, 0).size()).toRect();
    const double figureMiddle =
        inkprobe::inkOf(stripOf(layer, 0).rendition(1.0), twoCell).centre.y() - twoCell.y();
    EXPECT_LT(std::abs(middleOfColon("12:34", 2) - figureMiddle), 4);
    EXPECT_TRUE(layer.contentLayers()[2]->value("verticallyCenteredColon").toBool());
    EXPECT_GT(middleOfColon("a:1", 1) - figureMiddle, 7) << "not between figures: the font's own colon";
}

TEST_F(NumberScrollLayerTest, SharesGlyphImagesThroughItsCacheAndLetsThemGoWhenItsLookChanges) {
    auto cache = std::make_shared<NumberScrollLayer::DefaultImageCache>();
    const auto stripBox = [&](const NumberScrollLayer& l, std::optional<QColor> background = {}) {
        return cache->imageBox("NumberScrollLayer.digits", l.font(), l.textColor(), background, std::nullopt);
    };
    layer.setImageCache(cache);
    layer.setText("12:34");
    NumberScrollLayer translucent(cache);
    translucent.setFont(layer.font());
    translucent.setBackgroundColor(QColor::fromRgbF(1, 1, 1, 0.5));
    translucent.setText("56:78");
    EXPECT_EQ(stripOf(translucent, 0), stripOf(layer, 0)) << "a translucent background is not baked in";
    EXPECT_EQ(translucent.contentLayers()[2]->contents(), layer.contentLayers()[2]->contents());
    EXPECT_EQ(stripBox(layer)->acquireCount(), 2);

    NumberScrollLayer opaque(cache);
    opaque.setFont(layer.font());
    opaque.setBackgroundColor(QColor(Qt::white));
    opaque.setText("9");
    EXPECT_NE(stripOf(opaque, 0), stripOf(layer, 0));
    EXPECT_EQ(stripOf(opaque, 0).rendition(1.0).pixelColor(0, 0), QColor(Qt::white)) << "baked in";
    EXPECT_EQ(stripBox(opaque, QColor(Qt::white))->acquireCount(), 1);

    translucent.setTextColor(Qt::red);
    EXPECT_EQ(stripBox(layer)->acquireCount(), 1) << "the old strip relinquished";
    EXPECT_EQ(stripBox(translucent)->acquireCount(), 1) << "and a red one made and held";
    EXPECT_EQ(stripOf(translucent, 0), stripBox(translucent)->value()) << "recoloured in place";

    for (NumberScrollLayer* l : {&layer, &translucent, &opaque})
        l->releaseCachedImages();
    cache->evict();
    EXPECT_EQ(stripBox(layer), nullptr);
    EXPECT_EQ(stripBox(translucent), nullptr);
    EXPECT_EQ(cache->imageBox("NumberScrollLayer.characters.:", layer.font(), layer.textColor(), std::nullopt,
                              std::nullopt),
              nullptr);
}

TEST_F(NumberScrollLayerTest, PresentationCopyCarriesWhatItShowsButNotTheDirection) {
    auto cache = std::make_shared<NumberScrollLayer::DefaultImageCache>();
    layer.setImageCache(cache);
    layer.setTextColor(Qt::blue);
    layer.setAnimationDuration(0.5);
    layer.setAnimationDirection(Direction::down);
    layer.setFontSmoothingBackgroundColor(QColor(Qt::white));
    layer.setText("42");
    const auto copy = std::unique_ptr<NumberScrollLayer>(
        static_cast<NumberScrollLayer*>(layer.presentationLayer().release()));
    EXPECT_EQ(copy->text(), "42");
    EXPECT_EQ(copy->font(), layer.font());
    EXPECT_EQ(copy->textColor(), QColor(Qt::blue));
    EXPECT_EQ(copy->animationCurve(), layer.animationCurve());
    EXPECT_EQ(copy->animationDuration(), 0.5);
    EXPECT_EQ(copy->imageCache(), cache);
    EXPECT_EQ(copy->animationDirection(), Direction::up);
    EXPECT_FALSE(copy->fontSmoothingBackgroundColor());
    EXPECT_TRUE(copy->contentLayers().empty()) << "not laid out, so it holds no cache boxes";
}

} // namespace
