#include "marlockCompanionCommon/graphics/Font.h"
#include "marlockCompanionCommon/graphics/Image.h"
#include "marlockCompanionCommon/graphics/SystemFont.h"
#include "marlockCompanionCommon/graphics/TextLine.h"
#include "marlockCompanionCommon/platform/runtime/SystemVersion.h"
#include "tests/graphics/InkProbe.h"

#include <QPainter>

#include <gtest/gtest.h>

using graphics::Font;
using graphics::TextLine;

namespace {

TEST(Image, IsDrawnOnDemandOncePerPixelRatioAndSharedByCopies) {
    int draws = 0;
    const graphics::Image image({10, 6.5}, [&draws](QPainter& painter, const QRectF& rect) {
        ++draws;
        painter.fillRect(rect, Qt::red);
    });
    const qint64 processDraws = graphics::Image::totalDrawCount();
    EXPECT_EQ(draws, 0) << "nothing is drawn before it is shown";
    const std::pair<qreal, QSize> ratios[] = {{1.0, {10, 7}}, {2.0, {20, 13}}, {1.5, {15, 10}}};
    for (const auto& [ratio, pixels] : ratios) {
        const QImage bitmap = image.rendition(ratio);
        EXPECT_EQ(bitmap.size(), pixels) << ratio;
        EXPECT_EQ(bitmap.devicePixelRatio(), ratio);
        EXPECT_EQ(bitmap.pixelColor(pixels.width() - 1, 0), QColor(Qt::red)) << "drawn scaled to the ratio";
    }
    const graphics::Image copy = image;
    EXPECT_EQ(copy, image);
    copy.rendition(2.0);
    image.rendition(1.0);
    EXPECT_EQ(draws, 3);
    EXPECT_EQ(image.drawCount(), 3);
    EXPECT_EQ(graphics::Image::totalDrawCount() - processDraws, 3);
    EXPECT_TRUE(graphics::Image().rendition(1.0).isNull());
}

// Draws `text` in `font` on a transparent image tall enough for its line.
QImage drawn(const TextLine& line) {
    QImage image(qCeil(line.width()) + 4, qCeil(line.size().height()), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    line.draw(painter, QRectF(QPointF(0, 0), image.size()), Qt::black);
    return image;
}

TEST(TextLine, ShapesWithTheFontsOpenTypeFeatures) {
    const Font inter("Inter", 100);
    ASSERT_EQ(inter.rawFont().familyName(), QStringLiteral("Inter"))
        << "fonts-inter is installed by install-deps";

    // Inter's figures are proportional unless "tnum" is on.
    EXPECT_NE(TextLine("1", inter).width(), TextLine("0", inter).width());
    const Font tabular = inter.monospacedDigitsFont();
    for (const char* digit : {"1", "4", "7"})
        EXPECT_EQ(TextLine(digit, tabular).width(), TextLine("0", tabular).width()) << digit;

    // "case" raises a lone colon to the middle of the figures (the glyph Inter's contextual
    // alternates choose between figures), which is what the centred-colon font relies on.
    const TextLine plain(":", tabular);
    const TextLine raised(":", tabular.fontByAddingFeature({"case", 1}));
    EXPECT_NE(plain.glyphIndexes(), raised.glyphIndexes());
    const double figureMiddle = inkprobe::inkOf(drawn(TextLine("0", tabular))).centre.y();
    const double plainMiddle = inkprobe::inkOf(drawn(plain)).centre.y();
    const double raisedMiddle = inkprobe::inkOf(drawn(raised)).centre.y();
    EXPECT_GT(plainMiddle - figureMiddle, 7) << "an ordinary colon sits low";
    EXPECT_LT(std::abs(raisedMiddle - figureMiddle), 4) << "the raised one at the figures' middle";
}

TEST(Font, DerivedFontsFollowTheSystemVersionAndFamilyName) {
    const Font inter("Inter", 12);
    EXPECT_EQ(inter.monospacedDigitsFont().features(), (QList<graphics::FontFeature>{{"tnum", 1}}));
    EXPECT_EQ(inter.monospacedDigitsFont().monospacedDigitsFont(), inter.monospacedDigitsFont());

    graphics::ScopedSystemFont system({"Inter", ".InterUI"});
    const Font systemFont = Font::systemFont(12);
    EXPECT_EQ(systemFont.family(), "Inter");
    EXPECT_EQ(systemFont.familyName(), ".InterUI");
    EXPECT_NE(systemFont, inter) << "the platform's name is part of the font";

    struct Case {
        platform::OperatingSystemVersion version;
        Font font;
        bool centred;
    };
    const Case cases[] = {
        {{10, 10, 0}, systemFont, false},        {{10, 11, 0}, systemFont, true},
        {{11, 0, 0}, systemFont, true},          {{11, 0, 0}, inter, false},
        {{11, 0, 0}, Font(".Hidden", 12), true},
    };
    for (const Case& c : cases) {
        platform::ScopedOperatingSystemVersion version(c.version);
        const Font colon = c.font.verticallyCenteredColonFont();
        SCOPED_TRACE(testing::Message() << c.version.majorVersion << "." << c.version.minorVersion << " "
                                        << c.font.familyName().toStdString());
        if (c.centred)
            EXPECT_EQ(colon, c.font.fontByAddingFeature({"case", 1}));
        else
            EXPECT_EQ(colon, c.font);
    }
}

} // namespace
