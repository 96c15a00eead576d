#pragma once

#include "marlockCompanionCommon/display/NumberScrollLayerImageCache.h"

#include <QObject>

#include <memory>

// The image cache number displays use unless given another (NumberScrollLayer::DefaultImageCache;
// the process-wide one is reached through NumberScrollView's global policy).
//
// Nothing is ever evicted by size, age or on insertion: an entry leaves only in an evict() pass,
// and only when its box's holder count has dropped below 1. evict() returns at once and the pass
// runs on the cache's own worker; any lookup or insertion made after evict() has returned sees
// the pass done. Storing under a key already present replaces the box (the old box keeps its
// count and its holders still relinquish it). Thread-safe.
//
//   auto cache = std::make_shared<NumberScrollLayer::DefaultImageCache>();
//   view.setImageCachePolicy(NumberScrollView::ImageCachePolicy::custom(cache));
//   …
//   cache->evict();   // after views were torn down
class MCC_EXPORT NumberScrollLayerDefaultImageCache : public QObject, public NumberScrollLayerImageCache {
    Q_OBJECT
public:
    explicit NumberScrollLayerDefaultImageCache(QObject* parent = nullptr);
    // Waits for a pass still running.
    ~NumberScrollLayerDefaultImageCache() override;
    Q_DISABLE_COPY(NumberScrollLayerDefaultImageCache)

    std::shared_ptr<ImageBox> imageBox(const QString& key, const graphics::Font& font, const QColor& color,
                                       const std::optional<QColor>& backgroundColor,
                                       const std::optional<QColor>& fontSmoothingBackgroundColor) override;
    std::shared_ptr<ImageBox> setImage(const graphics::Image& image, const QString& key,
                                       const graphics::Font& font, const QColor& color,
                                       const std::optional<QColor>& backgroundColor,
                                       const std::optional<QColor>& fontSmoothingBackgroundColor) override;
    // Schedules one pass that removes every entry whose box's acquireCount() is below 1.
    Q_INVOKABLE void evict() override;

private:
    struct Private;
    std::unique_ptr<Private> d;
};
