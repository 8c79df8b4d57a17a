// More pictures than the machine can take.

// First: its functions have the names of types that come with other headers.
#include "tests/unit/platform/ffmpeg/stalled_disk.h"

#include "tests/unit/platform/ffmpeg/movie_writer_fixture.h"

namespace nimbrale::ffmpeg {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;

class SlowSynchronizationTest : public MovieWriterTest {
protected:
    StalledDisk disk{"fsync"};
};

TEST_F(SlowSynchronizationTest, DiskThatTakesItsTimeCostsNoPicture)
{
    constexpr std::size_t count = 900;
    Screen screen(64, 48);
    const auto writer = begin(settingsFor(64, 48));
    disk.stall();
    for (std::size_t number = 0; number < count; ++number) {
        // In time to the end, whatever the disk does: the queue never fills for good.
        const auto deadline = std::chrono::steady_clock::now() + 5s;
        while (!writer->isReadyForVideo() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(1ms);
        ASSERT_TRUE(writer->isReadyForVideo()) << number;
        screen.fillWithNoise(static_cast<unsigned>(number));
        writer->appendVideo(screen.picture(), start + nanoseconds(number * std::nano::den / 30));
    }
    EXPECT_TRUE(disk.isHoldingUp());
    // All but the last second is in the file, though no disk has said that it is there.
    const auto pieces = piecesWith(count - 31);
    disk.goOn();
    ASSERT_TRUE(pieces);
    const auto finished = finish(*writer, nanoseconds(count * std::nano::den / 30));
    ASSERT_TRUE(finished);
    EXPECT_EQ(PlayedMovie(*finished).pictures().size(), count);
    EXPECT_THAT(log.lines(), IsEmpty());
}

class MovieOverloadTest : public MovieWriterTest {
protected:
    StalledDisk disk;
    Screen screen{64, 48};
    std::size_t count = 0;

    [[nodiscard]] static nanoseconds timeOf(std::size_t picture) { return nanoseconds(picture * std::nano::den / 30); }
    void appendOne(MovieWriter& writer)
    {
        screen.fillWithNoise(static_cast<unsigned>(count));
        writer.appendVideo(screen.picture(), start + timeOf(count));
        ++count;
    }
    /// Appends until no more is taken: the encoder stands still when a second of pictures is to be written.
    void fillQueue(MovieWriter& writer)
    {
        disk.stall();
        while ((writer.isReadyForVideo() || !disk.isHoldingUp()) && count < 1000) {
            if (writer.isReadyForVideo())
                appendOne(writer);
            else
                std::this_thread::sleep_for(1ms);
        }
        ASSERT_LT(count, 1000U);
    }
    [[nodiscard]] std::vector<std::string> messages() const
    {
        std::vector<std::string> all;
        for (const auto& line : log.lines())
            all.push_back(line.message);
        return all;
    }
};

TEST_F(MovieOverloadTest, PicturesBeyondTheQueueAreDroppedAndCounted)
{
    const auto writer = begin(settingsFor(64, 48));
    fillQueue(*writer);
    const std::size_t taken = count;
    EXPECT_THAT(messages(), IsEmpty());
    for (int more = 0; more < 50; ++more)
        appendOne(*writer);
    disk.goOn();
    const auto finished = finish(*writer, timeOf(count) + 1s);
    ASSERT_TRUE(finished);
    const PlayedMovie played(*finished);
    ASSERT_EQ(played.pictures().size(), taken + 1); // The last one is there again, at the end.
    EXPECT_LE(std::chrono::abs(played.pictures().at(taken - 1).time - timeOf(taken - 1)), 12us);
    EXPECT_THAT(messages(), ElementsAre("50 pictures are missing in a movie: they could not be encoded in time."));
}

TEST_F(MovieOverloadTest, NoSoundIsLeftOutWherePicturesAre)
{
    constexpr int rate = 48000;
    constexpr int piecesPerSecond = 100;
    constexpr int seconds = 10;
    MovieSettings settings = settingsFor(64, 48);
    settings.audio = MovieAudio{};
    const auto writer = begin(settings);
    fillQueue(*writer);
    AudioBuffer sound;
    for (int sample = 0; sample < rate / piecesPerSecond; ++sample)
        sound.samples.insert(sound.samples.end(), 2, sample % 48 < 24 ? 0.5F : -0.5F);
    for (int piece = 0; piece < seconds * piecesPerSecond; ++piece)
        writer->appendAudio(sound, start + piece * nanoseconds(1s) / piecesPerSecond);
    while (timeOf(count) < seconds * 1s)
        appendOne(*writer);
    disk.goOn();
    const auto finished = finish(*writer, seconds * 1s);
    ASSERT_TRUE(finished);
    EXPECT_THAT(messages(), ElementsAre(testing::HasSubstr("pictures are missing"))) << "the pictures were too many";
    const std::vector<float> samples = PlayedMovie(*finished).left();
    ASSERT_GE(samples.size(), std::size_t{seconds * rate - rate / 10});
    int silent = 0;
    for (std::size_t sample = rate / 10; sample < std::size_t{seconds * rate - rate / 10}; ++sample)
        silent += std::abs(samples[sample]) < 0.1F && std::abs(samples[sample - 12]) < 0.1F ? 1 : 0;
    EXPECT_LT(silent, rate / 100) << "samples of " << samples.size();
}

TEST_F(MovieOverloadTest, EncoderGoesOnWithLessEffortWithoutABreak)
{
    const auto writer = begin(settingsFor(64, 48), 0s);
    fillQueue(*writer);
    disk.goOn();
    for (int more = 0; more < 40; ++more) {
        waitUntilReady(*writer);
        appendOne(*writer);
    }
    const auto finished = finish(*writer, timeOf(count));
    ASSERT_TRUE(finished);
    EXPECT_THAT(messages(), ElementsAre("The encoder does not keep up and goes on with less effort."));
    const PlayedMovie played(*finished);
    EXPECT_EQ(played.video().profile, FF_PROFILE_H264_HIGH);
    ASSERT_EQ(played.pictures().size(), count);
    // Besides those of every two seconds there is the first picture of the second encoder.
    const auto keys = std::ranges::count_if(played.pictures(), &PlayedPicture::isKey);
    EXPECT_GE(keys, 2);
    EXPECT_LE(keys, static_cast<std::ptrdiff_t>((count + 59) / 60 + 1));
}

} // namespace
} // namespace nimbrale::ffmpeg
