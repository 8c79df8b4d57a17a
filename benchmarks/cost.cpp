#include "benchmarks/cost.h"

#include "benchmarks/frame_counter.h"
#include "benchmarks/measure.h"
#include "tests/support/scene.h"

#include <iostream>
#include <utility>

namespace nimbrale::benchmarks {

namespace {

/// The server gives back what a sharer that ended had.
constexpr std::chrono::milliseconds timeForCleaning{500};

QRect regionOf(const CostQuestion& question)
{
    return question.region.isEmpty() ? QRect(QPoint(), question.display) : question.region;
}

/// What goes on on the display while it is measured.
class Content {
public:
    Content(test::PrivateDesktop& desktop, const CostQuestion& question)
    {
        const QRect area(QPoint(), question.display);
        const QRect region = regionOf(question);
        if (question.content == stillContent) {
            addStillWindow(desktop, area);
        } else if (question.content == pointerContent) {
            addStillWindow(desktop, area);
            // Far enough for no part of the pointer's picture to be in the region.
            const QRect below(QPoint(0, region.bottom() + 50), area.bottomRight());
            animation_ = startPointer(desktop, below, question.contentRate);
        } else if (question.content == hiddenContent) {
            animation_ = startContent(desktop, "blink", area, question.contentRate);
            addStillWindow(desktop, QRect(area.center() - QPoint(150, 100), QSize(300, 200)));
        } else {
            animation_ = startContent(desktop, question.content, area, question.contentRate);
        }
    }

private:
    void addStillWindow(test::PrivateDesktop& desktop, const QRect& area)
    {
        scene_ = test::Scene::start(desktop);
        if (!scene_)
            throw Failure("the still window does not show");
        scene_->add("still", {.geometry = area, .seed = 7});
    }

    std::unique_ptr<test::Process> animation_;
    std::unique_ptr<test::Scene> scene_;
};

double percent(Nanoseconds used, Nanoseconds passed)
{
    return 100.0 * static_cast<double>(used.count()) / static_cast<double>(passed.count());
}

Cost costOfSharer(test::PrivateDesktop& desktop, const CostQuestion& question, SharerKind kind)
{
    const auto sharer = Sharer::start(desktop, {kind, regionOf(question), question.captureRate});
    test::sleepFor(question.timeBefore);
    return measureCost(desktop, Shower{sharer->pid(), sharer->window()}, question.time);
}

} // namespace

Cost measureCost(test::PrivateDesktop& desktop, std::optional<Shower> shower, std::chrono::milliseconds time)
{
    std::optional<FrameCounter> counter;
    if (shower && shower->window != 0)
        counter.emplace(desktop, shower->window);
    const pid_t compositor = desktop.compositorProcess();
    const auto systemTime = [&] {
        return cpuTimeOf(desktop.server().pid()) + (compositor != 0 ? cpuTimeOf(compositor) : Nanoseconds{});
    };
    const auto start = std::chrono::steady_clock::now();
    const Nanoseconds systemBefore = systemTime();
    const Nanoseconds processBefore = shower ? cpuTimeOf(shower->process) : Nanoseconds{};
    test::sleepFor(time);
    const Nanoseconds systemAfter = systemTime();
    const Nanoseconds processAfter = shower ? cpuTimeOf(shower->process) : Nanoseconds{};
    const Nanoseconds passed = std::chrono::steady_clock::now() - start;
    const int frames = counter ? counter->take() : 0;
    return {percent(systemAfter - systemBefore, passed), percent(processAfter - processBefore, passed),
            frames / std::chrono::duration<double>(passed).count()};
}

std::map<SharerKind, CostSeries> compareCosts(const CostQuestion& question, int repetitions)
{
    const std::unique_ptr<test::PrivateDesktop> desktop = startDesktop(question.display, question.compositing);
    const Content content(*desktop, question);
    test::sleepFor(test::Milliseconds{500} + question.timeBefore);
    std::map<SharerKind, CostSeries> results;
    // What the content costs by itself is measured on both sides of each sharer, since it wavers by more than what some
    // of them add to it.
    double before = measureCost(*desktop, std::nullopt, question.time).system;
    for (int repetition = 0; repetition < repetitions; ++repetition) {
        for (const SharerKind kind : question.kinds) {
            CostSeries& series = results[kind];
            if (!series.missing.empty())
                continue;
            try {
                const Cost cost = costOfSharer(*desktop, question, kind);
                test::sleepFor(timeForCleaning);
                const double after = measureCost(*desktop, std::nullopt, question.time).system;
                series.whole.push_back(cost.process + cost.system - (std::exchange(before, after) + after) / 2);
                series.process.push_back(cost.process);
                series.framesPerSecond.push_back(cost.framesPerSecond);
            } catch (const Failure& failure) {
                if (kind == SharerKind::application)
                    throw;
                series = {.missing = failure.what()};
            }
        }
        std::cerr << "  repetition " << repetition + 1 << " of " << repetitions << '\n';
    }
    return results;
}

} // namespace nimbrale::benchmarks
