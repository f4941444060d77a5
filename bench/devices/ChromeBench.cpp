#include "devices/CameraOverlayGeometry.h"
#include "devices/ChromeDrawer.h"

#include <QGuiApplication>
#include <QImage>
#include <QPainter>

#include <benchmark/benchmark.h>

// The camera frame's chrome for one 1080p frame, each of the twelve styles, on the default bubble (a
// twelfth of the shorter side, near the lower right), at the times of successive 30 fps frames.
// Two ways to give the drawer a canvas: an image of the whole frame, cleared for every frame, and
// an image of the bubble and the margin its chrome reaches into, which is all a compositor needs
// to blend. `Clear/frame` is what the first costs before anything is drawn.
namespace {

const QSize hd(1920, 1080);

QRectF bubble(CameraShape shape)
{
    return cameraOverlayRect(QSizeF(hd), 0.84, 0.82, 0.12, shape);
}

void BM_ClearFullFrame(benchmark::State& state)
{
    QImage canvas(hd, QImage::Format_ARGB32_Premultiplied);
    for (auto _ : state) {
        canvas.fill(Qt::transparent);
        benchmark::DoNotOptimize(canvas.bits());
    }
}

void chrome(benchmark::State& state, bool wholeFrame)
{
    const auto style = static_cast<CameraFrameStyle>(state.range(0));
    const CameraShape shape = state.range(1) == 0 ? CameraShape::circle : CameraShape::rect;
    const QRectF rect = bubble(shape);
    // Far enough for the widest glow, the pulse's ripple and a polaroid's band with its shadow.
    const double margin = 0.25 * std::min(rect.width(), rect.height()) + 48;
    const QRect area = wholeFrame
        ? QRect(QPoint(0, 0), hd)
        : rect.adjusted(-margin, -margin, margin, margin).toAlignedRect() & QRect(QPoint(0, 0), hd);
    QImage canvas(area.size(), QImage::Format_ARGB32_Premultiplied);
    int frame = 0;
    for (auto _ : state) {
        canvas.fill(Qt::transparent);
        QPainter painter(&canvas);
        painter.translate(-area.topLeft());
        ChromeDrawer::draw(painter, rect, shape, style, frame++ / 30.0);
        painter.end();
        benchmark::DoNotOptimize(canvas.bits());
    }
    state.SetLabel(rawValue(style).toStdString() + (shape == CameraShape::circle ? " circle" : " rect"));
}

void BM_ChromeFullFrame(benchmark::State& state)
{
    chrome(state, true);
}

void BM_ChromeOverlayOnly(benchmark::State& state)
{
    chrome(state, false);
}

void styles(benchmark::internal::Benchmark* b)
{
    for (int style = 0; style < int(EnumTable<CameraFrameStyle>::cases.size()); ++style)
        b->Args({ style, 0 });
    // The wide bubble for the styles whose cost grows with the outline.
    for (CameraFrameStyle style : { CameraFrameStyle::glass, CameraFrameStyle::wave, CameraFrameStyle::frame })
        b->Args({ int(style), 1 });
}

} // namespace

BENCHMARK(BM_ClearFullFrame)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ChromeFullFrame)->Apply(styles)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ChromeOverlayOnly)->Apply(styles)->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv)
{
    // Fonts for the LIVE pill, without a display.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
