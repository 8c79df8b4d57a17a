// When pictures and sound are in a movie: flashes of a window and beeps of a program, each against the clock that it
// was made by.

#include "tests/meeting/recording_sound_journey.h"
#include "tests/support/wall_clock.h"

#include <QPoint>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <functional>
#include <gmock/gmock.h>
#include <iterator>
#include <thread>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;
using testing::SizeIs;

constexpr double beepLength = 0.1;

double secondsOf(std::chrono::nanoseconds duration)
{
    return std::chrono::duration<double>(duration).count();
}

std::chrono::nanoseconds now()
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

/// A flash in the movie, and the beep of the same second, which begins with it on the monotonic clock.
struct FlashAndBeep {
    std::size_t second = 0; ///< since the first one
    double flash = 0;       ///< in the movie, in seconds
    double beep = 0;        ///< the same
    double drawn = 0;       ///< when the flash was told to the window's program, after the second
};

class RecordingTimesTest : public RecordingSoundJourney {
protected:
    void SetUp() override
    {
        RecordingSoundJourney::SetUp();
        plugInLoudspeaker();
        player = playerOf("--beep", 1000);
        scene->add("flash", {.geometry = {601, 301, 80, 80}, .seed = 0, .color = Qt::black});
        scene->add("mover", {.geometry = {301, 401, 120, 20}, .seed = 0, .color = Qt::black});
    }

    /// A flash at each of so many whole seconds, in a picture that moves all the time. `onSecond` is called after each.
    void flash(int count, const std::function<void(int second)>& onSecond = {})
    {
        const auto first = std::chrono::ceil<std::chrono::seconds>(now()) + 1s;
        for (int second = 0; second < count; ++second) {
            const auto due = first + std::chrono::seconds(second);
            move(due - 30ms);
            std::this_thread::sleep_until(std::chrono::steady_clock::time_point(due));
            drawn_.push_back(secondsOf(now() - due));
            scene->fill("flash", {0, 0, 80, 80}, Qt::white);
            move(due + 100ms);
            scene->fill("flash", {0, 0, 80, 80}, Qt::black);
            if (onSecond)
                onSecond(second);
        }
        // A movie's end cuts off sound that is still on its way, and the last beep is to be whole.
        move(now() + 500ms);
    }
    /// Those in the movie, in order. The first of all must be there.
    [[nodiscard]] std::vector<FlashAndBeep> found(const MovieFile& movie) const
    {
        const std::vector<float> samples = movie.samples(0);
        const std::vector<int> brightness = movie.brightnessAt(QPoint(640, 340) - region.topLeft());
        if (brightness.size() != movie.video()->pictures.size())
            failTest("not all of the pictures can be decoded");
        std::vector<FlashAndBeep> pairs;
        for (std::size_t index = 1; index < brightness.size(); ++index) {
            if (brightness[index] < 128 || brightness[index - 1] >= 128)
                continue;
            const double flash = movie.video()->pictures[index].time;
            const auto beep = beepAround(samples, flash, beepLength);
            const auto second = pairs.empty() ? 0U : static_cast<std::size_t>(std::lround(flash - pairs[0].flash));
            if (second >= drawn_.size() || !beep)
                failTest("a flash too many, or one without a beep, at " + std::to_string(flash));
            pairs.push_back({second, flash, *beep, drawn_[second]});
        }
        return pairs;
    }
    /// How late pictures are against the sound, with the time that the flash itself took left out.
    [[nodiscard]] static std::vector<double> lateness(const std::vector<FlashAndBeep>& pairs)
    {
        std::vector<double> late;
        std::ranges::transform(pairs, std::back_inserter(late),
                               [](const FlashAndBeep& pair) { return pair.flash - pair.beep - pair.drawn; });
        return late;
    }
    [[nodiscard]] static double medianOf(std::vector<double> values)
    {
        const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
        std::ranges::nth_element(values, middle);
        return *middle;
    }

