#include "platform/ffmpeg/movie_index.h"

#include "tests/unit/platform/ffmpeg/file_calls.h"
#include "tests/unit/platform/ffmpeg/pieces_fixture.h"

#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>

namespace nimbrale::ffmpeg {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class MovieIndexTest : public PiecesFixture {
protected:
    void expectOrdinary(const Result<FinalizedMovie>& finalized)
    {
        ASSERT_TRUE(finalized) << finalized.error().message;
        EXPECT_EQ(*finalized, FinalizedMovie::ordinary);
        EXPECT_THAT(boxTypesOf(read(pieces)), ElementsAre("ftyp", "mdat", "moov"));
        EXPECT_THAT(names(), ElementsAre("Movie.mov.unfinished"));
    }
    /// Each track's data begin where those of the track before end, which is told by what is left out. Returns in how
    /// many pieces.
    static int writeAsOthers(FileBytes& bytes)
    {
        int changed = 0;
        for (const Box& fragment : boxesOf(bytes)) {
            if (fragment.type != boxType("moof"))
                continue;
            const auto parts = readBoxes(fragment.content);
            EXPECT_TRUE(parts && parts->size() == 3);
            const auto track = readBoxes(parts->back().content);
            EXPECT_TRUE(track);
            for (const Box& part : *track) {
                const auto at = bytes.begin() + (part.content.data() - bytes.data());
                if (part.type == boxType("tfhd"))
                    at[1] = 0;
                if (part.type == boxType("trun")) {
                    std::fill_n(at + 8, 4, std::uint8_t{0});
                    ++changed;
                }
            }
        }
        return changed;
    }
    /// Adds so many samples to the sound's times. Returns in how many pieces there was sound.
    static int delaySound(FileBytes& bytes, std::uint64_t samples)
    {
        int changed = 0;
        for (const Box& fragment : boxesOf(bytes)) {
            const auto parts = fragment.type == boxType("moof") ? readBoxes(fragment.content) : std::nullopt;
            if (!parts || parts->size() < 3)
                continue;
            const auto track = readBoxes(parts->back().content);
            const Box* const time = onlyBox(*track, boxType("tfdt"));
            BoxWriter delayed;
            delayed.write64(NumberReader(time->content.subspan(4)).read64() + samples);
            std::copy(delayed.bytes().begin(), delayed.bytes().end(),
                      bytes.begin() + (time->content.data() - bytes.data()) + 4);
            ++changed;
        }
        return changed;
    }
};

TEST_F(MovieIndexTest, PicturesAndSoundKeepTheirTimes)
{
    const PieceMovieContent content = picturesAndSound(5 * second);
    const FileBytes bytes = PieceMovie::make(content);
    ASSERT_GE(boxesOf(bytes).size(), 2 + 2 * 4) << "The movie is not in pieces.";
    expectOrdinary(finalize(bytes));
    const PlayedMovie played(pieces);
    expectPictures(played, content, content.pictureTimes.size());
    EXPECT_EQ(played.videoTrack().begin, 0);
    EXPECT_EQ(played.videoTrack().duration, content.end);
    EXPECT_EQ(played.soundTrack().begin, 0);
    EXPECT_NEAR(static_cast<double>(played.soundTrack().duration), static_cast<double>(content.end), 0.05 * second);
    EXPECT_EQ(played.loudestSample(), content.tick);
    EXPECT_EQ(played.lastPictureDuration(), content.end - content.pictureTimes.back());
}

TEST_F(MovieIndexTest, NoMediaIsMoved)
{
    const FileBytes bytes = PieceMovie::make(picturesAndSound(3 * second));
    expectOrdinary(finalize(bytes));
    const FileBytes finalized = read(pieces);
    const std::size_t head = boxesOf(bytes)[0].whole.size();
    ASSERT_GT(finalized.size(), bytes.size());
    // All but the 16 bytes that became the header of the media.
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(head), finalized.begin()));
    EXPECT_TRUE(std::equal(bytes.begin() + static_cast<std::ptrdiff_t>(head) + 16, bytes.end(),
                           finalized.begin() + static_cast<std::ptrdiff_t>(head) + 16));
}

