#pragma once

#include <QColor>
#include <QImage>
#include <QPointF>
#include <QRect>

// Pixel checks for drawn glyphs and shapes: where the "ink" is, i.e. how far each pixel differs
// from a background (transparent by default), weighted by that difference.
namespace inkprobe {

struct Ink {
    double mass = 0; // sum of per-pixel differences, 1.0 for one fully inked pixel
    QPointF centre;  // mass-weighted centre, in pixels of the image
    QRect box;       // pixels differing by more than a half
};

inline double difference(QRgb pixel, QRgb background) {
    const int d = std::abs(qRed(pixel) - qRed(background)) + std::abs(qGreen(pixel) - qGreen(background)) +
                  std::abs(qBlue(pixel) - qBlue(background)) + std::abs(qAlpha(pixel) - qAlpha(background));
    return std::min(1.0, d / 255.0);
}

inline Ink inkOf(const QImage& source, QRect area = {}, QColor background = Qt::transparent) {
    const QImage image = source.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    if (area.isNull())
        area = image.rect();
    const QRgb paper = qPremultiply(background.rgba());
    Ink ink;
    double sx = 0, sy = 0;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            const double w = difference(image.pixel(x, y), paper);
            ink.mass += w;
            sx += w * x;
            sy += w * y;
            if (w > 0.5)
                ink.box |= QRect(x, y, 1, 1);
        }
    }
    if (ink.mass > 0)
        ink.centre = QPointF(sx / ink.mass, sy / ink.mass);
    return ink;
}

} // namespace inkprobe
