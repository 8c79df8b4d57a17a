#include "platform/ffmpeg/movie_recovery.h"

#include "tests/unit/platform/ffmpeg/pieces_fixture.h"

#include <csignal>
#include <random>
#include <sys/stat.h>
#include <sys/wait.h>

namespace nimbrale::ffmpeg {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class MovieRecoveryTest : public PiecesFixture {
protected:
    MovieRecovery recovery;

    std::vector<RecoveredMovie> recover() { return recovery.recover(folder); }
    void expectRecovered(const std::filesystem::path& file)
    {
        EXPECT_THAT(recover(), ElementsAre(RecoveredMovie{file, std::nullopt}));
    }
};

TEST_F(MovieRecoveryTest, GivesAMovieItsName)
{
    const PieceMovieContent content = picturesAndSound(3 * second);
    write(pieces, PieceMovie::make(content));
    expectRecovered(movie);
    EXPECT_THAT(names(), ElementsAre("Movie.mov"));
    expectPictures(PlayedMovie(movie), content, content.pictureTimes.size());
    EXPECT_THAT(recover(), IsEmpty());
}

TEST_F(MovieRecoveryTest, GivesAMovieThatWasFinalizedItsName)
{
    ASSERT_TRUE(finalize(PieceMovie::make(pictures(2 * second))));
    const FileBytes finalized = read(pieces);
    expectRecovered(movie);
    EXPECT_EQ(read(movie), finalized);
}

TEST_F(MovieRecoveryTest, OverwritesNothing)
{
    write(movie, FileBytes{1, 2, 3});
    write(pieces, PieceMovie::make(pictures(2 * second)));
    expectRecovered(folder / "Movie 2.mov");
    EXPECT_EQ(read(movie), (FileBytes{1, 2, 3}));
}

TEST_F(MovieRecoveryTest, FindsAllOfThem)
{
    const FileBytes bytes = PieceMovie::make(pictures(2 * second));
    write(folder / "B.mov.unfinished", bytes);
    write(folder / "A.mov.unfinished", bytes);
    write(folder / "Other.mov", bytes);
    std::filesystem::create_directory(folder / "deeper");
    write(folder / "deeper" / "C.mov.unfinished", bytes);
    EXPECT_THAT(recover(), ElementsAre(RecoveredMovie{folder / "A.mov", std::nullopt},
                                       RecoveredMovie{folder / "B.mov", std::nullopt}));
    EXPECT_EQ(read(folder / "Other.mov"), bytes);
    EXPECT_EQ(read(folder / "deeper" / "C.mov.unfinished"), bytes);
}

TEST_F(MovieRecoveryTest, LeavesAloneWhatIsStillWritten)
{
    const FileBytes bytes = PieceMovie::make(pictures(2 * second));
    {
        const auto writer = MoviePlace::create(movie);
        ASSERT_TRUE(writer);
        ASSERT_EQ(::write(writer->descriptor(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        EXPECT_THAT(recover(), IsEmpty());
        EXPECT_EQ(read(pieces), bytes);
    }
    expectRecovered(movie);
}

TEST_F(MovieRecoveryTest, FinishesWhatAKilledWriterLeft)
{
    const FileBytes bytes = PieceMovie::make(pictures(3 * second));
    const pid_t child = fork();
    if (child == 0) {
        const auto writer = MoviePlace::create(movie);
        if (writer && ::write(writer->descriptor(), bytes.data(), bytes.size() - 10) > 0)
            raise(SIGKILL);
        _exit(1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    expectRecovered(movie);
    EXPECT_NO_THROW(PlayedMovie{movie});
}

TEST_F(MovieRecoveryTest, RemovesWhatHoldsNoPicture)
{
    const FileBytes bytes = PieceMovie::make(picturesAndSound(2 * second));
    const std::size_t head = bytes.size() - [&] {
        std::size_t size = 0;
        for (const Box& box : boxesOf(bytes))
            size += box.type == boxType("moof") || box.type == boxType("mdat") ? box.whole.size() : 0;
        return size;
    }();
    for (const std::size_t size : {std::size_t{0}, std::size_t{5}, std::size_t{30}, head, head + 100}) {
        write(pieces, Bytes(bytes).first(size));
        write(folder / "Movie.mov.unfinished.copy", FileBytes{1});
        EXPECT_THAT(recover(), IsEmpty()) << size;
        EXPECT_THAT(names(), IsEmpty()) << size;
    }
}

TEST_F(MovieRecoveryTest, ReportsWhatIsNoMovieOnceAndLeavesIt)
{
    const FileBytes text(1000, 'x');
    write(pieces, text);
    const auto movies = recover();
    ASSERT_THAT(movies, SizeIs(1));
    EXPECT_EQ(movies[0].file, pieces);
    ASSERT_TRUE(movies[0].error);
    EXPECT_EQ(movies[0].error->message,
              "The movie couldn't be saved. What was recorded is in " + pieces.string() + ".");
    EXPECT_EQ(read(pieces), text);
    EXPECT_THAT(recover(), IsEmpty());
    EXPECT_THAT(MovieRecovery().recover(folder), SizeIs(1)) << "The next start reports it again.";
}

TEST_F(MovieRecoveryTest, ACopyThatACrashHasLeftGoes)
{
    write(pieces, PieceMovie::make(pictures(2 * second)));
    write(folder / "Movie.mov.unfinished.copy", FileBytes(1000, 0));
    expectRecovered(movie);
    EXPECT_THAT(names(), ElementsAre("Movie.mov"));
}

TEST_F(MovieRecoveryTest, AFolderThatIsNotThereHoldsNothing)
{
    EXPECT_THAT(recovery.recover(folder / "missing"), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MovieRecoveryTest, AFolderThatCannotBeReadHoldsNothingAndIsLogged)
{
    write(folder / "file", FileBytes{1});
    EXPECT_THAT(recovery.recover(folder / "file"), IsEmpty());
    ASSERT_THAT(log.lines(), SizeIs(1));
    EXPECT_EQ(log.lines()[0].category, "Nimbrale.recording");
    EXPECT_THAT(log.lines()[0].message, HasSubstr((folder / "file").string()));
}

TEST_F(MovieRecoveryTest, LinksPipesAndFoldersOfThatNameAreLeftAlone)
{
    const FileBytes bytes = PieceMovie::make(pictures(2 * second));
    write(folder / "Target", bytes);
    std::filesystem::create_symlink(folder / "Target", folder / "Link.mov.unfinished");
    std::filesystem::create_directory(folder / "Folder.mov.unfinished");
    ASSERT_EQ(mkfifo((folder / "Pipe.mov.unfinished").c_str(), 0600), 0);
    EXPECT_THAT(recover(), IsEmpty());
    EXPECT_THAT(names(),
                UnorderedElementsAre("Target", "Link.mov.unfinished", "Folder.mov.unfinished", "Pipe.mov.unfinished"));
    EXPECT_EQ(read(folder / "Target"), bytes);
}

// Pieces that end anywhere.

class CutMovieTest : public MovieRecoveryTest, public testing::WithParamInterface<bool> {
protected:
    PieceMovieContent content = GetParam() ? picturesAndSound(5 * second) : pictures(5 * second);
    FileBytes bytes = PieceMovie::make(content);

    /// How many pictures the pieces have that end within so many bytes.
    [[nodiscard]] std::size_t picturesWithin(std::size_t size) const
    {
        std::size_t count = 0;
        std::size_t inPiece = 0;
        for (const Box& box : boxesOf(Bytes(bytes).first(size))) {
            if (box.type == boxType("moof"))
                inPiece = picturesIn(box);
            if (box.type == boxType("mdat"))
                count += inPiece;
        }
        return count;
    }
    static std::size_t picturesIn(const Box& fragment)
    {
        const auto parts = readBoxes(fragment.content);
        for (const Box& part : *parts) {
            const auto track = part.type == boxType("traf") ? readBoxes(part.content) : std::nullopt;
            if (!track || NumberReader(onlyBox(*track, boxType("tfhd"))->content.subspan(4)).read32() != 1)
                continue;
            return NumberReader(onlyBox(*track, boxType("trun"))->content.subspan(4)).read32();
        }
        return 0;
    }
    void expectAllWholePieces(std::size_t size)
    {
        write(pieces, Bytes(bytes).first(size));
        const std::size_t expected = picturesWithin(size);
        if (expected == 0) {
            EXPECT_THAT(recover(), IsEmpty());
            EXPECT_THAT(names(), IsEmpty());
            return;
        }
        expectRecovered(movie);
        const PlayedMovie played(movie);
        expectPictures(played, content, expected);
        EXPECT_EQ(played.videoTrack().begin, 0);
        if (GetParam() && played.videoTrack().duration > 3 * second) {
            EXPECT_EQ(played.loudestSample(), content.tick) << "Sound was written up to the end of each piece.";
        }
        std::filesystem::remove(movie);
    }
};

INSTANTIATE_TEST_SUITE_P(WithAndWithoutSound, CutMovieTest, testing::Bool());

TEST_P(CutMovieTest, KeepsAllWholePiecesWhereverItEnds)
{
    ASSERT_EQ(picturesWithin(bytes.size()), content.pictureTimes.size());
    std::mt19937 random(7);
    for (int i = 0; i < 200 && !HasFailure(); ++i) {
        const std::size_t size = random() % (bytes.size() + 1);
        SCOPED_TRACE("cut to " + std::to_string(size) + " of " + std::to_string(bytes.size()) + " bytes");
        expectAllWholePieces(size);
    }
}

TEST_P(CutMovieTest, KeepsAllWholePiecesWhereItEndsBesideABox)
{
    std::size_t end = 0;
    for (const Box& box : boxesOf(bytes)) {
        end += box.whole.size();
        for (const std::size_t size : {end - 1, end, end + 1, end + 7, end + 8, end + 9}) {
            SCOPED_TRACE("cut to " + std::to_string(size) + " of " + std::to_string(bytes.size()) + " bytes");
            if (size <= bytes.size())
                expectAllWholePieces(size);
        }
    }
}

TEST_P(CutMovieTest, KeepsAllWholePiecesBeforeZeros)
{
    // As a loss of power leaves a file whose size was known before its content.
    const std::size_t end = boxesOf(bytes)[5].whole.data() + boxesOf(bytes)[5].whole.size() - bytes.data();
    FileBytes zeros = bytes;
    std::fill(zeros.begin() + static_cast<std::ptrdiff_t>(end), zeros.end(), std::uint8_t{0});
    write(pieces, zeros);
    expectRecovered(movie);
    expectPictures(PlayedMovie(movie), content, picturesWithin(end));
}

} // namespace
} // namespace nimbrale::ffmpeg