TEST_F(MovieIndexTest, PicturesAlone)
{
    const PieceMovieContent content = pictures(4 * second);
    expectOrdinary(finalize(PieceMovie::make(content)));
    const PlayedMovie played(pieces);
    expectPictures(played, content, content.pictureTimes.size());
    EXPECT_EQ(played.videoTrack().duration, content.end);
    EXPECT_EQ(played.loudestSample(), -1);
}

TEST_F(MovieIndexTest, AStillPictureLastsToTheEnd)
{
    PieceMovieContent content;
    content.pictureTimes = {0};
    content.end = 10 * second;
    expectOrdinary(finalize(PieceMovie::make(content)));
    const PlayedMovie played(pieces);
    expectPictures(played, content, 1);
    EXPECT_EQ(played.videoTrack().duration, 10 * second);
    EXPECT_EQ(played.lastPictureDuration(), 10 * second);
}

TEST_F(MovieIndexTest, AStillPictureUnderSoundLastsToTheEnd)
{
    PieceMovieContent content;
    content.pictureTimes = {0, 6 * second};
    content.end = 7 * second;
    content.tick = 5 * 48000 + 17;
    expectOrdinary(finalize(PieceMovie::make(content)));
    const PlayedMovie played(pieces);
    expectPictures(played, content, 2);
    EXPECT_EQ(played.videoTrack().duration, 7 * second);
    EXPECT_EQ(played.loudestSample(), content.tick);
}

TEST_F(MovieIndexTest, TheFirstPictureIsShownFromTheBeginningAndSoundStaysWhereItIs)
{
    PieceMovieContent content = picturesAndSound(4 * second);
    for (std::int64_t& time : content.pictureTimes)
        time += second / 3;
    content.end += second / 3;
    expectOrdinary(finalize(PieceMovie::make(content)));
    const PlayedMovie played(pieces);
    content.pictureTimes.front() = 0;
    expectPictures(played, content, content.pictureTimes.size());
    EXPECT_EQ(played.videoTrack().begin, 0);
    EXPECT_EQ(played.videoTrack().duration, content.end);
    EXPECT_EQ(played.loudestSample(), content.tick);
}

TEST_F(MovieIndexTest, SoundThatBeginsLaterStaysWhereItIsToTheSample)
{
    constexpr int later = 12345;
    const PieceMovieContent content = picturesAndSound(4 * second);
    FileBytes bytes = PieceMovie::make(content);
    ASSERT_GT(delaySound(bytes, later), 1);
    expectOrdinary(finalize(bytes));
    const PlayedMovie played(pieces);
    expectPictures(played, content, content.pictureTimes.size());
    EXPECT_EQ(played.videoTrack().begin, 0);
    EXPECT_NEAR(static_cast<double>(played.soundTrack().begin), later * 15.0 / 8, 1);
    EXPECT_EQ(played.loudestSample(), content.tick + later);
}

TEST_F(MovieIndexTest, EditListsOfThePiecesCount)
{
    PieceMovieContent content = picturesAndSound(4 * second);
    content.hasEditLists = true;
    expectOrdinary(finalize(PieceMovie::make(content)));
    const PlayedMovie played(pieces);
    expectPictures(played, content, content.pictureTimes.size());
    EXPECT_EQ(played.videoTrack().begin, 0);
    EXPECT_EQ(played.loudestSample(), content.tick);
}

TEST_F(MovieIndexTest, AFinalizedMovieStaysAsItIs)
{
    expectOrdinary(finalize(PieceMovie::make(picturesAndSound(3 * second))));
    const FileBytes finalized = read(pieces);
    expectOrdinary(finalize(finalized));
    EXPECT_EQ(read(pieces), finalized);
}

// Crashes while it is finalized.

class FinalizingCrashTest : public MovieIndexTest {
protected:
    static constexpr int crashed = 42;

