#include "benchmarks/desktop.h"
#include "benchmarks/rows.h"
#include "benchmarks/sharer.h"
#include "tests/support/scene.h"

#include <iostream>

namespace nimbrale::benchmarks {

namespace {

constexpr double greatestMilliseconds = 3;
constexpr QRect region{300, 200, 3000, 1700};
/// The handle is centred on the border above the region.
constexpr QPoint handle{region.x() + region.width() / 2, region.y() - 2};
/// Longer than two looks at the pointer and than a frame of the capture.
constexpr std::chrono::milliseconds hoverTime{300};
constexpr std::chrono::milliseconds shortestStep{40};
constexpr std::chrono::milliseconds longestStep{400};
constexpr std::chrono::milliseconds quietTime{12};

/// The processor time when it no longer grows.
Nanoseconds settledCpuTime(pid_t process)
{
    const auto end = std::chrono::steady_clock::now() + longestStep;
    test::sleepFor(shortestStep);
    Nanoseconds used = cpuTimeOf(process);
    while (std::chrono::steady_clock::now() < end) {
        test::sleepFor(quietTime);
        const Nanoseconds now = cpuTimeOf(process);
        if (now == used)
            break;
        used = now;
    }
    return used;
}

/// A slanting way there and back: over the lines that the frame snaps to, and between them.
QPoint placeOfStep(int step)
{
    constexpr int turn = 30;
    const int distance = turn - std::abs(step % (2 * turn) - turn);
    return handle + QPoint(9 * distance, 5 * distance);
}

/// Milliseconds of processor time for each step of one drag.
std::vector<double> measureOne(test::PrivateDesktop& desktop, int steps)
{
    desktop.movePointer({10, 10});
    const auto sharer = Sharer::start(desktop, {SharerKind::application, region, 60});
    desktop.movePointer(handle);
    test::sleepFor(hoverTime);
    desktop.pressButton();
    Nanoseconds before = settledCpuTime(sharer->pid());
    std::vector<double> milliseconds;
    for (int step = 1; step <= steps; ++step) {
        desktop.movePointer(placeOfStep(step));
        const Nanoseconds after = settledCpuTime(sharer->pid());
        milliseconds.push_back(std::chrono::duration<double, std::milli>(after - before).count());
        before = after;
    }
    // A press beside the handle moves nothing, and its steps would cost next to nothing.
    const QPoint moved = placeOfStep(steps) - handle;
    const QColor border = desktop.pixel(region.x() + moved.x() + 200, region.y() + moved.y() - 3);
    desktop.releaseButton();
    if (border.red() < 200 || border.green() < 120 || border.blue() > 60)
        throw Failure("the frame did not follow the pointer");
    return milliseconds;
}

} // namespace

std::vector<TableRow> measureDragStep(const Effort& effort)
{
    const std::unique_ptr<test::PrivateDesktop> desktop = startDesktop(ultraHd);
    const std::unique_ptr<test::Scene> scene = test::Scene::start(*desktop);
    if (!scene)
        throw Failure("the still window does not show");
    scene->add("still", {.geometry = QRect(QPoint(), ultraHd), .seed = 7});
    std::vector<double> usual;
    std::vector<double> nearlyWorst;
    for (int repetition = 0; repetition < effort.repetitions; ++repetition) {
        const std::vector<double> milliseconds = measureOne(*desktop, effort.dragSteps);
        usual.push_back(quantileOf(milliseconds, 0.5));
        nearlyWorst.push_back(quantileOf(milliseconds, 0.95));
        std::cerr << "  repetition " << repetition + 1 << " of " << effort.repetitions << '\n';
    }
    return {
        {.subject = "processor time of the application for one step of a drag of a 3000×1700 region on a 4K display",
         .ours = "p50 " + textOf(summaryOf(usual), 2, "ms") + ", p95 " + textOf(summaryOf(nearlyWorst), 2, "ms"),
         .alternative = "–",
         .ratio = "–",
         .mustReach = "p95 ≤ 3 ms",
         .verdict = reachedWhen(summaryOf(nearlyWorst).median <= greatestMilliseconds)}};
}

} // namespace nimbrale::benchmarks
