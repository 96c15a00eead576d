// Archiving of NumberScrollLayer through marlockCommon's keyed-coding seam.
#include "marlockCompanionCommon/display/NumberScrollLayer.h"

#include "marlockCompanionCommon/graphics/internal/CodedValues.h"

#include <cmath>

namespace {

constexpr qsizetype longestArchivedText = 4096;

QString archiveKey(const char* suffix) {
    return NumberScrollLayer::archivedClassName() + QLatin1String(suffix);
}

// Unarchivers find the class by name, so it is registered when the library is loaded, before
// any archive can be read.
[[maybe_unused]] const bool registered = [] {
    marlockCommon::registerSecureCodingClass(
        NumberScrollLayer::archivedClassName(),
        [](marlockCommon::KeyedDecoder& coder) -> std::shared_ptr<marlockCommon::SecureCoding> {
            return NumberScrollLayer::decode(coder);
        });
    return true;
}();

} // namespace

void NumberScrollLayer::encode(marlockCommon::KeyedEncoder& coder) const {
    encodeLayerProperties(coder, QString());
    graphics::internal::encodeFont(coder, archiveKey(".font"), font_);
    graphics::internal::encodeColor(coder, archiveKey(".textColor"), textColor_);
    coder.encodeString(text_, archiveKey(".text"));
    graphics::internal::encodeTimingFunction(coder, archiveKey(".animationCurve"), animationCurve());
    coder.encodeDouble(animationDuration_, archiveKey(".animationDuration"));
}

std::shared_ptr<NumberScrollLayer> NumberScrollLayer::decode(marlockCommon::KeyedDecoder& coder) {
    auto layer = std::make_shared<NumberScrollLayer>();
    layer->decodeLayerProperties(coder, QString());
    const auto font = graphics::internal::decodeFont(coder, archiveKey(".font"));
    const auto textColor = graphics::internal::decodeColor(coder, archiveKey(".textColor"));
    const auto text = coder.decodeStringForKey(archiveKey(".text"));
    const auto curve = graphics::internal::decodeTimingFunction(coder, archiveKey(".animationCurve"));
    const auto duration = coder.decodeDoubleForKey(archiveKey(".animationDuration"));
    if (text && text->size() > longestArchivedText)
        coder.failWithError(
            QStringLiteral("the text of a NumberScrollLayer is longer than %1").arg(longestArchivedText));
    if (coder.error())
        return nullptr;

    if (font)
        layer->setFont(*font);
    if (textColor)
        layer->setTextColor(*textColor);
    if (curve)
        layer->setAnimationCurve(*curve);
    if (duration && std::isfinite(*duration) && *duration >= 0)
        layer->setAnimationDuration(*duration);
    // Last, so the text is laid out once, in its final font and colour.
    if (text)
        layer->setText(*text);
    return layer;
}
