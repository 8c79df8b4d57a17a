// The rules that run on every step of a drag, on the 4K display of the drag benchmark.

#include "geometry/display_geometry.h"
#include "geometry/region_snapper.h"

#include <benchmark/benchmark.h>

namespace nimbrale {

namespace {

constexpr int stepCount = 512;

DisplayGeometry display()
{
    return {.size = {3840, 2160}, .screenFrame = {0, 0, 3840, 2160}, .menuBarHeight = 24};
}

/// Successive places of a drag across the display, so that some steps snap and others do not.
Rect draggedRegion(int step)
{
    return {step * 1.7, step * 0.9, 3000 - step * 2.3, 1700 - step * 1.1};
}

void measureSnap(benchmark::State& state, DragZone zone)
{
    const RegionSnapper snapper = RegionSnapper::of(display());
    int step = 0;
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(snapper.snap(draggedRegion(step), zone));
        step = (step + 1) % stepCount;
    }
}

void measureLabel(benchmark::State& state)
{
    const RegionSnapper snapper = RegionSnapper::of(display());
    int step = 0;
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(snapper.label(draggedRegion(step)));
        step = (step + 1) % stepCount;
    }
}

void measureClamp(benchmark::State& state, PreserveSize preserveSize)
{
    const DisplayGeometry geometry = display();
    int step = 0;
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(geometry.clamp(draggedRegion(step), preserveSize));
        step = (step + 1) % stepCount;
    }
}

BENCHMARK_CAPTURE(measureSnap, move, DragZone::move);
BENCHMARK_CAPTURE(measureSnap, resize, DragZone::resize);
BENCHMARK(measureLabel);
BENCHMARK_CAPTURE(measureClamp, preservingSize, PreserveSize::yes);
BENCHMARK_CAPTURE(measureClamp, cutting, PreserveSize::no);

} // namespace

} // namespace nimbrale
