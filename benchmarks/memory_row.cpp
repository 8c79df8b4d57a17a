#include "benchmarks/desktop.h"
#include "benchmarks/rows.h"
#include "benchmarks/sharer.h"

#include <chrono>
#include <iostream>

namespace nimbrale::benchmarks {

namespace {

constexpr double megabyte = 1e6;
constexpr int greatestFullHdMegabytes = 80;
constexpr int greatestUltraHdMegabytes = 100;

TableRow compareMemory(const std::string& subject, const QSize& display, int greatestMegabytes, const Effort& effort)
{
    const std::unique_ptr<test::PrivateDesktop> desktop = startDesktop(display);
    const QRect region(QPoint(), display);
    const std::unique_ptr<test::Process> video = startContent(*desktop, "video", region, 30);
    std::vector<double> ours;
    std::vector<double> grabbed;
    std::string missing;
    const auto measure = [&](SharerKind kind) {
        const auto sharer = Sharer::start(*desktop, {kind, region, 30});
        test::sleepFor(effort.videoBeforeMemory);
        return static_cast<double>(residentMemoryOf(sharer->pid())) / megabyte;
    };
    for (int repetition = 0; repetition < effort.repetitions; ++repetition) {
        ours.push_back(measure(SharerKind::application));
        try {
            if (missing.empty())
                grabbed.push_back(measure(SharerKind::screenGrab));
        } catch (const Failure& failure) {
            missing = failure.what();
        }
        std::cerr << "  repetition " << repetition + 1 << " of " << effort.repetitions << '\n';
    }
    const std::string grabName = "ffmpeg x11grab into an SDL window: ";
    return {.subject = subject,
            .ours = textOf(summaryOf(ours), 1, "MB"),
            .alternative = grabName + (missing.empty() ? textOf(summaryOf(grabbed), 1, "MB") : missing),
            .ratio = missing.empty() ? textOf(ratioOf(ours, grabbed), 2) : "–",
            .mustReach = "≤ " + std::to_string(greatestMegabytes) + " MB",
            .verdict = reachedWhen(summaryOf(ours).median <= greatestMegabytes)};
}

} // namespace

std::vector<TableRow> measureMemory(const Effort& effort)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(effort.videoBeforeMemory).count();
    const std::string when = ", after " + std::to_string(seconds) + " s of video";
    return {compareMemory("resident memory at 1080p" + when, fullHd, greatestFullHdMegabytes, effort),
            compareMemory("resident memory at 2160p" + when, ultraHd, greatestUltraHdMegabytes, effort)};
}

} // namespace nimbrale::benchmarks
