// The folder for recordings in Settings: its name and the choice of another one, whose disks may not answer.

#include "app/recording_folder_choice.h"

#include "tests/fakes/fake_platform.h"

#include <QDir>
#include <QTemporaryDir>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

/// Whether the disk leaves whoever asks it for a file's status without an answer.
std::atomic<bool> isDiskSilent = false;

} // namespace

// The parameters' names in the system's headers are reserved ones.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int statx(int folder, const char* path, int flags, unsigned int mask, struct statx* status) noexcept
{
    while (isDiskSilent)
        std::this_thread::yield();
    return static_cast<int>(syscall(SYS_statx, folder, path, flags, mask, status));
}

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::IsEmpty;

namespace fs = std::filesystem;

class RecordingFolderChoiceTest : public testing::Test {
protected:
    RecordingFolderChoiceTest()
    {
        choice_.onNameChange = [this] { ++nameChanges_; };
        fs::create_directory(talks_);
    }
    template <typename Condition>
    void waitFor(Condition condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + 30s;
        for (queue().runPosted(); !condition() && std::chrono::steady_clock::now() < deadline; queue().runPosted())
            std::this_thread::yield();
        ASSERT_TRUE(condition());
    }
    void answerDialog(const std::optional<fs::path>& folder)
    {
        choice_.choose();
        workspace().answerFolderQuestion(folder);
        waitFor([this] { return !choice_.isAsking(); });
    }
    [[nodiscard]] FakeMainQueue& queue() { return platform_.mainQueue(); }
    [[nodiscard]] FakeWorkspace& workspace() { return platform_.workspace(); }

    QTemporaryDir directory_;
    fs::path folder_ = fs::canonical(directory_.path().toStdString());
    fs::path talks_ = folder_ / "talks";
    AppSettings settings_{directory_.filePath("Nimbrale.conf").toStdString()};
    FakePlatform platform_;
    RecordingFolderChoice choice_{platform_, settings_};
    int nameChanges_ = 0;
};

TEST_F(RecordingFolderChoiceTest, AFolderThatIsChosenIsStoredAndACancelledChoiceLeavesTheOneBefore)
{
    answerDialog(talks_);
    EXPECT_EQ(workspace().folderQuestions.at(0).message, "Choose where Nimbrale saves recordings");
    EXPECT_EQ(workspace().folderQuestions.at(0).prompt, "Choose");
    const recording_folder::Bookmark chosen = settings_.recordFolderBookmark();
    ASSERT_FALSE(chosen.empty());
    EXPECT_EQ(recording_folder::resolve(chosen), talks_);

    answerDialog(std::nullopt);
    EXPECT_EQ(settings_.recordFolderBookmark(), chosen);
    answerDialog(talks_ / "gone");
    EXPECT_EQ(settings_.recordFolderBookmark(), chosen) << "no bookmark can be made of it";
}

TEST_F(RecordingFolderChoiceTest, TheDialogBeginsInTheFolderOnlyWhereItsDiskHasAnswered)
{
    settings_.setRecordFolderBookmark(recording_folder::bookmarkOf(talks_));
    choice_.choose();
    EXPECT_EQ(workspace().folderQuestions.at(0).start, QDir::homePath().toStdString());
    EXPECT_EQ(choice_.name(), "talks");
    waitFor([this] { return !choice_.isAsking(); });
    choice_.choose();
    EXPECT_EQ(workspace().folderQuestions.at(1).start, talks_);
}

TEST_F(RecordingFolderChoiceTest, AFolderThatWasRenamedHasItsNewNameAsSoonAsTheDiskTells)
{
    settings_.setRecordFolderBookmark(recording_folder::bookmarkOf(talks_));
    fs::rename(talks_, folder_ / "lectures");
    EXPECT_EQ(choice_.name(), "talks");
    waitFor([this] { return !choice_.isAsking(); });
    EXPECT_EQ(nameChanges_, 1);
    EXPECT_EQ(choice_.name(), "lectures");
    waitFor([this] { return !choice_.isAsking(); });
    EXPECT_EQ(nameChanges_, 1) << "nothing else has changed";
}

TEST_F(RecordingFolderChoiceTest, AFolderWhoseDiskDoesNotAnswerIsNotChosenAndTheUserIsTold)
{
    isDiskSilent = true;
    choice_.choose();
    workspace().answerFolderQuestion(talks_);
    queue().advance(9900ms);
    EXPECT_THAT(workspace().alerts, IsEmpty());
    queue().advance(100ms);
    ASSERT_EQ(workspace().alerts.size(), 1U);
    EXPECT_EQ(workspace().alerts[0].message, "The folder couldn't be chosen");
    EXPECT_EQ(workspace().alerts[0].informativeText,
              "The disk of " + talks_.string() + " doesn't answer. Choose another folder.");
    EXPECT_FALSE(choice_.isAsking());
    isDiskSilent = false;
    queue().advance(1s);
    EXPECT_TRUE(settings_.recordFolderBookmark().empty());
}

} // namespace
} // namespace nimbrale
