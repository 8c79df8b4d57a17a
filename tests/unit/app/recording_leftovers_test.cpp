// What a crash left of recordings, wherever the folder was meanwhile.

#include "recording/recording_folder.h"
#include "tests/unit/app/recording_control_fixture.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace fs = std::filesystem;

class RecordingLeftoversTest : public RecordingControlTest {
protected:
    /// Both return when the disk has told where the folder is.
    void launch()
    {
        RecordingControlTest::launch();
        waitUntilFound();
    }
    void settle()
    {
        RecordingControlTest::settle();
        waitUntilFound();
    }
    void waitUntilFound()
    {
        waitFor([this] { return !delegate_->recording().isLookingForFolder(); });
    }
    /// Those that were searched since the last question.
    [[nodiscard]] std::vector<fs::path> searched()
    {
        std::vector<fs::path> folders;
        for (const FakeMovies::Recovery& recovery : platform_.movies().recoveries)
            folders.push_back(recovery.folder);
        platform_.movies().recoveries.clear();
        return folders;
    }
    /// Makes a folder the user's choice, and takes it where it is not looked for, as a disk that is unplugged.
    void chooseAndTakeAway(const fs::path& folder)
    {
        fs::create_directories(folder);
        settings_.setRecordFolderBookmark(recording_folder::bookmarkOf(folder));
        fs::create_directories(away_);
        fs::rename(folder, away_ / folder.filename());
    }
    void bringBack(const fs::path& folder) { fs::rename(away_ / folder.filename(), folder); }

    fs::path away_ = home_ / ".away";
    fs::path talks_ = home_ / "Talks";
    fs::path videos_ = home_ / "Videos";
};

TEST_F(RecordingLeftoversTest, WhatACrashLeftIsSavedAtTheStartAndTheUserToldWhere)
{
    fs::create_directories(talks_);
    settings_.setRecordFolderBookmark(recording_folder::bookmarkOf(talks_));
    launch();
    std::vector<fs::path> folders;
    for (const FakeMovies::Recovery& recovery : platform_.movies().recoveries)
        folders.push_back(recovery.folder);
    EXPECT_THAT(folders, UnorderedElementsAre(fs::canonical(talks_), videos_));

    platform_.movies().answerRecovery({{"/videos/one.mov", {}}});
    platform_.movies().answerRecovery({{"/videos/two.mov.unfinished", Error{ErrorCode::permanent, "broken"}}});
    ASSERT_EQ(workspace().notifications.size(), 2U);
    EXPECT_THAT(workspace().notifications[0].text, HasSubstr("/videos/one.mov"));
    EXPECT_EQ(workspace().notifications[1].title, "A recording couldn't be saved");
    EXPECT_THAT(workspace().notifications[1].text, HasSubstr("/videos/two.mov.unfinished"));
}

TEST_F(RecordingLeftoversTest, APathThatNotificationsCannotShowIsToldInAnAlert)
{
    launch();
    platform_.movies().answerRecovery({{"/videos/Q&A.mov", {}}});
    EXPECT_THAT(workspace().notifications, IsEmpty());
    EXPECT_THAT(workspace().alerts.back().informativeText, HasSubstr("/videos/Q&A.mov"));
}

TEST_F(RecordingLeftoversTest, TheDefaultFolderIsLookedThroughOnce)
{
    launch();
    ASSERT_EQ(platform_.movies().recoveries.size(), 1U);
    platform_.movies().answerRecovery({});
    EXPECT_THAT(workspace().notifications, IsEmpty());
}

TEST_F(RecordingLeftoversTest, AFolderThatIsChosenIsSearched)
{
    launch();
    EXPECT_THAT(searched(), ElementsAre(videos_));
    fs::create_directories(talks_);
    settings_.setRecordFolderBookmark(recording_folder::bookmarkOf(talks_));
    settle();
    EXPECT_THAT(searched(), ElementsAre(fs::canonical(talks_)));
    settings_.setRecordFolderBookmark({});
    settle();
    EXPECT_THAT(searched(), ElementsAre(videos_));
}

TEST_F(RecordingLeftoversTest, AFolderThatWasAwayIsSearchedWhenItIsChosenOnceMore)
{
    chooseAndTakeAway(talks_);
    launch();
    EXPECT_THAT(searched(), ElementsAre(videos_));
    bringBack(talks_);
    settings_.setRecordFolderBookmark(recording_folder::bookmarkOf(talks_));
    settle();
    EXPECT_THAT(searched(), ElementsAre(fs::canonical(talks_)));
}

TEST_F(RecordingLeftoversTest, AFolderThatIsThereAgainIsSearchedWhenARecordingStarts)
{
    chooseAndTakeAway(talks_);
    launch();
    EXPECT_THAT(searched(), ElementsAre(videos_));
    bringBack(talks_);
    startRecording();
    EXPECT_EQ(movie().settings.file.parent_path(), fs::canonical(talks_));
    platform_.movies().answerRecovery({{talks_ / "one.mov", {}}});
    ASSERT_EQ(workspace().notifications.size(), 1U);
    EXPECT_THAT(workspace().notifications[0].text, HasSubstr("one.mov"));
    EXPECT_TRUE(delegate_->recording().isRecording());
}

TEST_F(RecordingLeftoversTest, OtherSettingsSearchNothing)
{
    fs::create_directories(talks_);
    settings_.setRecordFolderBookmark(recording_folder::bookmarkOf(talks_));
    launch();
    EXPECT_EQ(searched().size(), 2U);
    settings_.setRecordMicrophone(true);
    settings_.setFramerate(60);
    settle();
    EXPECT_THAT(searched(), IsEmpty());
}

} // namespace
} // namespace nimbrale
