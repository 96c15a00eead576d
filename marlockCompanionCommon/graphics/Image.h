#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QImage>
#include <QSizeF>

#include <functional>
#include <memory>

class QPainter;

namespace graphics {

// An image described by its size in points and a drawing step, drawn only when shown: the
// first time it is needed at a device pixel ratio, the step draws it into a bitmap of that
// resolution, which is kept for later uses at the same ratio. So glyphs stay sharp on high-DPI
// screens and nothing is drawn that is never shown.
//
// The drawing step may run several times (once per ratio) and on any thread that asks for a
// bitmap, so it must only use the values it captured. Copies share the description and the
// bitmaps; a copy compares equal to the image it was copied from. Thread-safe.
//
//   graphics::Image dot({8, 8}, [](QPainter& painter, const QRectF& rect) {
//       painter.setBrush(Qt::red);
//       painter.drawEllipse(rect);
//   });
//   painter.drawImage(QRectF(0, 0, 8, 8), dot.rendition(painter.device()->devicePixelRatio()));
class MCC_EXPORT Image {
public:
    // Draws into `painter` (origin at the image's top left, units of points, already scaled to
    // the bitmap's pixel ratio) within `destination`, the image's whole rectangle.
    using DrawingHandler = std::function<void(QPainter& painter, const QRectF& destination)>;

    // No image.
    Image();
    Image(const QSizeF& size, DrawingHandler drawingHandler);

    bool isNull() const { return !d_; }
    // Size in points.
    QSizeF size() const;

    // The bitmap for `devicePixelRatio` (ceil(size × ratio) pixels, transparent where nothing
    // was drawn, its own ratio set), drawn now unless already drawn at that ratio. Null for a
    // null or empty image.
    QImage rendition(qreal devicePixelRatio) const;

    // How often this image's drawing step has run.
    int drawCount() const;
    // How often the drawing step of any image has run in this process (for measurements).
    static qint64 totalDrawCount();

    friend bool operator==(const Image& a, const Image& b) { return a.d_ == b.d_; }

private:
    struct Data;
    std::shared_ptr<Data> d_;
};

} // namespace graphics
