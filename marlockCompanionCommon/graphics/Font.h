#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QByteArray>
#include <QFont>
#include <QList>
#include <QRawFont>
#include <QString>

namespace graphics {

class Font;
namespace internal {
// `font` under the platform's name `familyName` (archives keep the system font's own name).
Font withFamilyName(Font font, const QString& familyName);
} // namespace internal

// One OpenType feature setting: a four-letter tag ("tnum") and its value (1 switches it on).
struct FontFeature {
    QByteArray tag;
    quint32 value = 1;
    bool operator==(const FontFeature&) const = default;
};

// A font: family, size, weight, slant and the OpenType features its text is shaped with (Qt 6.4's
// QFont cannot carry features; TextLine applies them through HarfBuzz). A value type.
//
// Sizes are in points, the unit of layer and widget geometry (one device-independent pixel), not
// typographic points: a 12-point font here is 12 pixels tall on a screen of ratio 1.
//
//   graphics::Font font = graphics::Font("Inter", 20).monospacedDigitsFont();
//   graphics::TextLine line(QStringLiteral("123 456"), font);
class MCC_EXPORT Font {
public:
    // The default font family of the font database at 12 points.
    Font();
    Font(const QString& family, qreal pointSize, int weight = QFont::Normal, bool italic = false);
    // The family, weight and slant of `font`, at its size converted to points (pixel sizes as they
    // are; typographic point sizes at the primary screen's logical DPI, 96 without a screen).
    static Font fromQFont(const QFont& font);
    // The system font (SystemFont.h) at `pointSize`. Needs a QGuiApplication.
    static Font systemFont(qreal pointSize);

    // The family looked up in the font database.
    QString family() const { return family_; }
    // The family as the platform names it: the system font's own name for the system font,
    // otherwise family().
    QString familyName() const { return familyName_.isEmpty() ? family_ : familyName_; }
    qreal pointSize() const { return pointSize_; }
    int weight() const { return weight_; }
    bool italic() const { return italic_; }
    // Sorted by tag, one setting per tag.
    const QList<FontFeature>& features() const { return features_; }

    // This font with `feature` set (replacing a setting of the same tag).
    Font fontByAddingFeature(const FontFeature& feature) const;

    // This font with tabular figures ("tnum"), so every digit has the same advance.
    Font monospacedDigitsFont() const;
    // The font to draw a colon between figures with: on systems from 10.11 on (see
    // platform/runtime/SystemVersion.h) and for a font whose familyName() begins with "." (the
    // platform's marker of its own interface font), this font with case-sensitive forms ("case")
    // on; otherwise this font unchanged. "case" is the feature that raises a colon to the height
    // of figures and capitals (in Inter, the glyph its contextual alternates pick between
    // figures); a font without it draws its ordinary colon.
    Font verticallyCenteredColonFont() const;

    // For Qt APIs: this family, weight and slant at the pixel size nearest pointSize().
    QFont toQFont() const;
    // The font's glyphs at exactly pointSize() pixels. With `subpixelAntialiasing` false the
    // glyphs get grey-scale antialiasing only. Needs a QGuiApplication.
    QRawFont rawFont(bool subpixelAntialiasing = true) const;

    bool operator==(const Font&) const = default;

private:
    friend Font internal::withFamilyName(Font font, const QString& familyName);

    QString family_;
    QString familyName_;
    qreal pointSize_ = 12.0;
    int weight_ = QFont::Normal;
    bool italic_ = false;
    QList<FontFeature> features_;
};

MCC_EXPORT size_t qHash(const Font& font, size_t seed = 0);

} // namespace graphics
