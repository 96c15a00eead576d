#include "gui/AppIcon.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace companion {

QIcon appIcon() {
    QIcon icon;
    for (const int side : {16, 22, 24, 32, 48, 64, 128, 256}) {
        QPixmap pixmap(side, side);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF box(side * 0.04, side * 0.04, side * 0.92, side * 0.92);
        painter.setBrush(QColor(0x1f, 0x5f, 0xbf));
        painter.setPen(Qt::NoPen);
        painter.drawRoundedRect(box, side * 0.2, side * 0.2);
        // A dial: the period running out, as the progress bars show it.
        const QRectF dial = box.adjusted(side * 0.18, side * 0.18, -side * 0.18, -side * 0.18);
        painter.setPen(QPen(Qt::white, std::max(1.5, side * 0.09), Qt::SolidLine, Qt::RoundCap));
        painter.setBrush(Qt::NoBrush);
        painter.drawArc(dial, 90 * 16, -270 * 16);
        painter.drawLine(dial.center(), QPointF(dial.center().x(), dial.top() + side * 0.12));
        icon.addPixmap(pixmap);
    }
    return icon;
}

} // namespace companion