    std::unique_ptr<VirtualSound> player;

private:
    void move(std::chrono::nanoseconds end)
    {
        constexpr auto step = 40ms;
        while (now() + step < end) {
            std::this_thread::sleep_for(step);
            position_ = (position_ + 20) % 100;
            scene->fill("mover", {0, 0, 120, 20}, Qt::black);
            scene->fill("mover", {position_, 0, 20, 20}, Qt::gray);
        }
        std::this_thread::sleep_until(std::chrono::steady_clock::time_point(end));
    }

    int position_ = 0;
    std::vector<double> drawn_; ///< seconds after each flash's due time
};

TEST_F(RecordingTimesTest, PicturesAndSoundKeepTheirDistanceToTheClockThatTheyWereMadeBy)
{
    constexpr int flashes = 21;
    startWith({{"recordSystemAudio", "true"}, {"settingsFramerate", "60"}});
    pressRecord();
    ASSERT_TRUE(isRecording());
    flash(flashes);
    pressRecord();
    ASSERT_TRUE(isSaved()) << application->process().output();
    const std::vector<FlashAndBeep> pairs = found(movie());
    EXPECT_EQ(pairs.size(), std::size_t{flashes});
    ASSERT_GT(pairs.size(), std::size_t{flashes / 2});

    const std::vector<double> late = lateness(pairs);
    // A picture cannot be there before it was drawn; a frame's time later it must be.
    EXPECT_GT(medianOf(late), -0.002);
    EXPECT_LT(medianOf(late), 0.010);
    const auto third = static_cast<std::ptrdiff_t>(late.size() / 3);
    const double atFirst = medianOf({late.begin(), late.begin() + third});
    const double atLast = medianOf({late.end() - third, late.end()});
    EXPECT_NEAR(atFirst, atLast, 0.008) << "they drift apart";
    // The beeps alone: their clock is the movie's.
    EXPECT_NEAR(pairs.back().beep - pairs.front().beep, static_cast<double>(pairs.back().second), 0.008);
    RecordProperty("median", std::to_string(medianOf(late)));
    RecordProperty("drift", std::to_string(atLast - atFirst));
    RecordProperty("first to last beep", std::to_string(pairs.back().beep - pairs.front().beep));
    RecordProperty("earliest", std::to_string(*std::ranges::min_element(late)));
    RecordProperty("latest", std::to_string(*std::ranges::max_element(late)));
}

TEST_F(RecordingTimesTest, AWallClockThatIsSetInMidRecordingMovesNothing)
{
    constexpr int flashes = 9;
    const WallClock clock(desktop->folder() / "wall-clock");
    constexpr std::chrono::hours year{365 * 24};
    clock.set(year); // The name shows that the application sees this clock.
    // At the usual rate a picture may be later than the next one by more than the bound, however right its time is.
    startWith({{"recordSystemAudio", "true"}, {"settingsFramerate", "60"}}, clock.environment());
    const auto begun = std::time(nullptr);
    pressRecord();
    ASSERT_TRUE(isRecording());
    flash(flashes, [&](int second) {
        if (second == 2)
            clock.set(year - 1h);
        else if (second == 5)
            clock.set(year + 2h);
    });
    pressRecord();
    ASSERT_TRUE(isSaved()) << application->process().output();

    const MovieFile saved = movie();
    std::tm later{};
    const std::time_t shifted = begun + std::chrono::seconds(year).count();
    ASSERT_TRUE(localtime_r(&shifted, &later));
    EXPECT_THAT(saved.path().filename().string(), testing::HasSubstr(std::to_string(later.tm_year + 1900)));
    EXPECT_EQ(saved.problems(), "");
    const std::vector<FlashAndBeep> pairs = found(saved);
    ASSERT_THAT(pairs, SizeIs(flashes));
    for (std::size_t index = 1; index < pairs.size(); ++index) {
        EXPECT_NEAR(pairs[index].beep - pairs[0].beep, static_cast<double>(index), 0.01);
        EXPECT_NEAR(pairs[index].flash - pairs[index].drawn - (pairs[0].flash - pairs[0].drawn),
                    static_cast<double>(index), 0.03);
    }
    EXPECT_NEAR(saved.audio()->duration, saved.video()->duration, 0.05);
}

} // namespace
} // namespace nimbrale::test
