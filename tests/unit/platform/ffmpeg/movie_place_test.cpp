#include "platform/ffmpeg/movie_place.h"

#include "tests/fakes/log_capture.h"
#include "tests/unit/platform/ffmpeg/file_calls.h"

#include <QTemporaryDir>
#include <gmock/gmock.h>

#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <sys/wait.h>
#include <utime.h>

namespace nimbrale::ffmpeg {
namespace {

using testing::EndsWith;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class MoviePlaceTest : public testing::Test {
protected:
    QTemporaryDir temporary;
    std::filesystem::path folder = temporary.path().toStdString();
    std::filesystem::path movie = folder / "Recording at 17.30.11.mov";
    LogCapture log;

    static void write(const std::filesystem::path& file, const std::string& text) { std::ofstream(file) << text; }
    static std::string read(const std::filesystem::path& file)
    {
        std::ifstream stream(file);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    static MoviePlace placeHolding(const std::filesystem::path& file, const std::string& text)
    {
        Result<MoviePlace> place = MoviePlace::create(file);
        EXPECT_TRUE(place);
        EXPECT_EQ(write(place->descriptor(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
        return std::move(*place);
    }
    static ssize_t write(int file, const char* bytes, std::size_t count) { return ::write(file, bytes, count); }
    [[nodiscard]] std::vector<std::string> names() const
    {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            found.push_back(entry.path().filename());
        return found;
    }
    /// Whether another process would take the file over.
    static bool isClaimedElsewhere(const std::filesystem::path& pieces)
    {
        const pid_t child = fork();
        if (child == 0) {
            const auto place = MoviePlace::claim(pieces);
            _exit(place && *place ? 1 : 0);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status));
        return WEXITSTATUS(status) == 1;
    }
};

TEST_F(MoviePlaceTest, IsWrittenUnderANameThatNoPlayerTakesForAMovie)
{
    const MoviePlace place = placeHolding(movie, "pieces");
    EXPECT_EQ(place.pieces(), folder / "Recording at 17.30.11.mov.unfinished");
    EXPECT_EQ(read(place.pieces()), "pieces");
    EXPECT_FALSE(std::filesystem::exists(movie));
}

TEST_F(MoviePlaceTest, PublishesUnderTheMoviesName)
{
    MoviePlace place = placeHolding(movie, "movie");
    const auto published = place.publish();
    ASSERT_TRUE(published);
    EXPECT_EQ(*published, movie);
    EXPECT_EQ(read(movie), "movie");
    EXPECT_THAT(names(), UnorderedElementsAre("Recording at 17.30.11.mov"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MoviePlaceTest, LeavesThePiecesWhenNobodyPublishesOrRemovesThem)
{
    const std::filesystem::path pieces = placeHolding(movie, "pieces").pieces();
    EXPECT_EQ(read(pieces), "pieces");
}

TEST_F(MoviePlaceTest, RemovesThePiecesAndACopyOfThem)
{
    MoviePlace place = placeHolding(movie, "pieces");
    ASSERT_TRUE(place.createCopy());
    EXPECT_EQ(names().size(), 2);
    place.remove();
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(MoviePlaceTest, TwoMoviesOfOneNameAreWrittenSideBySide)
{
    MoviePlace one = placeHolding(movie, "one");
    MoviePlace two = placeHolding(movie, "two");
    EXPECT_EQ(two.pieces(), folder / "Recording at 17.30.11 2.mov.unfinished");
    EXPECT_EQ(two.publish(), movie);
    EXPECT_EQ(one.publish(), folder / "Recording at 17.30.11 2.mov");
    EXPECT_EQ(read(movie), "two");
}

TEST_F(MoviePlaceTest, CannotBeMadeInAFolderThatIsNotThere)
{
    const auto place = MoviePlace::create(folder / "missing" / "Name.mov");
    ASSERT_FALSE(place);
    EXPECT_EQ(place.error().message, "The folder isn't there. Choose another folder in Settings.");
    EXPECT_EQ(log.lines().size(), 1);
}

TEST_F(MoviePlaceTest, ALinkOfThePiecesNameIsNotWrittenThrough)
{
    std::filesystem::create_symlink(folder / "elsewhere", folder / "Recording at 17.30.11.mov.unfinished");
    const MoviePlace place = placeHolding(movie, "pieces");
    EXPECT_EQ(place.pieces(), folder / "Recording at 17.30.11 2.mov.unfinished");
    EXPECT_FALSE(std::filesystem::exists(folder / "elsewhere"));
}

TEST_F(MoviePlaceTest, AMovieThatVanishedWhileItWasWrittenIsAnError)
{
    MoviePlace place = placeHolding(movie, "pieces");
    std::filesystem::remove(place.pieces());
    const auto published = place.publish();
    ASSERT_FALSE(published);
    EXPECT_EQ(published.error().message,
              "The movie couldn't be saved. What was recorded is in " + place.pieces().string() + ".");
}

// The names.

/// By what a movie gets its name: the parameter's calls are unknown to the file system.
class MovieNameTest : public MoviePlaceTest, public testing::WithParamInterface<std::map<std::string, int>> {
protected:
    FileCalls calls;

    MovieNameTest() { calls.failures = GetParam(); }
};

INSTANTIATE_TEST_SUITE_P(OnEachFileSystem, MovieNameTest,
                         testing::Values(std::map<std::string, int>{},
                                         std::map<std::string, int>{{"renameat2", EINVAL}},
                                         std::map<std::string, int>{{"renameat2", EINVAL}, {"link", EPERM}}));

TEST_P(MovieNameTest, TakesTheNextFreeOne)
{
    write(movie, "old");
    write(folder / "Recording at 17.30.11 2.mov", "older");
    MoviePlace place = placeHolding(movie, "new");
    EXPECT_EQ(place.publish(), folder / "Recording at 17.30.11 3.mov");
    EXPECT_EQ(read(movie), "old");
    EXPECT_EQ(read(folder / "Recording at 17.30.11 2.mov"), "older");
    EXPECT_EQ(read(folder / "Recording at 17.30.11 3.mov"), "new");
    EXPECT_EQ(names().size(), 3);
}

TEST_P(MovieNameTest, AFolderOrADanglingLinkOfThatNameStays)
{
    std::filesystem::create_directory(movie);
    std::filesystem::create_symlink(folder / "nowhere", folder / "Recording at 17.30.11 2.mov");
    MoviePlace place = placeHolding(movie, "new");
    EXPECT_EQ(place.publish(), folder / "Recording at 17.30.11 3.mov");
    EXPECT_TRUE(std::filesystem::is_directory(movie));
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "Recording at 17.30.11 2.mov"));
}

TEST_P(MovieNameTest, AFileThatComesRightBeforeIsNotOverwritten)
{
    // Before each of the calls that could give the name, until it is given.
    std::vector<std::string> attempts{"renameat2"};
    if (GetParam().contains("renameat2"))
        attempts.emplace_back("link");
    for (const std::string& last : attempts) {
        const std::filesystem::path wanted = folder / (last + ".mov");
        MoviePlace place = placeHolding(wanted, "new");
        bool made = false;
        calls.before = [&](const std::string& call) {
            if (call == last && !std::exchange(made, true))
                write(wanted, "of another process");
        };
        EXPECT_EQ(place.publish(), folder / (last + " 2.mov"));
        EXPECT_TRUE(made);
        EXPECT_EQ(read(wanted), "of another process");
        EXPECT_EQ(read(folder / (last + " 2.mov")), "new");
    }
}

TEST_P(MovieNameTest, ARacingProcessKeepsItsFile)
{
    constexpr int rounds = 200;
    int childFirst = 0;
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    for (int round = 0; round < rounds; ++round) {
        const std::filesystem::path wanted = folder / ("Race " + std::to_string(round) + ".mov");
        MoviePlace place = placeHolding(wanted, "movie");
        const pid_t child = fork();
        if (child == 0) {
            char byte = 0;
            if (::read(go[0], &byte, 1) != 1)
                _exit(2);
            const int file = ::open(wanted.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
            _exit(file < 0 ? 0 : write(file, "child", 5) == 5 ? 1 : 2);
        }
        ASSERT_EQ(write(go[1], "", 1), 1);
        // Some rounds leave the child a moment, so that both get to be first.
        usleep(static_cast<useconds_t>(round % 10) * 30);
        const auto published = place.publish();
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(published);
        EXPECT_EQ(read(*published), "movie");
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < 2);
        EXPECT_EQ(*published == wanted, WEXITSTATUS(status) == 0);
        if (WEXITSTATUS(status) == 1) {
            ++childFirst;
            EXPECT_EQ(read(wanted), "child");
        }
    }
    close(go[0]);
    close(go[1]);
    RecordProperty("childFirst", childFirst);
    EXPECT_GT(childFirst, 0) << "The race was never one.";
    EXPECT_LT(childFirst, rounds) << "The race was never one.";
}

TEST_F(MoviePlaceTest, ACrashBetweenTheNewNameAndTheEndOfTheOldOneLeavesNoSecondMovie)
{
    std::filesystem::path pieces;
    {
        const MoviePlace place = placeHolding(movie, "movie");
        pieces = place.pieces();
        std::filesystem::create_hard_link(pieces, movie);
    }
    auto place = MoviePlace::claim(pieces);
    ASSERT_TRUE(place && *place);
    EXPECT_EQ((*place)->publish(), movie);
    EXPECT_THAT(names(), UnorderedElementsAre("Recording at 17.30.11.mov"));
}

TEST_F(MoviePlaceTest, AFailedRenameLeavesNoPlaceholder)
{
    FileCalls calls;
    calls.failures = {{"renameat2", ENOSYS}, {"link", EPERM}, {"rename", EIO}};
    MoviePlace place = placeHolding(movie, "movie");
    EXPECT_FALSE(place.publish());
    EXPECT_THAT(names(), UnorderedElementsAre("Recording at 17.30.11.mov.unfinished"));
}

// Who writes it.

TEST_F(MoviePlaceTest, IsNotClaimedWhileItIsWritten)
{
    std::filesystem::path pieces;
    {
        const MoviePlace place = placeHolding(movie, "pieces");
        pieces = place.pieces();
        EXPECT_FALSE(isClaimedElsewhere(pieces));
    }
    EXPECT_TRUE(isClaimedElsewhere(pieces)) << "The control: nobody writes it any more.";
}

TEST_F(MoviePlaceTest, AClaimedOneIsNotClaimedAgain)
{
    const std::filesystem::path pieces = placeHolding(movie, "pieces").pieces();
    const auto place = MoviePlace::claim(pieces);
    ASSERT_TRUE(place && *place);
    EXPECT_FALSE(isClaimedElsewhere(pieces));
}

TEST_F(MoviePlaceTest, AClaimedOneIsPublishedUnderTheNameWithoutTheSuffix)
{
    write(folder / "Name 2.mov.unfinished", "movie");
    auto place = MoviePlace::claim(folder / "Name 2.mov.unfinished");
    ASSERT_TRUE(place && *place);
    EXPECT_EQ((*place)->publish(), folder / "Name 2.mov");
}

TEST_F(MoviePlaceTest, ARecoveryThatLocksANewFileFirstHasTheWriterTakeTheNextName)
{
    FileCalls calls;
    bool removed = false;
    calls.before = [&](const std::string& call) {
        if (call == "flock" && !std::exchange(removed, true))
            std::filesystem::remove(folder / "Recording at 17.30.11.mov.unfinished");
    };
    const MoviePlace place = placeHolding(movie, "pieces");
    EXPECT_TRUE(removed);
    EXPECT_EQ(read(place.pieces()), "pieces");
}

TEST_F(MoviePlaceTest, AWriterThatPublishesRightBeforeTheLockKeepsItsMovie)
{
    auto writer = std::optional(placeHolding(movie, "movie"));
    FileCalls calls;
    calls.before = [&](const std::string& call) {
        if (call != "flock" || !writer)
            return;
        EXPECT_TRUE(writer->publish());
        writer.reset();
    };
    const auto place = MoviePlace::claim(folder / "Recording at 17.30.11.mov.unfinished");
    ASSERT_TRUE(place);
    EXPECT_FALSE(*place);
    EXPECT_FALSE(writer);
    EXPECT_EQ(read(movie), "movie");
}

TEST_F(MoviePlaceTest, WithoutLocksWhatWasWrittenLatelyIsTakenForBeingWritten)
{
    FileCalls calls;
    calls.failures = {{"flock", ENOLCK}};
    const MoviePlace place = placeHolding(movie, "pieces");
    EXPECT_FALSE(isClaimedElsewhere(place.pieces()));
    const utimbuf old{std::time(nullptr) - 130, std::time(nullptr) - 130};
    ASSERT_EQ(utime(place.pieces().c_str(), &old), 0);
    EXPECT_TRUE(isClaimedElsewhere(place.pieces()));
}

TEST_F(MoviePlaceTest, OnlyOwnRegularFilesAreClaimed)
{
    write(folder / "file", "not a leftover");
    std::filesystem::create_symlink(folder / "file", folder / "link.mov.unfinished");
    std::filesystem::create_directory(folder / "folder.mov.unfinished");
    ASSERT_EQ(mkfifo((folder / "pipe.mov.unfinished").c_str(), 0600), 0);
    for (const char* const name :
         {"file", "link.mov.unfinished", "folder.mov.unfinished", "pipe.mov.unfinished", "missing.mov.unfinished"}) {
        const auto place = MoviePlace::claim(folder / name);
        ASSERT_TRUE(place) << name;
        EXPECT_FALSE(*place) << name;
    }
}

TEST_F(MoviePlaceTest, AFileOfAnotherUserIsNotClaimed)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "Only root can give a file away.";
    write(folder / "other.mov.unfinished", "of another user");
    ASSERT_EQ(chown((folder / "other.mov.unfinished").c_str(), 65534, 65534), 0);
    const auto place = MoviePlace::claim(folder / "other.mov.unfinished");
    ASSERT_TRUE(place);
    EXPECT_FALSE(*place);
}

// A copy of the pieces.

TEST_F(MoviePlaceTest, ACopyTakesThePlaceOfThePieces)
{
    MoviePlace place = placeHolding(movie, "pieces");
    auto copy = place.createCopy();
    ASSERT_TRUE(copy);
    EXPECT_EQ(write(copy->get(), "copy", 4), 4);
    EXPECT_EQ(read(place.pieces()), "pieces");
    ASSERT_TRUE(place.replaceByCopy(std::move(*copy)));
    EXPECT_EQ(read(place.pieces()), "copy");
    EXPECT_FALSE(isClaimedElsewhere(place.pieces()));
    EXPECT_EQ(place.publish(), movie);
    EXPECT_THAT(names(), UnorderedElementsAre("Recording at 17.30.11.mov"));
}

TEST_F(MoviePlaceTest, ACopyThatCannotTakeThePlaceIsRemovedAndThePiecesStay)
{
    MoviePlace place = placeHolding(movie, "pieces");
    auto copy = place.createCopy();
    ASSERT_TRUE(copy);
    FileCalls calls;
    calls.failures = {{"rename", EIO}};
    const auto replaced = place.replaceByCopy(std::move(*copy));
    ASSERT_FALSE(replaced);
    EXPECT_THAT(replaced.error().message, EndsWith(place.pieces().string() + "."));
    EXPECT_EQ(read(place.pieces()), "pieces");
    EXPECT_EQ(names().size(), 1);
}

} // namespace
} // namespace nimbrale::ffmpeg
