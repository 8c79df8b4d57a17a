// What a long recording takes of memory: no more at its end than after a few minutes.

#include "tests/unit/recording/long_recording.h"

#include <QTemporaryDir>

#include <cmath>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vector>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

constexpr nanoseconds start = 123'456s;
constexpr double megabyte = 1e6;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
/// The sanitizers keep what was freed.
constexpr double mostGrowth = 400;
#else
constexpr double mostGrowth = 6;
#endif

/// Of this process, resident.
double megabytes()
{
    std::size_t total = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / megabyte;
}

/// Takes all and keeps nothing, but counts.
class CountingWriter final : public MovieWriter {
public:
    explicit CountingWriter(std::size_t& frames) : frames_(frames) {}

    void startSession(nanoseconds /*time*/) override {}
    [[nodiscard]] bool isReadyForVideo() const override { return true; }
    void appendVideo(const SurfaceReader::Picture& /*picture*/, nanoseconds /*time*/) override {}
    void dropVideo() override {}
    void repeatVideo(nanoseconds /*time*/) override {}
    void appendAudio(const AudioBuffer& audio, nanoseconds /*time*/) override { frames_ += audio.frameCount(); }
    void finish(nanoseconds /*time*/, Completion completion) override { completion(std::filesystem::path("movie")); }
    void cancel() override {}
    [[nodiscard]] std::optional<Error> failure() const override { return std::nullopt; }
    [[nodiscard]] bool isStalled() override { return false; }

private:
    std::size_t& frames_;
};

/// Records a picture and two sources of sound up to `length`; what was taken more at the end than after a tenth of it.
double growthOf(LongRecording& recording, nanoseconds length, int picturesPerSecond)
{
    constexpr nanoseconds step = 100ms;
    AudioBuffer voice{.channels = 1, .samples = std::vector<float>(4800)};
    for (std::size_t sample = 0; sample < voice.samples.size(); ++sample)
        voice.samples[sample] = 0.4F * std::sin(static_cast<float>(sample) * 0.13F);
    const AudioBuffer music{.samples = std::vector<float>(std::size_t{2} * 4800, 0.1F)};
    double early = 0;
    for (nanoseconds now{}; now < length; now += step) {
        if (now % (1'000'000'000ns / picturesPerSecond) == 0ns)
            recording.show(now % 2s == 0ns, start + now);
        // The microphone comes late, and is unplugged for a while in every minute.
        if (now > 200ms && now % 60s < 50s)
            recording.hear(voice, start + now - 200ms);
        recording.hear(music, start + now);
        if (now % 500ms == 0ns)
            recording.tick(start + now);
        if (now == length / 10)
            early = megabytes();
    }
    return megabytes() - early;
}

TEST(RecordingMemoryTest, AnHourOfSoundIsMixedInTheMemoryOfItsFirstMinutes)
{
    std::size_t frames = 0;
    LongRecording recording(std::make_unique<CountingWriter>(frames));
    EXPECT_LT(growthOf(recording, 1h, 1), mostGrowth);
    EXPECT_EQ(recording.finish(start + 1h), "movie");
    EXPECT_EQ(frames, std::size_t{3600} * 48'000);
}

TEST(RecordingMemoryTest, TenMinutesOfAMovieAreWrittenInTheMemoryOfTheirFirst)
{
    const QTemporaryDir folder;
    LongRecording recording(folder.filePath("Movie.mov").toStdString());
    EXPECT_LT(growthOf(recording, 10min, 5), mostGrowth);
    EXPECT_GT(std::filesystem::file_size(recording.finish(start + 10min)), 1'000'000U);
}

TEST(RecordingMemoryTest, MemoryThatIsKeptIsSeen)
{
    const double before = megabytes();
    const std::vector<char> kept(static_cast<std::size_t>((mostGrowth + 10) * megabyte), 'x');
    EXPECT_GT(megabytes() - before, mostGrowth);
    EXPECT_EQ(kept.back(), 'x');
}

} // namespace
} // namespace nimbrale::test
