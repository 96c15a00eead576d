// What a rolling code costs per frame against what it costs to make its glyphs, measured in one
// run and printed with their ratio:
//   BM_DigitStripRender   baseline: shaping the ten digits and drawing a fresh digit strip
//   BM_RollFrame          one frame of a rolling NumberScrollView: its layer tree composited
//                         from glyph images already drawn (no glyph is drawn)
// Needs a GUI application object, hence its own main (QApplication, offscreen by default).
#include "marlockCompanionCommon/display/NumberScrollView.h"
#include "marlockCompanionCommon/graphics/ManualAnimationDriver.h"

#include <QApplication>
#include <QImage>
#include <QPainter>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <string>

namespace {

const graphics::Font codeFont("Inter", 28);

void BM_DigitStripRender(benchmark::State& state) {
    NumberScrollLayer layer;
    layer.setFont(codeFont);
    layer.setText("0");
    const QColor colours[] = {Qt::black, Qt::darkBlue};
    int turn = 0;
    for (auto _ : state) {
        // A new colour drops the strip; the next one is shaped and drawn from scratch.
        layer.setTextColor(colours[++turn % 2]);
        const QImage strip = layer.contentLayers()[0]->sublayers()[0]->contents().rendition(1.0);
        benchmark::DoNotOptimize(strip.constBits());
    }
}
BENCHMARK(BM_DigitStripRender);

void BM_RollFrame(benchmark::State& state) {
    graphics::ManualAnimationDriver clock;
    NumberScrollView view;
    view.setFont(codeFont);
    view.setText("287 082");
    view.resize(view.sizeHint());
    view.setText("513 946", true);
    clock.advanceTime(std::chrono::milliseconds(300));
    QImage frame(view.size(), QImage::Format_ARGB32_Premultiplied);
    QPainter painter(&frame);
    view.layer()->render(painter); // the first frame draws the glyph images
    const qint64 draws = graphics::Image::totalDrawCount();
    for (auto _ : state) {
        frame.fill(Qt::transparent);
        view.layer()->render(painter);
        benchmark::ClobberMemory();
    }
    if (graphics::Image::totalDrawCount() != draws)
        state.SkipWithError("a frame drew glyphs");
}
BENCHMARK(BM_RollFrame);

// Prints the usual table, then each benchmark's time against the baseline's.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            nanoseconds_[run.benchmark_name()] = run.GetAdjustedRealTime();
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        const double strip = nanoseconds_["BM_DigitStripRender"];
        const double frame = nanoseconds_["BM_RollFrame"];
        if (strip > 0 && frame > 0)
            std::printf("roll frame / digit strip: %.1f us / %.1f us = %.3f (the strip costs %.0f frames)\n",
                        frame / 1000, strip / 1000, frame / strip, strip / frame);
    }

private:
    std::map<std::string, double> nanoseconds_;
};

} // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
