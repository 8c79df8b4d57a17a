#include "platform/ffmpeg/hardware_search.h"

#include "platform/ffmpeg/encoder_probe.h"
#include "platform/log.h"

#include <QCoreApplication>
#include <QProcess>

#include <algorithm>

namespace nimbrale::ffmpeg {

namespace {

using std::chrono::steady_clock;

/// How soon an end of the application is noticed.
constexpr int waitStep = 20;       // Milliseconds.
constexpr int killPatience = 2000; // Milliseconds.

} // namespace

HardwareSearch::Means HardwareSearch::Means::ofThisMachine()
{
    return {.candidates = hardwareCandidates(),
            .program = QCoreApplication::applicationDirPath().toStdString() + "/nimbrale-encoder-probe"};
}

std::optional<HardwareEncoder> HardwareSearch::find(const MovieVideo& video)
{
    if (!isTrusted_)
        return std::nullopt;
    const auto known = std::ranges::find(known_, video, [](const auto& entry) { return entry.first; });
    if (known != known_.end())
        return known->second;
    const std::optional<HardwareEncoder> found = tryAll(video);
    if (!isStopping_)
        known_.emplace_back(video, found);
    return found;
}

std::optional<HardwareEncoder> HardwareSearch::tryAll(const MovieVideo& video) const
{
    std::string problems;
    for (const HardwareEncoder& candidate : means_.candidates) {
        const std::string problem = problemOf(candidate, video);
        if (isStopping_)
            return std::nullopt;
        if (problem.empty()) {
            qCInfo(recordingLog, "Movies of %d x %d are encoded by %s.", video.width, video.height,
                   candidate.name().c_str());
            return candidate;
        }
        problems += " " + candidate.name() + ": " + problem;
    }
    qCInfo(recordingLog, "Movies of %d x %d are encoded by the processor.%s", video.width, video.height,
           problems.c_str());
    return std::nullopt;
}

std::string HardwareSearch::problemOf(const HardwareEncoder& candidate, const MovieVideo& video) const
{
    const ProbeQuestion question{video, candidate};
    QStringList arguments;
    for (const std::string& argument : question.arguments())
        arguments << QString::fromStdString(argument);
    QProcess probe;
    probe.setStandardErrorFile(QProcess::nullDevice());
    probe.start(QString::fromStdString(means_.program.string()), arguments, QIODevice::ReadOnly);
    if (!probe.waitForStarted())
        return "It cannot be tried.";
    const auto deadline = steady_clock::now() + means_.patience;
    while (!probe.waitForFinished(waitStep) && probe.state() != QProcess::NotRunning) {
        if (!isStopping_ && steady_clock::now() < deadline)
            continue;
        probe.kill();
        // On a busy machine a killed program takes its time to go, and one that is let go of before is complained
        // about.
        probe.waitForFinished(killPatience);
        return "It takes too long.";
    }
    if (probe.exitStatus() != QProcess::NormalExit)
        return "It crashes.";
    const std::string answer = probe.readAllStandardOutput().trimmed().toStdString();
    if (probe.exitCode() == 0 && answer == question.confirmation())
        return {};
    return answer.empty() || probe.exitCode() == 0 ? "It gives no clear answer." : answer;
}

} // namespace nimbrale::ffmpeg
