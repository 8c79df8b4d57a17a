#include "benchmarks/desktop.h"
#include "benchmarks/latency_probe.h"
#include "benchmarks/rows.h"
#include "benchmarks/sharer.h"

#include <iostream>
#include <optional>
#include <xcb/xcb.h>

namespace nimbrale::benchmarks {

namespace {

constexpr double greatestIdleMilliseconds = 1;
constexpr double greatestBesideVideoMilliseconds = 20;
constexpr double greatestBehindCompositorMilliseconds = 2;
constexpr int captureRate = 60;
/// Away from the display's edges, from the frame's controls and from the middle, where the pointer is.
constexpr QPoint probePlace{200, 200};

/// One value of each for every repetition.
struct Latencies {
    std::vector<double> usual;
    std::vector<double> nearlyWorst;
};

void addLatencies(test::PrivateDesktop& desktop, SharerKind kind, const QSize& display, int samples, Latencies& result)
{
    const auto sharer = Sharer::start(desktop, {kind, QRect(QPoint(), display), captureRate});
    LatencyProbe probe(desktop, probePlace, {{sharer->window(), sharer->target().topLeft() + probePlace}});
    const std::vector<double> milliseconds = probe.measure(samples).front();
    result.usual.push_back(quantileOf(milliseconds, 0.5));
    result.nearlyWorst.push_back(quantileOf(milliseconds, 0.95));
}

std::string latencyText(const Latencies& latencies)
{
    return "p50 " + textOf(summaryOf(latencies.usual), 2, "ms") + ", p95 " +
           textOf(summaryOf(latencies.nearlyWorst), 2, "ms");
}

enum class BesideVideo { no, yes };

TableRow compareLatencies(const std::string& subject, const QSize& display, BesideVideo besideVideo,
                          double greatestMilliseconds, const Effort& effort)
{
    const std::unique_ptr<test::PrivateDesktop> desktop = startDesktop(display);
    const std::unique_ptr<test::Process> video =
        besideVideo == BesideVideo::yes ? startContent(*desktop, "video", QRect(QPoint(), display), 60) : nullptr;
    Latencies ours;
    Latencies loop;
    for (int repetition = 0; repetition < effort.repetitions; ++repetition) {
        addLatencies(*desktop, SharerKind::application, display, effort.latencySamples, ours);
        addLatencies(*desktop, SharerKind::copyLoop, display, effort.latencySamples, loop);
        std::cerr << "  repetition " << repetition + 1 << " of " << effort.repetitions << '\n';
    }
    const double worst = summaryOf(ours.nearlyWorst).median;
    return {.subject = subject,
            .ours = latencyText(ours),
            .alternative = "copy loop at 60 fps: " + latencyText(loop),
            .ratio = "p95 " + textOf(ratioOf(ours.nearlyWorst, loop.nearlyWorst), 2),
            .mustReach = "p95 ≤ " + std::to_string(static_cast<int>(greatestMilliseconds)) + " ms",
            .verdict = reachedWhen(worst <= greatestMilliseconds)};
}

/// A line about one compositing manager: when it has painted the change on the display, when our picture of that is in
/// the shared window, and when it has painted that window, which is its affair again.
TableRow latencyUnder(Compositing compositing, const Effort& effort)
{
    const std::unique_ptr<test::PrivateDesktop> desktop = startDesktop(fullHd, compositing);
    const xcb_window_t root = desktop->screen().root;
    std::vector<double> painted;
    std::vector<double> shared;
    std::vector<double> shown;
    std::vector<double> behind;
    for (int repetition = 0; repetition < effort.repetitions; ++repetition) {
        const auto sharer = Sharer::start(*desktop, {SharerKind::application, QRect(QPoint(), fullHd), captureRate});
        const QPoint shownAt = sharer->target().topLeft() + probePlace;
        LatencyProbe probe(*desktop, probePlace, {{root, probePlace}, {sharer->window(), shownAt}, {root, shownAt}});
        const std::vector<std::vector<double>> times = probe.measure(effort.latencySamples);
        painted.push_back(quantileOf(times[0], 0.5));
        shared.push_back(quantileOf(times[1], 0.5));
        shown.push_back(quantileOf(times[2], 0.5));
        behind.push_back(shared.back() - painted.back());
        std::cerr << "  repetition " << repetition + 1 << " of " << effort.repetitions << '\n';
    }
    const std::string name = nameOf(compositing);
    const Summary later = summaryOf(behind);
    return {.subject = "change → shown, otherwise idle, 1080p at 60 fps under " + name,
            .ours = "p50 " + textOf(summaryOf(shared), 2, "ms") + " in the shared window, " +
                    textOf(summaryOf(shown), 2, "ms") + " when " + name + " has painted that",
            .alternative = name + " on the display: p50 " + textOf(summaryOf(painted), 2, "ms"),
            .ratio = textOf(ratioOf(shared, painted), 2) + ", " + textOf(later, 2, "ms") + " later",
            .mustReach = "p50 ≤ " + std::to_string(static_cast<int>(greatestBehindCompositorMilliseconds)) +
                         " ms later than " + name,
            .verdict = reachedWhen(later.median <= greatestBehindCompositorMilliseconds)};
}

} // namespace

std::vector<TableRow> measureCompositedLatency(const Effort& effort)
{
    std::vector<TableRow> rows;
    for (const Compositing compositing : compositingManagers)
        rows.push_back(latencyUnder(compositing, effort));
    return rows;
}

std::vector<TableRow> measureIdleLatency(const Effort& effort)
{
    return {compareLatencies("change → shown, otherwise idle, 1080p at 60 fps", fullHd, BesideVideo::no,
                             greatestIdleMilliseconds, effort),
            compareLatencies("change → shown, otherwise idle, 2160p at 60 fps", ultraHd, BesideVideo::no,
                             greatestIdleMilliseconds, effort)};
}

std::vector<TableRow> measureLatencyBesideVideo(const Effort& effort)
{
    return {compareLatencies("change → shown beside 60 Hz video, 1080p at 60 fps", fullHd, BesideVideo::yes,
                             greatestBesideVideoMilliseconds, effort)};
}

} // namespace nimbrale::benchmarks
