// Folders in which no movie can be made: the user is told what is wrong with them and what to do.

#include "platform/ffmpeg/movie_place.h"
#include "tests/fakes/log_capture.h"
#include "tests/support/small_disk.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <string>

namespace nimbrale::ffmpeg {
namespace {

namespace fs = std::filesystem;

class MovieFolderTest : public testing::Test {
protected:
    QTemporaryDir temporary;
    fs::path folder = temporary.path().toStdString();
    LogCapture log;

    /// Empty where a movie can be made there.
    static std::string problem(const fs::path& there)
    {
        const auto place = MoviePlace::create(there / "Movie.mov");
        return place ? "" : place.error().message;
    }
    /// In a child process: whether that is the problem.
    static int check(const fs::path& there, const std::string& expected)
    {
        const std::string found = problem(there);
        if (found != expected)
            std::fprintf(stderr, "The problem is: %s\n", found.c_str());
        return found == expected ? 0 : 1;
    }
};

TEST_F(MovieFolderTest, OneThatIsFineHasNoProblem)
{
    EXPECT_EQ(problem(folder), "");
}

TEST_F(MovieFolderTest, OneThatIsNotThere)
{
    EXPECT_EQ(problem(folder / "missing"), "The folder isn't there. Choose another folder in Settings.");
}

TEST_F(MovieFolderTest, OneThatIsAFile)
{
    std::ofstream(folder / "file") << "a file";
    EXPECT_EQ(problem(folder / "file"), "The system says: Not a directory. Choose another folder in Settings.");
}

TEST_F(MovieFolderTest, OneThatTheUserMayNotWriteIn)
{
    constexpr uid_t nobody = 65534;
    constexpr auto readable =
        fs::perms::owner_read | fs::perms::owner_exec | fs::perms::others_read | fs::perms::others_exec;
    fs::permissions(folder, readable);
    const int result = runInChild([&] {
        // Nothing is denied to root.
        if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0))
            return couldNotPrepare;
        return check(folder, "You aren't allowed to write there. Choose another folder in Settings.");
    });
    fs::permissions(folder, fs::perms::owner_all);
    EXPECT_EQ(result, 0);
}

TEST_F(MovieFolderTest, OneOnADiskThatCanOnlyBeRead)
{
    const int result = runInChild([&] {
        if (!leaveSharedFileSystems() || mount("tmpfs", folder.c_str(), "tmpfs", MS_RDONLY, nullptr) != 0)
            return couldNotPrepare;
        return check(folder, "That disk can only be read. Choose another folder in Settings.");
    });
    if (result == couldNotPrepare)
        GTEST_SKIP() << noSmallDisk;
    EXPECT_EQ(result, 0);
}

TEST_F(MovieFolderTest, OneOnADiskWithoutRoom)
{
    // The folder itself takes the only place for a file.
    const int result = runOnSmallDisk(temporary.path(), "size=64k,nr_inodes=1", [&](const auto&) {
        return check(folder, "The disk is full. Make room there, or choose another folder in Settings.");
    });
    if (result == couldNotPrepare)
        GTEST_SKIP() << noSmallDisk;
    EXPECT_EQ(result, 0);
}

} // namespace
} // namespace nimbrale::ffmpeg
