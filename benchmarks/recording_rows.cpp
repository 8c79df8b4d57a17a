#include "benchmarks/latency_probe.h"
#include "benchmarks/recording_desktop.h"
#include "benchmarks/rows.h"

#include <algorithm>
#include <iostream>
#include <regex>
#include <sstream>

namespace nimbrale::benchmarks {

namespace {

constexpr double greatestBusyShare = 65;
constexpr double greatestStillShare = 8;
constexpr double greatestGrabRatio = 1;
constexpr double greatestLatencyRatio = 1.3;
constexpr double greatestMissingPart = 0.01;
constexpr double greatestMegabytes = 250;
/// What a recording may take more at its end than earlier on.
constexpr double greatestGrowth = 1.05;
constexpr double megabyte = 1e6;
constexpr QSize quadHd{2560, 1440};
constexpr int latencyRate = 60;
/// Away from the display's edges, from the frame's controls and from the middle, where the pointer is.
constexpr QPoint probePlace{200, 200};
constexpr std::chrono::seconds beforeFirstLook{20};
constexpr std::chrono::seconds betweenLooks{40};

void tellProgress(int repetition, const Effort& effort)
{
    std::cerr << "  repetition " << repetition + 1 << " of " << effort.repetitions << '\n';
}

/// What a recorder cost in each repetition, in percent of one core, and what it recorded.
struct RecordingSeries {
    std::vector<double> whole = {};
    std::vector<double> process = {};
    std::vector<double> picturesPerSecond = {};
};

double picturesPerSecondOf(const test::MovieFile& movie)
{
    return static_cast<double>(movie.video()->pictures.size()) / movie.video()->duration;
}

void add(RecordingSeries& series, const Cost& cost, const Cost& nothing, const test::MovieFile& movie)
{
    series.whole.push_back(cost.process + cost.system - nothing.system);
    series.process.push_back(cost.process);
    series.picturesPerSecond.push_back(picturesPerSecondOf(movie));
}

std::string textOf(const RecordingSeries& series)
{
    return textOf(summaryOf(series.whole), 1, "% of a core") + ", process alone " +
           textOf(summaryOf(series.process), 1, "%") + ", " +
           textOf(summaryOf(series.picturesPerSecond), 1, "pictures/s recorded");
}

TableRow compareRecorders(const std::string& subject, const RecordingDesktop::Options& options, double greatestShare,
                          std::chrono::milliseconds time, const Effort& effort)
{
    RecordingDesktop recording(options);
    RecordingSeries ours;
    RecordingSeries grab;
    for (int repetition = 0; repetition < effort.repetitions; ++repetition) {
        const Cost nothing = measureCost(recording.desktop(), std::nullopt, time);
        recording.startApplication();
        recording.startRecording();
        const Cost cost = measureCost(recording.desktop(), recording.shower(), time);
        add(ours, cost, nothing, recording.endRecording());
        recording.endApplication();
        recording.startGrab();
        const Cost grabCost = measureCost(recording.desktop(), recording.grabber(), time);
        add(grab, grabCost, nothing, recording.endGrab());
        tellProgress(repetition, effort);
    }
    const Summary ratio = ratioOf(ours.whole, grab.whole);
    std::ostringstream limit;
    limit << "≤ " << greatestShare << " % of a core, ≤ " << greatestGrabRatio << " × ffmpeg";
    return {.subject = subject,
            .ours = textOf(ours),
            .alternative = "ffmpeg x11grab, the same encoder and rate: " + textOf(grab),
            .ratio = textOf(ratio, 2),
            .mustReach = limit.str(),
            .verdict = reachedWhen(summaryOf(ours.whole).median <= greatestShare && ratio.median <= greatestGrabRatio)};
}

/// The 95th percentile of a change's way into the shared window, in milliseconds.
double latencyIn(RecordingDesktop& recording, const Effort& effort)
{
    LatencyProbe probe(recording.desktop(), probePlace,
                       {{recording.shower().window, recording.sharedAt() + probePlace}});
    return quantileOf(probe.measure(effort.latencySamples).front(), 0.95);
}

/// How many pictures the application says a recording lacks.
int missingPicturesIn(const std::string& output)
{
    std::smatch found;
    return std::regex_search(output, found, std::regex("(\\d+) pictures are missing in a movie")) ? std::stoi(found[1])
                                                                                                  : 0;
}

double megabytesOf(const RecordingDesktop& recording)
{
    return static_cast<double>(residentMemoryOf(recording.shower().process)) / megabyte;
}

} // namespace

std::vector<TableRow> measureRecordingCost(const Effort& effort)
{
    return {compareRecorders("a busy 1080p30 screen shared and recorded with microphone and system audio",
                             {.content = RecordedContent::busy, .sound = RecordedSound::both}, greatestBusyShare,
                             effort.costTime, effort)};
}

std::vector<TableRow> measureStillRecordingCost(const Effort& effort)
{
    return {compareRecorders("a still 1080p screen shared and recorded without sound",
                             {.content = RecordedContent::still}, greatestStillShare, effort.stillTime, effort)};
}

std::vector<TableRow> measureRecordingLatency(const Effort& effort)
{
    RecordingDesktop recording({.content = RecordedContent::still, .framesPerSecond = latencyRate});
    recording.startApplication();
    std::vector<double> without;
    std::vector<double> with;
    for (int repetition = 0; repetition < effort.repetitions; ++repetition) {
        without.push_back(latencyIn(recording, effort));
        recording.startRecording();
        with.push_back(latencyIn(recording, effort));
        static_cast<void>(recording.endRecording());
        tellProgress(repetition, effort);
    }
    const Summary ratio = ratioOf(with, without);
    return {{.subject = "change → shown during a recording, otherwise idle, 1080p at 60 fps",
             .ours = "p95 " + textOf(summaryOf(with), 2, "ms"),
             .alternative = "the same without recording: p95 " + textOf(summaryOf(without), 2, "ms"),
             .ratio = "p95 " + textOf(ratio, 2),
             .mustReach = "p95 ≤ 1.3 × without recording",
             .verdict = reachedWhen(ratio.median <= greatestLatencyRatio)}};
}

std::vector<TableRow> measureLargeRecording(const Effort& effort)
{
    RecordingDesktop recording({.display = quadHd, .content = RecordedContent::busy});
    std::vector<double> missing;
    std::vector<double> recorded;
    std::vector<double> missingPart;
    for (int repetition = 0; repetition < effort.repetitions; ++repetition) {
        recording.startApplication();
        recording.startRecording();
        test::sleepFor(effort.videoBeforeMemory);
        const test::MovieFile movie = recording.endRecording();
        missing.push_back(missingPicturesIn(recording.applicationOutput()));
        recorded.push_back(picturesPerSecondOf(movie));
        missingPart.push_back(missing.back() / (missing.back() + static_cast<double>(movie.video()->pictures.size())));
        recording.endApplication();
        tellProgress(repetition, effort);
    }
    return {
        {.subject = "pictures missing in a recording of a busy 1440p30 screen",
         .ours = textOf(summaryOf(missing), 0) + " missing, " + textOf(summaryOf(recorded), 1, "pictures/s recorded"),
         .alternative = "–",
         .ratio = "–",
         .mustReach = "≤ 1 % missing",
         .verdict = reachedWhen(summaryOf(missingPart).median <= greatestMissingPart)}};
}

std::vector<TableRow> measureRecordingMemory(const Effort& effort)
{
    RecordingDesktop recording({.content = RecordedContent::busy, .sound = RecordedSound::both});
    std::vector<double> early;
    std::vector<double> late;
    for (int repetition = 0; repetition < std::min(effort.repetitions, 2); ++repetition) {
        recording.startApplication();
        recording.startRecording();
        test::sleepFor(beforeFirstLook);
        early.push_back(megabytesOf(recording));
        test::sleepFor(betweenLooks);
        late.push_back(megabytesOf(recording));
        static_cast<void>(recording.endRecording());
        recording.endApplication();
        tellProgress(repetition, effort);
    }
    const Summary growth = ratioOf(late, early);
    return {{.subject = "resident memory after 60 s of recording a busy 1080p30 screen with sound",
             .ours = textOf(summaryOf(late), 1, "MB"),
             .alternative = "the same after 20 s: " + textOf(summaryOf(early), 1, "MB"),
             .ratio = textOf(growth, 3),
             .mustReach = "≤ 250 MB, ≤ 1.05 × after 20 s",
             .verdict = reachedWhen(summaryOf(late).median <= greatestMegabytes && growth.greatest <= greatestGrowth)}};
}

} // namespace nimbrale::benchmarks
