#include "benchmarks/cost.h"
#include "benchmarks/desktop.h"
#include "benchmarks/rows.h"

#include <sstream>

namespace nimbrale::benchmarks {

namespace {

constexpr double greatestIdleShare = 0.3;
constexpr double greatestCompositedIdleShare = 0.1;
constexpr double greatestHiddenChangeRatio = 0.2;
constexpr double greatestSmallChangeRatio = 0.2;
constexpr double greatestFullHdVideoRatio = 1.2;
constexpr double greatestScreenGrabRatio = 0.2;
constexpr double greatestUltraHdVideoRatio = 1.0;
constexpr double greatestCompositedVideoRatio = 1.0;
/// Until then the application looks more often whether a program hides the pointer.
constexpr std::chrono::milliseconds timeUntilRest{6000};

std::string costText(const CostSeries& series)
{
    const Summary frames = summaryOf(series.framesPerSecond);
    std::ostringstream text;
    text << textOf(summaryOf(series.whole), 2, "% of a core") << ", process alone "
         << textOf(summaryOf(series.process), 2, "%") << ", " << textOf(frames, 1, "frames/s");
    return text.str();
}

std::string limitText(double ratio, const std::string& alternative)
{
    std::ostringstream text;
    text << "≤ " << ratio << " × " << alternative;
    return text.str();
}

std::string shareText(double share)
{
    std::ostringstream text;
    text << "≤ " << share << " % of a core";
    return text.str();
}

/// A line that is judged by what ours costs in proportion to the alternative.
TableRow comparison(const std::string& subject, const CostSeries& ours, const CostSeries& alternative,
                    const std::string& alternativeName, double greatestRatio)
{
    TableRow row{.subject = subject, .ours = costText(ours), .mustReach = limitText(greatestRatio, alternativeName)};
    if (!alternative.missing.empty()) {
        row.alternative = alternativeName + ": " + alternative.missing;
        row.ratio = "–";
        return row;
    }
    const Summary ratio = ratioOf(ours.whole, alternative.whole);
    row.alternative = alternativeName + ": " + costText(alternative);
    row.ratio = textOf(ratio, 2);
    row.verdict = reachedWhen(ratio.median <= greatestRatio);
    return row;
}

/// A line about content that shows nothing new in the region.
TableRow unchanged(const std::string& subject, CostQuestion question, const Effort& effort,
                   double greatestShare = greatestIdleShare)
{
    question.kinds = {SharerKind::application, SharerKind::copyLoop};
    const auto costs = compareCosts(question, effort.repetitions);
    const CostSeries& ours = costs.at(SharerKind::application);
    const CostSeries& loop = costs.at(SharerKind::copyLoop);
    TableRow row{.subject = subject, .ours = costText(ours), .mustReach = shareText(greatestShare) + ", no frame sent"};
    row.alternative = "copy loop at 30 fps: " + (loop.missing.empty() ? costText(loop) : loop.missing);
    row.ratio = loop.missing.empty() ? textOf(ratioOf(ours.whole, loop.whole), 3) : "–";
    const bool isStill = summaryOf(ours.framesPerSecond).greatest == 0;
    row.verdict = reachedWhen(summaryOf(ours.whole).median <= greatestShare && isStill);
    return row;
}

/// A line about content that leaves the machine no time, where what a program costs beyond the content says nothing: it
/// is judged by the pictures that it still shows.
TableRow comparisonOfPictures(const std::string& subject, const CostSeries& ours, const CostSeries& alternative,
                              const std::string& alternativeName, double greatestRatio)
{
    const auto text = [](const CostSeries& series) { return textOf(summaryOf(series.framesPerSecond), 1, "frames/s"); };
    const std::string limit = limitText(greatestRatio, alternativeName + ", time of a picture");
    if (!alternative.missing.empty())
        return {.subject = subject,
                .ours = text(ours),
                .alternative = alternativeName + ": " + alternative.missing,
                .ratio = "–",
                .mustReach = limit};
    const Summary ratio = ratioOf(alternative.framesPerSecond, ours.framesPerSecond);
    return {.subject = subject,
            .ours = text(ours),
            .alternative = alternativeName + ": " + text(alternative),
            .ratio = textOf(ratio, 2),
            .mustReach = limit,
            .verdict = reachedWhen(ratio.median <= greatestRatio)};
}

std::map<SharerKind, CostSeries> compositedVideo(const QSize& display, int framesPerSecond, Compositing compositing,
                                                 const Effort& effort)
{
    return compareCosts({.display = display,
                         .content = "video",
                         .contentRate = framesPerSecond,
                         .captureRate = framesPerSecond,
                         .kinds = {SharerKind::application, SharerKind::copyLoop},
                         .time = effort.costTime,
                         .compositing = compositing},
                        effort.repetitions);
}

} // namespace

std::vector<TableRow> measureStaticScreen(const Effort& effort)
{
    return {unchanged(
        "static screen, 1080p region, application + server",
        {.display = fullHd, .content = stillContent, .time = effort.stillTime, .timeBefore = timeUntilRest}, effort)};
}

std::vector<TableRow> measureCompositedStill(const Effort& effort)
{
    std::vector<TableRow> rows;
    for (const Compositing compositing : compositingManagers)
        rows.push_back(unchanged("static screen, 1080p region, under " + nameOf(compositing),
                                 {.display = fullHd,
                                  .content = stillContent,
                                  .time = effort.stillTime,
                                  .timeBefore = timeUntilRest,
                                  .compositing = compositing},
                                 effort, greatestCompositedIdleShare));
    return rows;
}

std::vector<TableRow> measurePointerOutside(const Effort& effort)
{
    return {unchanged("still screen, the pointer moves outside a 720p region 500 times a second",
                      {.display = fullHd,
                       .content = pointerContent,
                       .region = {0, 0, 1280, 720},
                       .contentRate = 500,
                       .time = effort.stillTime},
                      effort)};
}

std::vector<TableRow> measureCompositedFullHdVideo(const Effort& effort)
{
    std::vector<TableRow> rows;
    for (const Compositing compositing : compositingManagers) {
        const auto costs = compositedVideo(fullHd, 30, compositing, effort);
        rows.push_back(comparison("1080p30 full video under " + nameOf(compositing) + ", its processor time included",
                                  costs.at(SharerKind::application), costs.at(SharerKind::copyLoop), "copy loop",
                                  greatestCompositedVideoRatio));
    }
    return rows;
}

std::vector<TableRow> measureCompositedUltraHdVideo(const Effort& effort)
{
    std::vector<TableRow> rows;
    for (const Compositing compositing : compositingManagers) {
        const auto costs = compositedVideo(ultraHd, 60, compositing, effort);
        rows.push_back(comparisonOfPictures("2160p60 full video under " + nameOf(compositing),
                                            costs.at(SharerKind::application), costs.at(SharerKind::copyLoop),
                                            "copy loop", greatestCompositedVideoRatio));
    }
    return rows;
}

std::vector<TableRow> measureHiddenChange(const Effort& effort)
{
    const auto costs = compareCosts({.display = fullHd,
                                     .content = hiddenContent,
                                     .contentRate = 500,
                                     .kinds = {SharerKind::application, SharerKind::copyLoop},
                                     .time = effort.costTime},
                                    effort.repetitions);
    const CostSeries& ours = costs.at(SharerKind::application);
    TableRow row = comparison("20×20 change at 500 Hz where another window hides it, in a 1080p region", ours,
                              costs.at(SharerKind::copyLoop), "copy loop at 30 fps", greatestHiddenChangeRatio);
    row.mustReach += ", no frame sent";
    if (row.verdict == Verdict::reached)
        row.verdict = reachedWhen(summaryOf(ours.framesPerSecond).greatest == 0);
    return {row};
}

std::vector<TableRow> measureSmallChange(const Effort& effort)
{
    const auto costs = compareCosts({.display = fullHd,
                                     .content = "blink",
                                     .contentRate = 60,
                                     .captureRate = 30,
                                     .kinds = {SharerKind::application, SharerKind::copyLoop},
                                     .time = effort.costTime},
                                    effort.repetitions);
    return {comparison("20×20 change at 60 Hz in a 1080p region, captured at 30 fps", costs.at(SharerKind::application),
                       costs.at(SharerKind::copyLoop), "copy loop", greatestSmallChangeRatio)};
}

std::vector<TableRow> measureFullHdVideo(const Effort& effort)
{
    const auto costs = compareCosts({.display = fullHd,
                                     .content = "video",
                                     .contentRate = 30,
                                     .captureRate = 30,
                                     .kinds = {SharerKind::application, SharerKind::copyLoop, SharerKind::screenGrab},
                                     .time = effort.costTime},
                                    effort.repetitions);
    const CostSeries& ours = costs.at(SharerKind::application);
    const std::string subject = "1080p30 full video, application + server";
    return {comparison(subject, ours, costs.at(SharerKind::copyLoop), "copy loop", greatestFullHdVideoRatio),
            comparison(subject, ours, costs.at(SharerKind::screenGrab), "ffmpeg x11grab into an SDL window",
                       greatestScreenGrabRatio)};
}

std::vector<TableRow> measureUltraHdVideo(const Effort& effort)
{
    const auto costs = compareCosts({.display = ultraHd,
                                     .content = "video",
                                     .contentRate = 60,
                                     .captureRate = 60,
                                     .kinds = {SharerKind::application, SharerKind::copyLoop},
                                     .time = effort.costTime},
                                    effort.repetitions);
    return {comparison("2160p60 full video, application + server", costs.at(SharerKind::application),
                       costs.at(SharerKind::copyLoop), "copy loop", greatestUltraHdVideoRatio)};
}

} // namespace nimbrale::benchmarks
