// Renders the pictures of the code display shown in the README:
//   marlock-docs-images <folder> [--on-screen]
// writes number-scroll-view-light.png and number-scroll-view-dark.png (a code mid-roll) and
// progress-view.png, at twice the resolution of a standard screen. Offscreen by default; with
// --on-screen the views are shown in a real window (QT_QPA_PLATFORM=xcb, e.g. under xvfb-run)
// and the pictures are taken from the screen, which checks that they paint there as well.
#include "marlockCompanionCommon/display/NumberScrollView.h"
#include "marlockCompanionCommon/graphics/ManualAnimationDriver.h"
#include "marlockCompanionCommon/views/ProgressView.h"

#include <QApplication>
#include <QDir>
#include <QScreen>
#include <QVBoxLayout>
#include <QWindow>

#include <cstdio>

namespace {

constexpr qreal pixelRatio = 2.0;

QPalette themed(bool dark) {
    QPalette palette;
    palette.setColor(QPalette::Window, dark ? QColor(0x1e, 0x1f, 0x22) : QColor(0xf6, 0xf6, 0xf4));
    palette.setColor(QPalette::WindowText, dark ? QColor(0xe8, 0xe8, 0xe6) : QColor(0x1c, 0x1c, 0x1e));
    return palette;
}

QImage picture(QWidget& window, bool onScreen) {
    if (onScreen) {
        window.show();
        QWindow* handle = window.windowHandle();
        while (!handle->isExposed())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        window.repaint();
        QCoreApplication::processEvents();
        return window.screen()->grabWindow(window.winId()).toImage();
    }
    QImage image(window.size() * pixelRatio, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(pixelRatio);
    image.fill(window.palette().color(QPalette::Window));
    window.render(&image, {}, {}, QWidget::DrawChildren);
    return image;
}

bool save(const QImage& image, const QString& path) {
    const bool saved = image.save(path);
    std::printf("%s %s (%dx%d)\n", saved ? "wrote" : "could not write", qPrintable(path), image.width(),
                image.height());
    return saved;
}

} // namespace

int main(int argc, char** argv) {
    const bool onScreen = argc > 2 && QByteArray(argv[2]) == "--on-screen";
    if (!onScreen && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: marlock-docs-images <folder> [--on-screen]\n");
        return 2;
    }
    const QString folder = QString::fromLocal8Bit(argv[1]);
    QDir().mkpath(folder);
    graphics::ManualAnimationDriver clock;
    bool ok = true;

    for (const bool dark : {false, true}) {
        QWidget window;
        window.setPalette(themed(dark));
        window.setAutoFillBackground(true);
        auto* layout = new QVBoxLayout(&window);
        layout->setContentsMargins(24, 18, 24, 18);
        auto* code = new NumberScrollView(&window);
        code->setImageCachePolicy(NumberScrollView::ImageCachePolicy::global());
        code->setFont(graphics::Font("Inter", 44));
        code->setText(QStringLiteral("287 082"));
        layout->addWidget(code);
        window.adjustSize();
        // Caught a little less than half-way through the roll to the next code: the digits on the
        // left have nearly landed, those on the right still spin.
        code->setText(QStringLiteral("513 946"), /*animated=*/true);
        clock.advanceTime(std::chrono::milliseconds(260));
        ok &= save(picture(window, onScreen),
                   folder + (dark ? QStringLiteral("/number-scroll-view-dark.png")
                                  : QStringLiteral("/number-scroll-view-light.png")));
    }

    QWidget window;
    window.setPalette(themed(false));
    window.setAutoFillBackground(true);
    auto* layout = new QVBoxLayout(&window);
    layout->setContentsMargins(24, 18, 24, 18);
    auto* bar = new ProgressView(&window);
    bar->setLineWidth(3);
    bar->setProgress(0.62, ProgressView::Direction::backward, false);
    layout->addWidget(bar);
    window.resize(320, 3 + 36);
    ok &= save(picture(window, onScreen), folder + QStringLiteral("/progress-view.png"));
    return ok ? 0 : 1;
}
