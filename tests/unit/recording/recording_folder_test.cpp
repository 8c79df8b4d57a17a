// Where recordings go, whatever becomes of the folder.

#include "recording/recording_folder.h"

#include <QTemporaryDir>

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

namespace nimbrale {
namespace {

namespace fs = std::filesystem;

/// A home folder of the test's own.
class RecordingFolderTest : public testing::Test {
protected:
    RecordingFolderTest()
    {
        setenv("HOME", home_.c_str(), 1);
        unsetenv("XDG_CONFIG_HOME");
        fs::create_directories(home_ / "Talks" / "Autumn");
    }

    [[nodiscard]] static recording_folder::Bookmark bytes(std::string_view text)
    {
        const auto* data = reinterpret_cast<const std::byte*>(text.data());
        return {data, data + text.size()};
    }

    QTemporaryDir directory_;
    fs::path home_ = fs::canonical(directory_.path().toStdString());
};

TEST_F(RecordingFolderTest, WithoutABookmarkItIsTheUsersFolderForVideos)
{
    EXPECT_EQ(recording_folder::resolve({}), home_ / "Videos");
    EXPECT_EQ(recording_folder::defaultFolder(), home_ / "Videos");
    EXPECT_FALSE(fs::exists(home_ / "Videos")) << "asking makes no folder";
}

TEST_F(RecordingFolderTest, TheUsersFolderForVideosIsTheOneOfTheDesktop)
{
    fs::create_directories(home_ / ".config");
    FILE* const file = std::fopen((home_ / ".config/user-dirs.dirs").c_str(), "w");
    ASSERT_TRUE(file);
    std::fputs("XDG_VIDEOS_DIR=\"$HOME/Filme\"\n", file);
    std::fclose(file);
    fs::create_directories(home_ / "Filme");
    EXPECT_EQ(recording_folder::defaultFolder(), home_ / "Filme");
}

TEST_F(RecordingFolderTest, ABookmarkLeadsToItsFolder)
{
    EXPECT_EQ(recording_folder::resolve(recording_folder::bookmarkOf(home_ / "Talks")), home_ / "Talks");
}

TEST_F(RecordingFolderTest, ARenamedFolderIsFound)
{
    const auto bookmark = recording_folder::bookmarkOf(home_ / "Talks");
    fs::rename(home_ / "Talks", home_ / "Lectures");
    EXPECT_EQ(recording_folder::resolve(bookmark), home_ / "Lectures");
}

TEST_F(RecordingFolderTest, AFolderWhoseParentWasRenamedIsFound)
{
    const auto bookmark = recording_folder::bookmarkOf(home_ / "Talks" / "Autumn");
    fs::rename(home_ / "Talks", home_ / "Lectures");
    EXPECT_EQ(recording_folder::resolve(bookmark), home_ / "Lectures" / "Autumn");
}

TEST_F(RecordingFolderTest, AFolderThatWasMovedIsFoundEvenWhereAnotherTookItsName)
{
    const auto bookmark = recording_folder::bookmarkOf(home_ / "Talks");
    fs::create_directories(home_ / "Archive");
    fs::rename(home_ / "Talks", home_ / "Archive" / "Old talks");
    fs::create_directories(home_ / "Talks");
    EXPECT_EQ(recording_folder::resolve(bookmark), home_ / "Archive" / "Old talks");
}

TEST_F(RecordingFolderTest, ADeletedFolderFallsBackToTheDefaultOne)
{
    const auto bookmark = recording_folder::bookmarkOf(home_ / "Talks");
    fs::remove_all(home_ / "Talks");
    EXPECT_EQ(recording_folder::resolve(bookmark), home_ / "Videos");
}

TEST_F(RecordingFolderTest, AFolderThatWasMadeAnewInItsPlaceIsUsed)
{
    const auto bookmark = recording_folder::bookmarkOf(home_ / "Talks");
    fs::remove_all(home_ / "Talks");
    fs::create_directories(home_ / "Talks");
    EXPECT_EQ(recording_folder::resolve(bookmark), home_ / "Talks");
}

TEST_F(RecordingFolderTest, AFolderInTheTrashIsNotUsed)
{
    const auto bookmark = recording_folder::bookmarkOf(home_ / "Talks");
    fs::create_directories(home_ / ".local/share/Trash/files");
    fs::rename(home_ / "Talks", home_ / ".local/share/Trash/files/Talks");
    EXPECT_EQ(recording_folder::resolve(bookmark), home_ / "Videos");
}

TEST_F(RecordingFolderTest, AFileInItsPlaceIsNoFolder)
{
    const auto bookmark = recording_folder::bookmarkOf(home_ / "Talks");
    fs::remove_all(home_ / "Talks");
    std::fclose(std::fopen((home_ / "Talks").c_str(), "w"));
    EXPECT_EQ(recording_folder::resolve(bookmark), home_ / "Videos");
}

TEST_F(RecordingFolderTest, ANewFolderIsNotTakenForADeletedOneWhoseNumberItGot)
{
    const auto bookmark = recording_folder::bookmarkOf(home_ / "Talks" / "Autumn");
    fs::remove_all(home_ / "Talks");
    // Some of these get the numbers of those that were removed.
    for (int number = 0; number < 50; ++number)
        fs::create_directories(home_ / ("New " + std::to_string(number)));
    EXPECT_EQ(recording_folder::resolve(bookmark), home_ / "Videos");
}

TEST_F(RecordingFolderTest, AFolderThatMayNotBeEnteredFallsBack)
{
    const auto bookmark = recording_folder::bookmarkOf(home_ / "Talks");
    fs::permissions(home_, fs::perms::owner_all | fs::perms::others_read | fs::perms::others_exec);
    fs::permissions(home_ / "Talks", fs::perms::none);
    // Root may enter every folder, so somebody else asks.
    const pid_t child = fork();
    if (child == 0) {
        constexpr uid_t nobody = 65534;
        if (getuid() == 0 && setuid(nobody) != 0)
            _exit(2);
        _exit(recording_folder::resolve(bookmark) == home_ / "Videos" ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    fs::permissions(home_ / "Talks", fs::perms::owner_all);
    EXPECT_EQ(status, 0);
}

TEST_F(RecordingFolderTest, NamesOfAnyBytesAreKept)
{
    const fs::path folder = home_ / "a b\n\xff\xe9";
    fs::create_directories(folder);
    EXPECT_EQ(recording_folder::resolve(recording_folder::bookmarkOf(folder)), folder);
}

TEST_F(RecordingFolderTest, ALinkStandsForTheFolderItLedTo)
{
    fs::create_directory_symlink(home_ / "Talks", home_ / "Link");
    EXPECT_EQ(recording_folder::resolve(recording_folder::bookmarkOf(home_ / "Link")), home_ / "Talks");
}

TEST_F(RecordingFolderTest, NoBookmarkIsMadeOfAFolderThatIsNotThere)
{
    EXPECT_TRUE(recording_folder::bookmarkOf(home_ / "Nowhere").empty());
    EXPECT_TRUE(recording_folder::bookmarkOf("").empty());
}

TEST_F(RecordingFolderTest, AnyBytesInTheSettingsLeadSomewhere)
{
    for (const std::string_view broken :
         {"x", "nimbrale-folder-1", "nimbrale-folder-1 1 2 3", "nimbrale-folder-1 1 2 3\n",
          "nimbrale-folder-1 1 2 3\nx", "nimbrale-folder-1 a b c\n/tmp", "nimbrale-folder-2 1 2 3\n/tmp",
          "nimbrale-folder-1 99999999999999999999999 2 3\n/tmp"})
        EXPECT_EQ(recording_folder::resolve(bytes(broken)), home_ / "Videos") << broken;
}

TEST_F(RecordingFolderTest, ALoopOfLinksEndsTheSearch)
{
    const auto bookmark = recording_folder::bookmarkOf(home_ / "Talks");
    fs::remove_all(home_ / "Talks");
    fs::create_directory_symlink(home_, home_ / "Loop");
    EXPECT_EQ(recording_folder::resolve(bookmark), home_ / "Videos");
}

} // namespace
} // namespace nimbrale
