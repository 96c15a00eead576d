#include "marlockCompanionCommon/graphics/Image.h"

#include <QPainter>

#include <atomic>
#include <cmath>
#include <mutex>
#include <utility>
#include <vector>

namespace graphics {
namespace {
std::atomic<qint64> drawsInProcess{0};
}

struct Image::Data {
    QSizeF size;
    DrawingHandler draw;
    std::mutex mutex;
    // One bitmap per pixel ratio shown so far: there are rarely more than two screens' worth.
    std::vector<std::pair<qreal, QImage>> renditions;
    int drawCount = 0;
};

Image::Image() = default;

Image::Image(const QSizeF& size, DrawingHandler drawingHandler)
    : d_(std::make_shared<Data>()) {
    d_->size = size;
    d_->draw = std::move(drawingHandler);
}

QSizeF Image::size() const {
    return d_ ? d_->size : QSizeF();
}

QImage Image::rendition(qreal devicePixelRatio) const {
    if (!d_ || d_->size.isEmpty() || !(devicePixelRatio > 0))
        return {};
    std::lock_guard lock(d_->mutex);
    for (const auto& [ratio, bitmap] : d_->renditions) {
        if (ratio == devicePixelRatio)
            return bitmap;
    }
    QImage bitmap(static_cast<int>(std::ceil(d_->size.width() * devicePixelRatio)),
                  static_cast<int>(std::ceil(d_->size.height() * devicePixelRatio)),
                  QImage::Format_ARGB32_Premultiplied);
    bitmap.setDevicePixelRatio(devicePixelRatio);
    bitmap.fill(Qt::transparent);
    if (d_->draw) {
        QPainter painter(&bitmap);
        d_->draw(painter, QRectF(QPointF(0, 0), d_->size));
    }
    ++d_->drawCount;
    ++drawsInProcess;
    d_->renditions.emplace_back(devicePixelRatio, bitmap);
    return bitmap;
}

int Image::drawCount() const {
    if (!d_)
        return 0;
    std::lock_guard lock(d_->mutex);
    return d_->drawCount;
}

qint64 Image::totalDrawCount() {
    return drawsInProcess.load();
}

} // namespace graphics
