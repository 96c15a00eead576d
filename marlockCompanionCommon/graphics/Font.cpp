#include "marlockCompanionCommon/graphics/Font.h"

#include "marlockCompanionCommon/graphics/SystemFont.h"
#include "marlockCompanionCommon/platform/runtime/SystemVersion.h"

#include <QGuiApplication>
#include <QHashFunctions>
#include <QScreen>

#include <algorithm>
#include <cmath>

namespace graphics {

Font::Font() = default;

Font::Font(const QString& family, qreal pointSize, int weight, bool italic)
    : family_(family)
    , pointSize_(pointSize)
    , weight_(weight)
    , italic_(italic) {}

Font Font::fromQFont(const QFont& font) {
    qreal size = font.pixelSize();
    if (size <= 0) {
        const QScreen* screen = qobject_cast<QGuiApplication*>(QCoreApplication::instance())
                                    ? QGuiApplication::primaryScreen()
                                    : nullptr;
        size = font.pointSizeF() * (screen ? screen->logicalDotsPerInchY() : 96.0) / 72.0;
    }
    return Font(font.family(), size, font.weight(), font.italic());
}

Font Font::systemFont(qreal pointSize) {
    const SystemFontDescription system = systemFontDescription();
    return internal::withFamilyName(Font(system.family, pointSize), system.familyName);
}

Font Font::fontByAddingFeature(const FontFeature& feature) const {
    Font font = *this;
    auto& features = font.features_;
    const auto at =
        std::lower_bound(features.begin(), features.end(), feature,
                         [](const FontFeature& a, const FontFeature& b) { return a.tag < b.tag; });
    if (at != features.end() && at->tag == feature.tag)
        *at = feature;
    else
        features.insert(at, feature);
    return font;
}

Font Font::monospacedDigitsFont() const {
    return fontByAddingFeature({"tnum", 1});
}

Font Font::verticallyCenteredColonFont() const {
    if (platform::isOperatingSystemAtLeastVersion({10, 11, 0}) && familyName().startsWith(QLatin1Char('.')))
        return fontByAddingFeature({"case", 1});
    return *this;
}

QFont Font::toQFont() const {
    QFont font(family_);
    font.setWeight(static_cast<QFont::Weight>(weight_));
    font.setItalic(italic_);
    font.setPixelSize(std::max(1, static_cast<int>(std::lround(pointSize_))));
    return font;
}

QRawFont Font::rawFont(bool subpixelAntialiasing) const {
    QFont font = toQFont();
    if (!subpixelAntialiasing)
        font.setStyleStrategy(QFont::NoSubpixelAntialias);
    QRawFont raw = QRawFont::fromFont(font);
    // QFont only takes whole pixels; glyphs and metrics follow the exact size.
    raw.setPixelSize(pointSize_);
    return raw;
}

namespace internal {

Font withFamilyName(Font font, const QString& familyName) {
    // Stored only when it differs, so that equal fonts stay equal whichever way they were made.
    font.familyName_ = familyName == font.family_ ? QString() : familyName;
    return font;
}

} // namespace internal

size_t qHash(const Font& font, size_t seed) {
    seed = qHashMulti(seed, font.family(), font.familyName(), font.pointSize(), font.weight(), font.italic());
    for (const FontFeature& feature : font.features())
        seed = qHashMulti(seed, feature.tag, feature.value);
    return seed;
}

} // namespace graphics
