#include "platform/ffmpeg/movie_recovery.h"

#include "tests/unit/platform/ffmpeg/pieces_fixture.h"

#include <ctime>
#include <random>
#include <unistd.h>

namespace nimbrale::ffmpeg {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

/// Files that no writer of ours has left, or that were damaged: nothing is lost, and nothing hangs.
class MovieDamageTest : public PiecesFixture {
protected:
    /// Of the processor's time, since the disk's depends on what else goes on.
    static constexpr double mostSeconds = 2;
    /// A last piece whose damaged size goes beyond the file's end looks like one that was cut off.
    static constexpr std::uintmax_t mostCut = 1 << 16;

    FileBytes bytes = [] {
        PieceMovieContent content = picturesAndSound(4 * second);
        content.isNoise = true;
        content.width = 160;
        content.height = 120;
        return PieceMovie::make(content);
    }();

    std::vector<RecoveredMovie> recover() const
    {
        const std::clock_t begin = std::clock();
        auto movies = MovieRecovery().recover(folder);
        EXPECT_LT(static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC, mostSeconds);
        return movies;
    }
    /// Whatever was made of it, it is there: as it was, or as a movie.
    void expectNothingLost(const FileBytes& damaged)
    {
        write(pieces, damaged);
        const auto movies = recover();
        ASSERT_THAT(movies, SizeIs(1));
        ASSERT_THAT(names(), ElementsAre(movies[0].file.filename().string()));
        if (movies[0].error)
            EXPECT_TRUE(read(pieces) == damaged) << "It was changed.";
        else
            EXPECT_GE(std::filesystem::file_size(movie) + mostCut, damaged.size());
        std::filesystem::remove(movies[0].file);
    }
    void expectRefused(Bytes damaged)
    {
        write(pieces, damaged);
        const auto movies = recover();
        ASSERT_THAT(movies, SizeIs(1));
        EXPECT_EQ(movies[0].file, pieces);
        EXPECT_TRUE(movies[0].error);
        EXPECT_TRUE(std::ranges::equal(read(pieces), damaged));
    }