    /// Finalizes what is there in another process, which `before` may end at a call on a file.
    int finalizeElsewhere(const std::function<void(const std::string& call)>& before)
    {
        const pid_t child = fork();
        if (child == 0) {
            auto place = MoviePlace::claim(pieces);
            FileCalls calls;
            calls.before = before;
            _exit(place && *place && finalizeMovie(**place) ? 0 : 1);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    /// Pieces of which the last is cut off, so that there is something to do for each step.
    static FileBytes cutMovie()
    {
        FileBytes bytes = PieceMovie::make(picturesAndSound(4 * second));
        bytes.resize(bytes.size() - 1000);
        return bytes;
    }
};

TEST_F(FinalizingCrashTest, IsFinishedByTheNextOneWhateverCallItCameBefore)
{
    const FileBytes bytes = cutMovie();
    expectOrdinary(finalize(bytes));
    const FileBytes expected = read(pieces);
    int last = 0;
    for (int end = 1; last == 0; ++end) {
        write(pieces, bytes);
        int calls = 0;
        const int exit = finalizeElsewhere([&](const std::string& /*call*/) {
            if (++calls == end)
                _exit(crashed);
        });
        ASSERT_THAT(exit, testing::AnyOf(0, crashed));
        if (exit == 0)
            last = end;
        auto place = MoviePlace::claim(pieces);
        ASSERT_TRUE(place && *place);
        expectOrdinary(finalizeMovie(**place));
        EXPECT_EQ(read(pieces), expected) << "crashed before call " << end;
    }
    EXPECT_EQ(last, 1 + 5) << "One to cut it, two to write and two to bring that to the disk.";
}

TEST_F(FinalizingCrashTest, IsFinishedByTheNextOneWhateverPartOfTheIndexWasWritten)
{
    const FileBytes bytes = cutMovie();
    expectOrdinary(finalize(bytes));
    const FileBytes expected = read(pieces);
    const std::size_t index = boxesOf(expected).back().whole.size();
    for (std::size_t written = 1; written <= index; written += index / 40 + 1) {
        write(pieces, bytes);
        const int exit = finalizeElsewhere([&](const std::string& call) {
            if (call != "pwrite")
                return;
            std::fstream file(pieces, std::ios::binary | std::ios::in | std::ios::out | std::ios::ate);
            const FileBytes part(expected.end() - static_cast<std::ptrdiff_t>(index),
                                 expected.end() - static_cast<std::ptrdiff_t>(index - written));
            file.write(reinterpret_cast<const char*>(part.data()), static_cast<std::streamsize>(part.size()));
            file.close();
            _exit(crashed);
        });
        ASSERT_EQ(exit, crashed);
        ASSERT_EQ(std::filesystem::file_size(pieces), expected.size() - index + written);
        auto place = MoviePlace::claim(pieces);
        ASSERT_TRUE(place && *place);
        expectOrdinary(finalizeMovie(**place));
        ASSERT_EQ(read(pieces), expected) << written << " bytes of the index were written";
    }
}

// What can go wrong.

TEST_F(MovieIndexTest, AFullDiskLeavesThePiecesAndSaysWhere)
{
    const FileBytes bytes = PieceMovie::make(picturesAndSound(3 * second));
    write(pieces, bytes);
    auto place = MoviePlace::claim(pieces);
    ASSERT_TRUE(place && *place);
    // The file may grow by half of the index.
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit tight{bytes.size() + 1000, before.rlim_max};
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
    const auto finalized = finalizeMovie(**place);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    signal(SIGXFSZ, handler);

    ASSERT_FALSE(finalized);
    EXPECT_EQ(finalized.error().message,
              "The movie couldn't be saved. The disk is full. What was recorded is in " + pieces.string() + ".");
    EXPECT_EQ(read(pieces), bytes);
    EXPECT_THAT(names(), ElementsAre("Movie.mov.unfinished"));
    expectOrdinary(finalizeMovie(**place));
}

TEST_F(MovieIndexTest, PiecesThatCannotBeFinishedInPlaceAreCopied)
{
    const PieceMovieContent content = picturesAndSound(3 * second);
    write(pieces, PieceMovie::make(content));
    auto place = MoviePlace::claim(pieces);
    ASSERT_TRUE(place && *place);
    FileCalls calls;
    calls.failures = {{"pwrite", EPERM}};
    const auto finalized = finalizeMovie(**place);
    ASSERT_TRUE(finalized) << finalized.error().message;
    EXPECT_THAT(names(), ElementsAre("Movie.mov.unfinished"));
    EXPECT_THAT(boxTypesOf(read(pieces)), ElementsAre("ftyp", "wide", "mdat", "moov"));
    const PlayedMovie played(pieces);
    expectPictures(played, content, content.pictureTimes.size());
    EXPECT_EQ(played.loudestSample(), content.tick);
    // And that one is finished.
    const FileBytes copied = read(pieces);
    EXPECT_EQ(finalizeMovie(**place), FinalizedMovie::ordinary);
    EXPECT_EQ(read(pieces), copied);
}

TEST_F(MovieIndexTest, PiecesAsOthersWriteThemAreCopied)
{
    const PieceMovieContent content = picturesAndSound(3 * second);
    FileBytes bytes = PieceMovie::make(content);
    ASSERT_GT(writeAsOthers(bytes), 1);
    const auto finalized = finalize(bytes);
    ASSERT_TRUE(finalized) << finalized.error().message;
    EXPECT_THAT(boxTypesOf(read(pieces)), ElementsAre("ftyp", "wide", "mdat", "moov"));
    const PlayedMovie played(pieces);
    expectPictures(played, content, content.pictureTimes.size());
    EXPECT_EQ(played.loudestSample(), content.tick);
}

TEST_F(MovieIndexTest, ACopyThatHasNotAllOfThePiecesDoesNotReplaceThem)
{
    FileBytes bytes = PieceMovie::make(picturesAndSound(4 * second));
    ASSERT_GT(writeAsOthers(bytes), 1);
    // From the third piece on, the library finds nothing.
    const auto third = bytes.begin() + (boxesOf(bytes)[6].whole.data() - bytes.data());
    std::fill_n(third, 8, std::uint8_t{0});
    const auto finalized = finalize(bytes);
    ASSERT_FALSE(finalized);
    EXPECT_THAT(finalized.error().message, HasSubstr(pieces.string()));
    EXPECT_EQ(read(pieces), bytes);
    EXPECT_THAT(names(), ElementsAre("Movie.mov.unfinished"));
}

TEST_F(MovieIndexTest, ACopyThatFailsLeavesThePieces)
{
    const FileBytes bytes = PieceMovie::make(picturesAndSound(3 * second));
    write(pieces, bytes);
    auto place = MoviePlace::claim(pieces);
    ASSERT_TRUE(place && *place);
    FileCalls calls;
    calls.failures = {{"pwrite", EPERM}, {"rename", EIO}};
    const auto finalized = finalizeMovie(**place);
    ASSERT_FALSE(finalized);
    EXPECT_THAT(finalized.error().message, HasSubstr(pieces.string()));
    EXPECT_EQ(read(pieces), bytes);
    EXPECT_THAT(names(), ElementsAre("Movie.mov.unfinished"));
}

TEST_F(MovieIndexTest, ADiskThatFailsIsAnError)
{
    write(pieces, PieceMovie::make(picturesAndSound(3 * second)));
    auto place = MoviePlace::claim(pieces);
    ASSERT_TRUE(place && *place);
    FileCalls calls;
    calls.failures = {{"fsync", EIO}};
    const auto finalized = finalizeMovie(**place);
    ASSERT_FALSE(finalized);
    EXPECT_EQ(finalized.error().message,
              "The movie couldn't be saved. What was recorded is in " + pieces.string() + ".");
}

} // namespace
} // namespace nimbrale::ffmpeg
