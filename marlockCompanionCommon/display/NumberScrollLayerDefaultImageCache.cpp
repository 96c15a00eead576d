#include "marlockCompanionCommon/display/NumberScrollLayerDefaultImageCache.h"

#include "marlockCompanionCommon/platform/runtime/OperationQueue.h"

#include <QHash>

#include <mutex>
#include <optional>
#include <unordered_map>

namespace {

size_t colorHash(const QColor& color) {
    return qHashMulti(0, quint64(color.rgba64()), static_cast<int>(color.spec()));
}

size_t optionalColorHash(const std::optional<QColor>& color) {
    return color ? colorHash(*color) : 0;
}

struct CacheKey {
    // Compared and hashed in one normalisation form, so canonically equivalent keys are equal.
    QString key;
    graphics::Font font;
    QColor color;
    std::optional<QColor> backgroundColor;
    std::optional<QColor> fontSmoothingBackgroundColor;

    bool operator==(const CacheKey&) const = default;
};

struct CacheKeyHash {
    size_t operator()(const CacheKey& k) const {
        return qHash(k.key) ^ qHash(k.font) ^ colorHash(k.color) ^ optionalColorHash(k.backgroundColor) ^
               optionalColorHash(k.fontSmoothingBackgroundColor);
    }
};

CacheKey makeKey(const QString& key, const graphics::Font& font, const QColor& color,
                 const std::optional<QColor>& backgroundColor,
                 const std::optional<QColor>& fontSmoothingBackgroundColor) {
    return {key.normalized(QString::NormalizationForm_D), font, color, backgroundColor,
            fontSmoothingBackgroundColor};
}

} // namespace

struct NumberScrollLayerDefaultImageCache::Private {
    std::mutex mutex;
    std::optional<std::unordered_map<CacheKey, std::shared_ptr<ImageBox>, CacheKeyHash>> cachedImages;
    int pendingEvictions = 0;
    // Last, so it is destroyed first: it waits for a pass that still needs the fields above.
    std::unique_ptr<platform::OperationQueue> queue;

    auto& images() {
        if (!cachedImages)
            cachedImages.emplace();
        return *cachedImages;
    }

    // With the mutex held. A lookup after evict() must see the pass done, so whichever comes
    // first, the worker or the next caller, runs it.
    void runPendingEviction() {
        if (pendingEvictions == 0)
            return;
        pendingEvictions = 0;
        std::erase_if(images(), [](const auto& entry) { return entry.second->acquireCount() < 1; });
    }
};

NumberScrollLayerDefaultImageCache::NumberScrollLayerDefaultImageCache(QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Private>()) {}

NumberScrollLayerDefaultImageCache::~NumberScrollLayerDefaultImageCache() = default;

std::shared_ptr<NumberScrollLayerImageCache::ImageBox> NumberScrollLayerDefaultImageCache::imageBox(
    const QString& key, const graphics::Font& font, const QColor& color,
    const std::optional<QColor>& backgroundColor, const std::optional<QColor>& fontSmoothingBackgroundColor) {
    const CacheKey cacheKey = makeKey(key, font, color, backgroundColor, fontSmoothingBackgroundColor);
    std::lock_guard lock(d->mutex);
    d->runPendingEviction();
    const auto& images = d->images();
    const auto found = images.find(cacheKey);
    return found == images.end() ? nullptr : found->second;
}

std::shared_ptr<NumberScrollLayerImageCache::ImageBox> NumberScrollLayerDefaultImageCache::setImage(
    const graphics::Image& image, const QString& key, const graphics::Font& font, const QColor& color,
    const std::optional<QColor>& backgroundColor, const std::optional<QColor>& fontSmoothingBackgroundColor) {
    auto box = std::make_shared<ImageBox>(image);
    CacheKey cacheKey = makeKey(key, font, color, backgroundColor, fontSmoothingBackgroundColor);
    std::lock_guard lock(d->mutex);
    d->runPendingEviction();
    d->images().insert_or_assign(std::move(cacheKey), box);
    return box;
}

void NumberScrollLayerDefaultImageCache::evict() {
    platform::OperationQueue* queue;
    {
        std::lock_guard lock(d->mutex);
        ++d->pendingEvictions;
        if (!d->queue)
            d->queue = std::make_unique<platform::OperationQueue>(
                1, QStringLiteral("NumberScrollLayer.DefaultImageCache.queue"));
        queue = d->queue.get();
    }
    Private* state = d.get();
    queue->addOperation([state] {
        std::lock_guard lock(state->mutex);
        state->runPendingEviction();
    });
}
