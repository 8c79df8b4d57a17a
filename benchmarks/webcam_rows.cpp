#include "benchmarks/rows.h"
#include "benchmarks/webcam_desktop.h"

#include <iostream>
#include <optional>
#include <sstream>

namespace nimbrale::benchmarks {

namespace {

using Clock = std::chrono::steady_clock;

constexpr double greatestOriginalShare = 6;
constexpr double greatestBlurredShare = 35;
/// A machine that has no time left drops pictures, which looks cheap.
constexpr double leastFramesPerSecond = 27;
constexpr double greatestLatency = 40;
constexpr double greatestStart = 600;
constexpr double greatestMegabytes = 150;
constexpr double megabyte = 1e6;
constexpr test::Milliseconds patience{5000};
constexpr test::Milliseconds lookPause{1};
/// What loads with the first picture does not belong to the steady cost.
constexpr test::Milliseconds settlingTime{1500};
/// Somewhat more than two pictures apart, so that each change is looked for alone.
constexpr test::Milliseconds pause{90};

std::map<std::string, std::string> shown(const std::string& background)
{
    return {{"webcamEnabled", "true"}, {"webcamBackground", background}};
}

double millisecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void tellProgress(int repetition, const Effort& effort)
{
    std::cerr << "  repetition " << repetition + 1 << " of " << effort.repetitions << '\n';
}

TableRow costOf(const std::string& background, double greatestShare, const Effort& effort)
{
    WebcamDesktop webcam(shown(background));
    webcam.waitForWebcam();
    test::sleepFor(settlingTime);
    std::vector<double> whole;
    std::vector<double> process;
    std::vector<double> frames;
    for (int repetition = 0; repetition < effort.repetitions; ++repetition) {
        const Cost cost = measureCost(webcam.desktop(), webcam.shower(), effort.costTime);
        whole.push_back(cost.system + cost.process);
        process.push_back(cost.process);
        frames.push_back(cost.framesPerSecond);
        tellProgress(repetition, effort);
    }
    std::ostringstream limit;
    limit << "≤ " << greatestShare << " % of a core, ≥ " << leastFramesPerSecond << " frames/s";
    const bool isComplete = summaryOf(frames).median >= leastFramesPerSecond;
    return {.subject = "still screen at 1080p with a moving webcam of 720p at 30 fps, background " + background,
            .ours = textOf(summaryOf(whole), 2, "% of a core") + ", process alone " +
                    textOf(summaryOf(process), 2, "%") + ", " + textOf(summaryOf(frames), 1, "frames/s"),
            .alternative = "–",
            .ratio = "–",
            .mustReach = limit.str(),
            .verdict = reachedWhen(isComplete && summaryOf(whole).median <= greatestShare)};
}

/// From the moment when the camera has written a picture of another color until others see that color.
std::vector<double> latenciesOf(WebcamDesktop& webcam, int samples)
{
    std::vector<double> milliseconds;
    for (int index = 0; index < samples; ++index) {
        const bool isRed = index % 2 == 0;
        const auto written = webcam.camera().showColor(isRed ? "#d02020" : "#2020d0");
        if (!written)
            throw Failure("the camera shows no color");
        const auto isSeen = [&] {
            const QColor color = webcam.sharedColor();
            return (color.red() > color.blue()) == isRed;
        };
        if (!test::waitUntil(isSeen, patience, lookPause))
            throw Failure("the camera's color is not shared");
        milliseconds.push_back(millisecondsSince(*written));
        test::sleepFor(pause);
    }
    return milliseconds;
}

} // namespace

std::vector<TableRow> measureWebcamCost(const Effort& effort)
{
    return {costOf("original", greatestOriginalShare, effort), costOf("blurred", greatestBlurredShare, effort)};
}

std::vector<TableRow> measureWebcamLatency(const Effort& effort)
{
    WebcamDesktop webcam(shown("original"));
    static_cast<void>(webcam.camera().showColor("#2020d0"));
    webcam.waitForWebcam();
    test::sleepFor(settlingTime);
    std::vector<double> usual;
    std::vector<double> nearlyWorst;
    for (int repetition = 0; repetition < effort.repetitions; ++repetition) {
        const std::vector<double> milliseconds = latenciesOf(webcam, effort.latencySamples);
        usual.push_back(quantileOf(milliseconds, 0.5));
        nearlyWorst.push_back(quantileOf(milliseconds, 0.95));
        tellProgress(repetition, effort);
    }
    return {{.subject = "camera's picture → shared, at 1080p",
             .ours = "p50 " + textOf(summaryOf(usual), 2, "ms") + ", p95 " + textOf(summaryOf(nearlyWorst), 2, "ms"),
             .alternative = "–",
             .ratio = "–",
             .mustReach = "p95 ≤ 40 ms",
             .verdict = reachedWhen(summaryOf(nearlyWorst).median <= greatestLatency)}};
}

std::vector<TableRow> measureWebcamStart(const Effort& effort)
{
    const std::map<std::string, std::string> opensOnItsTab{{"settingsTab", "webcam"}};
    WebcamDesktop webcam(opensOnItsTab);
    webcam.openSettings();
    std::vector<double> milliseconds;
    for (int repetition = 0; repetition < effort.repetitions; ++repetition) {
        const QColor before = webcam.sharedColor();
        const auto isShown = [&] {
            const QColor color = webcam.sharedColor();
            return color != before && color != QColor(Qt::black);
        };
        const auto start = Clock::now();
        webcam.toggle();
        if (!test::waitUntil(isShown, patience, lookPause))
            throw Failure("the webcam is not shared");
        milliseconds.push_back(millisecondsSince(start));
        webcam.toggle();
        if (!test::waitUntil([&] { return webcam.sharedColor() == before; }, patience))
            throw Failure("the webcam does not go");
        test::sleepFor(settlingTime);
        tellProgress(repetition, effort);
    }
    return {{.subject = "webcam switched on in the settings → its first picture shared",
             .ours = textOf(summaryOf(milliseconds), 0, "ms"),
             .alternative = "–",
             .ratio = "–",
             .mustReach = "≤ 600 ms",
             .verdict = reachedWhen(summaryOf(milliseconds).median <= greatestStart)}};
}

std::vector<TableRow> measureWebcamMemory(const Effort& effort)
{
    std::vector<double> megabytes;
    for (int repetition = 0; repetition < effort.repetitions; ++repetition) {
        WebcamDesktop webcam(shown("blurred"));
        webcam.waitForWebcam();
        test::sleepFor(effort.videoBeforeMemory);
        megabytes.push_back(static_cast<double>(residentMemoryOf(webcam.shower().process)) / megabyte);
        tellProgress(repetition, effort);
    }
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(effort.videoBeforeMemory).count();
    return {{.subject = "resident memory with a blurred webcam, after " + std::to_string(seconds) + " s",
             .ours = textOf(summaryOf(megabytes), 1, "MB"),
             .alternative = "–",
             .ratio = "–",
             .mustReach = "≤ 150 MB",
             .verdict = reachedWhen(summaryOf(megabytes).median <= greatestMegabytes)}};
}

} // namespace nimbrale::benchmarks
