// Processes that record are killed at any moment.

#include "tests/unit/platform/ffmpeg/paced_recording.h"

namespace nimbrale::ffmpeg {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;

using MovieKillTest = CutOffMovieTest;

TEST_F(MovieKillTest, FiftyKillsLoseNoMoreThanASecondAndAHalfEach)
{
    // Faster, and a moment in which the encoder waits for a processor would count as a second lost.
    constexpr int speed = 3;
    constexpr nanoseconds mostLost = 1500ms;
    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    int movies = 0;
    for (int number = 0; number < 50 && !HasFailure(); ++number) {
        const PacedRecording::Content content{.isMoving = number % 2 == 0, .hasSound = number % 4 < 2};
        const nanoseconds moment = std::uniform_int_distribution<std::int64_t>(0, (4500ms / 1ns))(random) * 1ns;
        SCOPED_TRACE("seed " + std::to_string(seed) + ", kill " + std::to_string(number) + " at " +
                     std::to_string(moment / 1ms) + " ms");
        const auto recording = record(speed, content, movie);
        recording->waitUntil(moment);
        recording->kill();
        const nanoseconds reached = recording->reached();
        const auto recovered = MovieRecovery().recover(folder);
        if (recovered.empty()) {
            EXPECT_LE(reached, mostLost);
            EXPECT_THAT(names(), IsEmpty());
            continue;
        }
        ASSERT_THAT(recovered, ElementsAre(RecoveredMovie{movie, std::nullopt}));
        expectPlays(movie, content, reached - mostLost);
        std::filesystem::remove(movie);
        ++movies;
    }
    EXPECT_GE(movies, 25) << "seed " << seed << ": most moments leave a movie";
}

} // namespace
} // namespace nimbrale::ffmpeg
