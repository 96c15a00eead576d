#include "gui/Theme.h"

#include <QApplication>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>

namespace companion {

void applyTheme(const QString& theme) {
    const bool dark = theme == QLatin1String("dark");
    if (!dark && theme != QLatin1String("light"))
        return;
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QPalette palette;
    if (dark) {
        const QColor window(0x2b, 0x2d, 0x31), base(0x1e, 0x1f, 0x22), text(0xe8, 0xe8, 0xea);
        palette.setColor(QPalette::Window, window);
        palette.setColor(QPalette::WindowText, text);
        palette.setColor(QPalette::Base, base);
        palette.setColor(QPalette::AlternateBase, window);
        palette.setColor(QPalette::Text, text);
        palette.setColor(QPalette::Button, window);
        palette.setColor(QPalette::ButtonText, text);
        palette.setColor(QPalette::ToolTipBase, base);
        palette.setColor(QPalette::ToolTipText, text);
        palette.setColor(QPalette::PlaceholderText, QColor(0x9a, 0x9c, 0xa3));
        palette.setColor(QPalette::Highlight, QColor(0x3d, 0x7e, 0xe0));
        palette.setColor(QPalette::HighlightedText, Qt::white);
        palette.setColor(QPalette::Link, QColor(0x7a, 0xb0, 0xff));
        palette.setColor(QPalette::Disabled, QPalette::Text, QColor(0x70, 0x72, 0x78));
        palette.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x70, 0x72, 0x78));
    } else {
        palette = QApplication::style()->standardPalette();
        palette.setColor(QPalette::Highlight, QColor(0x1f, 0x5f, 0xbf));
    }
    QApplication::setPalette(palette);
}

} // namespace companion
