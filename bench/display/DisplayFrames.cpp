// Thirty NumberScrollViews rolling at once in one window, as the companion app's code list does
// on every period boundary, beside the same window at rest (baseline), measured in one run:
//
//   display_frames [rolls=20]
//
// Each frame steps the animation clock by 16 ms (updating every running roll) and paints the
// whole window into an image, offscreen unless QT_QPA_PLATFORM says otherwise; QT_SCALE_FACTOR=2
// measures a high-DPI screen. It also counts glyph images drawn: while the views are set up
// (with the process-wide cache: one strip per font and colour, one image per other character)
// and while they roll (none expected).
#include "marlockCompanionCommon/display/NumberScrollView.h"
#include "marlockCompanionCommon/graphics/ManualAnimationDriver.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QGridLayout>
#include <QImage>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace {

constexpr int viewCount = 30;
constexpr auto frameStep = std::chrono::milliseconds(16);

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    const auto index = static_cast<size_t>(std::ceil(p / 100.0 * values.size())) - 1;
    return values[std::min(index, values.size() - 1)];
}

void printSeries(const char* label, const std::vector<double>& ms) {
    std::printf("%-38s frames=%zu  p50=%.3f ms  p99=%.3f ms  max=%.3f ms\n", label, ms.size(),
                percentile(ms, 50), percentile(ms, 99), *std::max_element(ms.begin(), ms.end()));
}

QString code(int view, int roll) {
    const int value = (view * 7919 + roll * 104729) % 1000000;
    const QString digits = QStringLiteral("%1").arg(value, 6, 10, QLatin1Char('0'));
    return digits.left(3) + QLatin1Char(' ') + digits.mid(3);
}

} // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    const int rolls = argc > 1 ? std::max(1, atoi(argv[1])) : 20;
    graphics::ManualAnimationDriver clock;

    const qint64 drawsBefore = graphics::Image::totalDrawCount();
    QWidget window;
    auto* grid = new QGridLayout(&window);
    std::vector<NumberScrollView*> views;
    for (int i = 0; i < viewCount; ++i) {
        auto* view = new NumberScrollView(&window);
        view->setImageCachePolicy(NumberScrollView::ImageCachePolicy::global());
        view->setFont(graphics::Font("Inter", 28));
        view->setText(code(i, 0));
        grid->addWidget(view, i / 3, i % 3);
        views.push_back(view);
    }
    window.show();
    const qreal ratio = window.devicePixelRatio();
    QImage frame(window.size() * ratio, QImage::Format_ARGB32_Premultiplied);
    frame.setDevicePixelRatio(ratio);
    window.render(&frame); // draws the glyph images once
    const qint64 setupDraws = graphics::Image::totalDrawCount() - drawsBefore;

    std::vector<double> atRest, rolling;
    QElapsedTimer timer;
    const int framesPerRoll = static_cast<int>(1000 / frameStep.count()) + 1;
    for (int i = 0; i < rolls * framesPerRoll; ++i) {
        timer.start();
        clock.advanceTime(frameStep);
        window.render(&frame);
        atRest.push_back(timer.nsecsElapsed() / 1e6);
    }
    const qint64 drawsBeforeRolling = graphics::Image::totalDrawCount();
    for (int roll = 1; roll <= rolls; ++roll) {
        for (int i = 0; i < viewCount; ++i)
            views[i]->setText(code(i, roll), true);
        for (int f = 0; f < framesPerRoll; ++f) {
            timer.start();
            clock.advanceTime(frameStep);
            window.render(&frame);
            rolling.push_back(timer.nsecsElapsed() / 1e6);
        }
    }
    const qint64 rollingDraws = graphics::Image::totalDrawCount() - drawsBeforeRolling;

    std::printf("%d views, %dx%d points at pixel ratio %.2f, %d rolls of 1 s, a frame every %lld ms\n",
                viewCount, window.width(), window.height(), ratio, rolls,
                static_cast<long long>(frameStep.count()));
    printSeries("baseline: window at rest", atRest);
    printSeries("30 views rolling", rolling);
    std::printf("rolling / at rest: p50 %.2f  p99 %.2f   (frame budget at 60 Hz: 16.7 ms)\n",
                percentile(rolling, 50) / percentile(atRest, 50),
                percentile(rolling, 99) / percentile(atRest, 99));
    std::printf(
        "glyph images drawn: %lld while setting up (one strip per font and colour + one space), %lld while "
        "rolling\n",
        static_cast<long long>(setupDraws), static_cast<long long>(rollingDraws));
    return 0;
}
