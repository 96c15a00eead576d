#pragma once

#include "marlockCompanionCommon/display/AcquireRelinquishBox.h"
#include "marlockCompanionCommon/graphics/Font.h"
#include "marlockCompanionCommon/graphics/Image.h"

#include <QColor>
#include <QString>

#include <memory>
#include <optional>

// Where number displays share their glyph images (the digit strip and the other characters of
// one font and colour combination), so that many displays draw each image once.
//
// An image is found by five parts: a key string naming the image ("NumberScrollLayer.digits",
// "NumberScrollLayer.characters.:"), the font, the text colour, the opaque background colour
// baked into the image (or none) and the font-smoothing background colour (or none).
//
// The protocol between a display and its cache: a display that finds a box acquires it; one
// that misses draws the image and stores it with setImage(), whose box already counts it as
// holder. Either way the display relinquishes the box once when it stops using the image. What
// evict() removes, and when, is the cache's policy. Implementations must be thread-safe.
class MCC_EXPORT NumberScrollLayerImageCache {
public:
    using ImageBox = AcquireRelinquishBox<graphics::Image>;

    virtual ~NumberScrollLayerImageCache() = default;

    // The box stored under the five parts, or null. Does not acquire it.
    virtual std::shared_ptr<ImageBox> imageBox(const QString& key, const graphics::Font& font,
                                               const QColor& color,
                                               const std::optional<QColor>& backgroundColor,
                                               const std::optional<QColor>& fontSmoothingBackgroundColor) = 0;

    // Stores `image` under the five parts in a new box (count 1, held by the caller) and
    // returns that box.
    virtual std::shared_ptr<ImageBox> setImage(const graphics::Image& image, const QString& key,
                                               const graphics::Font& font, const QColor& color,
                                               const std::optional<QColor>& backgroundColor,
                                               const std::optional<QColor>& fontSmoothingBackgroundColor) = 0;

    // Drops images nobody holds, as the cache's policy says.
    virtual void evict() = 0;
};
