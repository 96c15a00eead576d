// marlock-screen-grab OUT.png: saves what the X screen shows, cropped to what differs from the
// empty screen's colour (the windows on it). Used by scripts/screenshots under Xvfb, where no
// window manager draws frames and the empty screen is one plain colour.
#include <QGuiApplication>
#include <QImage>
#include <QPixmap>
#include <QScreen>

#include <cstdio>

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: marlock-screen-grab OUT.png\n");
        return 2;
    }
    const QImage screen = QGuiApplication::primaryScreen()->grabWindow(0).toImage();
    if (screen.isNull()) {
        std::fprintf(stderr, "marlock-screen-grab: the screen could not be read\n");
        return 1;
    }
    const QRgb empty = screen.pixel(screen.width() - 1, screen.height() - 1);
    QRect box;
    for (int y = 0; y < screen.height(); ++y)
        for (int x = 0; x < screen.width(); ++x)
            if (screen.pixel(x, y) != empty)
                box |= QRect(x, y, 1, 1);
    const QImage cropped = box.isEmpty() ? screen : screen.copy(box);
    return cropped.save(QString::fromLocal8Bit(argv[1])) ? 0 : 1;
}
