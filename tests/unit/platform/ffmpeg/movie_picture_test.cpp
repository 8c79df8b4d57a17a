// The picture of a movie: what a player shows, and when.

#include "tests/unit/platform/ffmpeg/movie_writer_fixture.h"

namespace nimbrale::ffmpeg {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using testing::ElementsAre;

class MoviePictureTest : public MovieWriterTest {
protected:
    /// A movie of the screen as it is, changed by `draw` before each picture.
    PlayedMovie movieOf(const MovieSettings& settings, const std::vector<nanoseconds>& times, nanoseconds end,
                        const std::function<void(Screen& screen, std::size_t picture)>& draw)
    {
        Screen screen(settings.video.width, settings.video.height);
        const auto writer = begin(settings);
        for (std::size_t picture = 0; picture < times.size(); ++picture) {
            draw(screen, picture);
            append(*writer, screen, times[picture]);
        }
        const auto finished = finish(*writer, end);
        if (!finished)
            throw std::runtime_error(finished.error().message);
        if (const auto failure = writer->failure())
            throw std::runtime_error(failure->message);
        return PlayedMovie(*finished);
    }
};

/// Pictures every thirtieth of a second.
std::vector<nanoseconds> evenTimes(std::size_t count)
{
    std::vector<nanoseconds> times;
    for (std::size_t number = 0; number < count; ++number)
        times.push_back(nanoseconds(number * std::nano::den / 30));
    return times;
}

/// What a movie can tell apart.
constexpr nanoseconds tick{std::nano::den / videoTicksPerSecond + 1};

TEST_F(MoviePictureTest, IsHighProfileTaggedAsItWasConverted)
{
    const PlayedMovie decoded =
        movieOf(settingsFor(320, 240), evenTimes(10), 333ms,
                [](Screen& screen, std::size_t picture) { screen.fillWithNoise(static_cast<unsigned>(picture)); });
    EXPECT_EQ(decoded.video().codec_id, AV_CODEC_ID_H264);
    EXPECT_EQ(decoded.video().profile, FF_PROFILE_H264_HIGH);
    EXPECT_EQ(decoded.video().width, 320);
    EXPECT_EQ(decoded.video().height, 240);
    EXPECT_EQ(decoded.video().color_primaries, AVCOL_PRI_BT709);
    EXPECT_EQ(decoded.video().color_trc, AVCOL_TRC_BT709);
    EXPECT_EQ(decoded.video().color_space, AVCOL_SPC_BT709);
    EXPECT_EQ(decoded.video().color_range, AVCOL_RANGE_MPEG);
    EXPECT_EQ(decoded.audio(), nullptr);
}

TEST_F(MoviePictureTest, PicturesKeepTheirTimes)
{
    const std::vector<nanoseconds> times{0ms, 33333333ns, 40ms, 41ms, 500ms, 517123456ns, 1700ms, 4999ms};
    const PlayedMovie decoded = movieOf(settingsFor(64, 48), times, 5s, [](Screen& screen, std::size_t picture) {
        screen.fillAll({static_cast<std::uint8_t>(picture * 30), 0, 0});
    });
    ASSERT_EQ(decoded.pictures().size(), times.size());
    for (std::size_t picture = 0; picture < times.size(); ++picture)
        EXPECT_LE(std::chrono::abs(decoded.pictures()[picture].time - times[picture]), tick) << picture;
    EXPECT_NEAR(decoded.videoDuration().count(), 5.0, 0.001);
}

TEST_F(MoviePictureTest, FirstPictureIsShownFromTheStart)
{
    const PlayedMovie decoded = movieOf(settingsFor(64, 48), {200ms, 300ms}, 400ms, [](Screen& screen, std::size_t) {
        screen.fillAll({0, 255, 0});
    });
    EXPECT_THAT(decoded.times(), ElementsAre(0ms, 300ms, testing::_));
}

TEST_F(MoviePictureTest, KeyPicturesComeEveryTwoSecondsAtAnEvenRate)
{
    std::vector<nanoseconds> times = evenTimes(190);
    // Half a millisecond early, as a capture can be.
    for (std::size_t picture = 1; picture < times.size(); picture += 3)
        times[picture] -= 500us;
    const PlayedMovie decoded = movieOf(settingsFor(64, 48), times, 190s / 30, [](Screen& screen, std::size_t picture) {
        screen.fill({static_cast<int>(picture % 60), 4, 4, 4}, {255, 255, 255});
    });
    std::vector<std::size_t> keys;
    for (std::size_t picture = 0; picture < decoded.pictures().size(); ++picture) {
        if (decoded.pictures()[picture].isKey)
            keys.push_back(picture);
    }
    EXPECT_THAT(keys, ElementsAre(0, 60, 120, 180));
}

TEST_F(MoviePictureTest, KeyPicturesComeByTimeWhereFewPicturesDo)
{
    const std::vector<nanoseconds> times{0s, 100ms, 1900ms, 2100ms, 3s, 4500ms, 5s, 9s, 10s, 12s};
    const PlayedMovie decoded = movieOf(settingsFor(64, 48), times, 12010ms, [](Screen& screen, std::size_t picture) {
        screen.fillAll({0, static_cast<std::uint8_t>(picture * 20), 0});
    });
    std::vector<nanoseconds> keys;
    for (const PlayedPicture& picture : decoded.pictures()) {
        if (picture.isKey)
            keys.push_back(picture.time);
    }
    EXPECT_THAT(keys, ElementsAre(0s, 2100ms, 4500ms, 9s, 12s));
}

TEST_F(MoviePictureTest, ChangedScenesMakeNoKeyPictures)
{
    const PlayedMovie decoded =
        movieOf(settingsFor(128, 96), evenTimes(50), 50s / 30,
                [](Screen& screen, std::size_t picture) { screen.fillWithNoise(static_cast<unsigned>(picture)); });
    EXPECT_EQ(std::ranges::count_if(decoded.pictures(), &PlayedPicture::isKey), 1);
}

TEST_F(MoviePictureTest, StillScreenLastsToTheEndAndCanBeSoughtIn)
{
    Screen screen(160, 120);
    screen.fillAll({30, 200, 90});
    const auto writer = begin(settingsFor(160, 120));
    append(*writer, screen, 0s);
    for (nanoseconds time = 1s; time < 10s; time += 1s) {
        waitUntilReady(*writer);
        writer->repeatVideo(start + time);
    }
    const auto finished = finish(*writer, 10500ms);
    ASSERT_TRUE(finished);
    PlayedMovie decoded(*finished);
    EXPECT_NEAR(decoded.duration().count(), 10.5, 0.001);
    EXPECT_NEAR(decoded.videoDuration().count(), 10.5, 0.001);
    EXPECT_EQ(decoded.pictures().size(), 11U);
    EXPECT_LE(std::chrono::abs(decoded.pictures().back().time - (10500ms - 33333333ns)), tick);
    for (const PlayedPicture& picture : decoded.pictures()) {
        for (const std::uint8_t luma : picture.luma)
            ASSERT_NEAR(luma, decoded.pictures().front().luma.front(), 1);
    }
    EXPECT_EQ(decoded.seekTo(7s), 6s);
    EXPECT_EQ(decoded.seekTo(100ms), 0s);
}

TEST_F(MoviePictureTest, OnePictureIsAMovie)
{
    const PlayedMovie decoded = movieOf(settingsFor(64, 48), {0s}, 3s, [](Screen& screen, std::size_t) {
        screen.fillAll({255, 255, 255});
    });
    EXPECT_NEAR(decoded.videoDuration().count(), 3.0, 0.001);
    EXPECT_EQ(decoded.pictures().size(), 2U);
}

TEST_F(MoviePictureTest, FlatColorsComeBack)
{
    struct Case {
        Bgr color;
        int luma;
        int blueChroma;
        int redChroma;
    };
    const std::vector<Case> cases{{{0, 0, 0}, 16, 128, 128},   {{255, 255, 255}, 235, 128, 128},
                                  {{0, 0, 255}, 63, 102, 240}, {{0, 255, 0}, 173, 42, 26},
                                  {{255, 0, 0}, 32, 240, 118}, {{128, 128, 128}, 126, 128, 128},
                                  {{80, 56, 32}, 61, 141, 117}};
    std::vector<nanoseconds> times = evenTimes(cases.size());
    const PlayedMovie decoded = movieOf(settingsFor(64, 48), times, 1s, [&](Screen& screen, std::size_t picture) {
        screen.fillAll(cases[picture].color);
    });
    for (std::size_t number = 0; number < cases.size(); ++number) {
        const PlayedPicture& picture = decoded.pictures().at(number);
        EXPECT_NEAR(picture.lumaAt(30, 20), cases[number].luma, 2) << number;
        EXPECT_NEAR(picture.blueChromaAt(30, 20), cases[number].blueChroma, 2) << number;
        EXPECT_NEAR(picture.redChromaAt(30, 20), cases[number].redChroma, 2) << number;
    }
}

TEST_F(MoviePictureTest, EdgesAreAtTheirPixels)
{
    const PixelRect square{37, 21, 15, 9};
    MovieSettings settings = settingsFor(128, 96);
    settings.video.averageBitRate *= 10;
    const PlayedMovie decoded = movieOf(settings, evenTimes(3), 100ms, [&](Screen& screen, std::size_t picture) {
        if (picture == 1)
            screen.fill(square, {255, 255, 255});
    });
    const PlayedPicture& picture = decoded.pictures().at(2);
    for (int y = 0; y < 96; ++y) {
        for (int x = 0; x < 128; ++x)
            ASSERT_EQ(picture.lumaAt(x, y) > 126, square.contains({x, y})) << x << ", " << y;
    }
}

TEST_F(MoviePictureTest, ChangesOfDroppedPicturesAreInTheNextOne)
{
    Screen screen(64, 48);
    const auto writer = begin(settingsFor(64, 48));
    append(*writer, screen, 0s);
    screen.fill({0, 0, 20, 20}, {255, 255, 255});
    writer->dropVideo();
    screen.fill({40, 20, 20, 20}, {255, 255, 255});
    append(*writer, screen, 100ms);
    const auto finished = finish(*writer, 200ms);
    ASSERT_TRUE(finished);
    const PlayedMovie decoded(*finished);
    EXPECT_GT(decoded.pictures().back().lumaAt(10, 10), 200);
    EXPECT_GT(decoded.pictures().back().lumaAt(50, 30), 200);
    EXPECT_LT(decoded.pictures().back().lumaAt(30, 30), 50);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_THAT(log.lines().front().message, testing::StartsWith("1 pictures are missing"));
}

TEST_F(MoviePictureTest, ManyPlacesThatChangeInTurnsAreAllUpToDate)
{
    // Each of the buffers that take turns has missed other changes.
    Screen screen(256, 192);
    MovieSettings settings = settingsFor(256, 192);
    settings.video.averageBitRate *= 20;
    const auto writer = begin(settings);
    std::vector<std::vector<int>> expected;
    std::vector<int> lumas(256, 16);
    constexpr std::size_t count = 300;
    for (std::size_t number = 0; number < count; ++number) {
        const auto gray = static_cast<std::uint8_t>(number * 37 % 256);
        const auto cell = static_cast<int>(number * 91 % 256);
        screen.fill({(cell % 16) * 16, (cell / 16) * 12, 16, 12}, {gray, gray, gray});
        lumas.at(static_cast<std::size_t>(cell)) = 16 + gray * 219 / 255;
        expected.push_back(lumas);
        // In bursts: so that many buffers are in use at times, and few at others.
        if (number % 20 == 0)
            std::this_thread::sleep_for(10ms);
        append(*writer, screen, nanoseconds(number * std::nano::den / 30));
    }
    const auto finished = finish(*writer, 10s);
    ASSERT_TRUE(finished);
    const PlayedMovie decoded(*finished);
    ASSERT_EQ(decoded.pictures().size(), count);
    for (std::size_t number = 0; number < count; ++number) {
        for (int cell = 0; cell < 256; ++cell) {
            ASSERT_NEAR(decoded.pictures()[number].lumaAt((cell % 16) * 16 + 8, (cell / 16) * 12 + 6),
                        expected[number].at(static_cast<std::size_t>(cell)), 12)
                << "picture " << number << ", cell " << cell;
        }
    }
}

TEST_F(MoviePictureTest, BitRateIsOfTheOrderAskedFor)
{
    MovieSettings settings = settingsFor(640, 360);
    settings.video.averageBitRate = 2000000;
    const PlayedMovie decoded = movieOf(settings, evenTimes(240), 8s, [](Screen& screen, std::size_t picture) {
        screen.fillWithNoise(static_cast<unsigned>(picture));
    });
    EXPECT_NEAR(static_cast<double>(decoded.videoBytes()) * 8 / 8, 2e6, 0.5e6);
}

TEST_F(MoviePictureTest, SmallestAndLargestSizes)
{
    for (const auto& [width, height] : {std::array{2, 2}, std::array{3840, 2160}, std::array{4, 2160}}) {
        const PlayedMovie decoded =
            movieOf(settingsFor(width, height), evenTimes(3), 100ms, [](Screen& screen, std::size_t picture) {
                screen.fillAll({static_cast<std::uint8_t>(picture * 100), 0, 0});
            });
        EXPECT_EQ(decoded.video().width, width);
        EXPECT_EQ(decoded.video().height, height);
        EXPECT_EQ(decoded.video().profile, FF_PROFILE_H264_HIGH);
        ASSERT_EQ(decoded.pictures().size(), 3U);
        EXPECT_NEAR(decoded.pictures()[2].blueChromaAt(width / 2, height / 2), 216, 3);
    }
}

} // namespace
} // namespace nimbrale::ffmpeg