    /// Where each box begins, those within boxes included.
    void findBoxes(Bytes content, std::vector<std::size_t>& found) const
    {
        const auto boxes = readBoxes(content);
        for (const Box& box : boxes ? *boxes : std::vector<Box>()) {
            found.push_back(static_cast<std::size_t>(box.whole.data() - bytes.data()));
            if (box.type != boxType("mdat") && box.type != boxType("stsd"))
                findBoxes(box.content, found);
        }
    }
    static void put32(FileBytes& into, std::size_t offset, std::uint32_t value)
    {
        BoxWriter number;
        number.write32(value);
        std::copy(number.bytes().begin(), number.bytes().end(), into.begin() + static_cast<std::ptrdiff_t>(offset));
    }
    /// The content of the first box of this type, which no other box's content may look like.
    [[nodiscard]] std::size_t contentOf(const char (&type)[5]) const
    {
        const auto at = std::search(bytes.begin(), bytes.end(), type, type + 4);
        EXPECT_NE(at, bytes.end());
        return static_cast<std::size_t>(at - bytes.begin()) + 4;
    }
};

TEST_F(MovieDamageTest, TheUndamagedMovieIsRecovered)
{
    write(pieces, bytes);
    EXPECT_THAT(recover(), ElementsAre(RecoveredMovie{movie, std::nullopt}));
}

TEST_F(MovieDamageTest, SizesThatCannotBeAreSurvived)
{
    ASSERT_GT(bytes.size(), 200'000);
    std::vector<std::size_t> boxes;
    findBoxes(bytes, boxes);
    ASSERT_GT(boxes.size(), 80);
    for (const std::size_t box : boxes) {
        for (const std::uint32_t size : {0U, 1U, 7U, 9U, 0x7fffffffU, 0xffffffffU}) {
            SCOPED_TRACE("box at " + std::to_string(box) + ", size " + std::to_string(size));
            FileBytes damaged = bytes;
            put32(damaged, box, size);
            expectNothingLost(damaged);
        }
    }
}

TEST_F(MovieDamageTest, LongSizesThatCannotBeAreSurvived)
{
    std::vector<std::size_t> boxes;
    findBoxes(bytes, boxes);
    for (const std::size_t box : boxes) {
        for (const std::uint32_t high : {0U, 0x3fffffffU, 0x80000000U}) {
            SCOPED_TRACE("box at " + std::to_string(box) + ", size " + std::to_string(high) + " << 32");
            FileBytes damaged = bytes;
            put32(damaged, box, 1);
            put32(damaged, box + 8, high);
            put32(damaged, box + 12, 0);
            expectNothingLost(damaged);
        }
    }
}

TEST_F(MovieDamageTest, ChangedBytesAreSurvived)
{
    std::vector<std::size_t> boxes;
    findBoxes(bytes, boxes);
    std::mt19937 random(11);
    for (int round = 0; round < 500 && !HasFailure(); ++round) {
        FileBytes damaged = bytes;
        for (std::uint32_t i = 0; i < 1 + random() % 3; ++i)
            damaged[(boxes[random() % boxes.size()] + random() % 48) % damaged.size()] ^=
                static_cast<std::uint8_t>(1U << random() % 8);
        SCOPED_TRACE("round " + std::to_string(round));
        expectNothingLost(damaged);
    }
}

TEST_F(MovieDamageTest, ATrackWhoseNumberIsTooLargeTakesNoTime)
{
    FileBytes damaged = bytes;
    damaged[contentOf("tkhd") + 12] ^= 0x80;
    expectRefused(damaged);
}

TEST_F(MovieDamageTest, AMovieWhosePicturesAreCalledSomethingElseIsNotRemoved)
{
    FileBytes damaged = bytes;
    damaged[contentOf("vide") - 1] ^= 1;
    expectRefused(damaged);
}

TEST_F(MovieDamageTest, ManyPromisedSamplesTakeNoMemory)
{
    // A run whose samples have no bytes of their own in it, and four billion of them.
    FileBytes damaged = bytes;
    const std::size_t run = contentOf("trun");
    put32(damaged, run, 1);
    put32(damaged, run + 4, 0xffffffff);
    expectRefused(damaged);
}

TEST_F(MovieDamageTest, ThousandsOfTinyBoxesTakeNoTime)
{
    BoxWriter writer;
    writer.write(boxesOf(bytes)[0].whole);
    for (int i = 0; i < 1'000'000; ++i)
        writer.box(boxType("free"), [] {});
    expectRefused(writer.bytes());

    // Behind the head and the first piece, they are only more of what is kept.
    BoxWriter behind;
    for (int i = 0; i < 4; ++i)
        behind.write(boxesOf(bytes)[static_cast<std::size_t>(i)].whole);
    for (int i = 0; i < 1'000'000; ++i)
        behind.box(boxType("free"), [] {});
    expectNothingLost(behind.bytes());
}

TEST_F(MovieDamageTest, AHugeEmptyFileTakesNoTime)
{
    for (const std::size_t kept : {std::size_t{0}, boxesOf(bytes)[0].whole.size(), bytes.size() / 2, bytes.size()}) {
        write(pieces, Bytes(bytes).first(kept));
        ASSERT_EQ(truncate(pieces.c_str(), off_t{1} << 42), 0);
        const auto movies = recover();
        ASSERT_THAT(movies, SizeIs(1));
        EXPECT_EQ(movies[0].error.has_value(), kept < 1000);
        EXPECT_GE(std::filesystem::file_size(movies[0].file), std::uintmax_t{1} << 42);
        std::filesystem::remove(movies[0].file);
    }
}

TEST_F(MovieDamageTest, PiecesThatGoBackInTimeEndTheMovieAndStay)
{
    // The same pieces once more.
    FileBytes twice = bytes;
    for (const Box& box : boxesOf(bytes)) {
        if (box.type == boxType("moof") || box.type == boxType("mdat"))
            twice.insert(twice.end(), box.whole.begin(), box.whole.end());
    }
    write(pieces, twice);
    EXPECT_THAT(recover(), ElementsAre(RecoveredMovie{movie, std::nullopt}));
    EXPECT_EQ(PlayedMovie(movie).videoTrack().duration, 4 * second);
    EXPECT_GT(std::filesystem::file_size(movie), twice.size());
}

TEST_F(MovieDamageTest, SamplesOutsideOfTheirPieceEndTheMovie)
{
    FileBytes damaged = bytes;
    // To begin with the file's first bytes.
    put32(damaged, contentOf("trun") + 8, static_cast<std::uint32_t>(-1400));
    expectRefused(damaged);
}

TEST_F(MovieDamageTest, AMovieWhoseIndexIsCutIsRefused)
{
    ASSERT_TRUE(finalize(bytes));
    FileBytes finalized = read(pieces);
    finalized.resize(finalized.size() - 1);
    expectRefused(finalized);
}

} // namespace
} // namespace nimbrale::ffmpeg
