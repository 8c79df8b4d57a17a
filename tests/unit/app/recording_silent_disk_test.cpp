// A disk that does not answer when a recording starts or is saved: what the user is told, and quitting.

#include "tests/unit/app/recording_control_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class RecordingSilentDiskTest : public RecordingControlTest {
protected:
    /// The disk that the movie is saved to is found not to answer.
    void stallDisk()
    {
        movie().isStalled = true;
        waitFor([this] {
            queue().advance(RecordingPipeline::tickInterval);
            return !workspace().notifications.empty();
        });
    }
};

TEST_F(RecordingSilentDiskTest, QuittingWhileTheDiskIsAskedForTheFolderQuitsAtOnceAndStartsNothing)
{
    launch();
    delegate_->editor()->onToggleRecording();
    ASSERT_TRUE(delegate_->recording().isBusy());
    delegate_->editor()->onClose();
    EXPECT_EQ(workspace().terminations, 1);
    EXPECT_FALSE(delegate_->recording().isBusy());
    queue().advance(11s);
    EXPECT_EQ(capture().contentRequests, 1) << "the frame's own";
    EXPECT_THAT(workspace().alerts, IsEmpty());
}

TEST_F(RecordingSilentDiskTest, QuittingWhileTheMovieIsBegunQuitsAtOnceAndGivesItUp)
{
    platform_.movies().holdsBeginnings = true;
    launch();
    pressRecord();
    answerOwnDisplay();
    ASSERT_FALSE(platform_.movies().beginnings.at(0).expired());
    delegate_->editor()->onClose();
    EXPECT_EQ(workspace().terminations, 1);
    EXPECT_TRUE(platform_.movies().beginnings.at(0).expired());
}

TEST_F(RecordingSilentDiskTest, ADiskThatDoesNotBeginTheMovieIsTold)
{
    platform_.movies().holdsBeginnings = true;
    launch();
    pressRecord();
    answerOwnDisplay();
    queue().advance(9900ms);
    EXPECT_THAT(workspace().alerts, IsEmpty());
    queue().advance(100ms);
    EXPECT_EQ(toldAlert(), "Recording couldn't start");
    EXPECT_EQ(workspace().alerts.back().informativeText,
              "The movie couldn't be created in " + (home_ / "Videos").string() +
                  ". The disk doesn't answer. Choose another folder in Settings.");
    EXPECT_FALSE(delegate_->recording().isBusy());
}

TEST_F(RecordingSilentDiskTest, ADiskThatDoesNotAnswerAfterTheStopIsToldAndTheMovieRevealedWhenItDoes)
{
    launch();
    startRecording();
    pressRecord();
    capture().stream().completeStop();
    stallDisk();
    ASSERT_EQ(workspace().notifications.size(), 1U);
    EXPECT_EQ(workspace().notifications[0].title, "The recording isn't saved yet");
    EXPECT_EQ(workspace().notifications[0].text, "The disk doesn't answer. The movie is saved when it does.");
    movie().isStalled = false;
    finishMovie();
    EXPECT_THAT(workspace().revealed, ElementsAre("/videos/movie.mov"));
    EXPECT_EQ(workspace().notifications.size(), 1U);
}

TEST_F(RecordingSilentDiskTest, QuittingWaitsForADiskUntilItIsKnownNotToAnswerAndTellsWhatBecomesOfTheMovie)
{
    launch();
    startRecording();
    delegate_->editor()->onClose();
    capture().stream().completeStop();
    EXPECT_EQ(workspace().terminations, 0);
    stallDisk();
    EXPECT_EQ(workspace().terminations, 1);
    ASSERT_EQ(workspace().notifications.size(), 1U);
    EXPECT_EQ(workspace().notifications[0].title, "The recording isn't saved yet");
    EXPECT_EQ(workspace().notifications[0].text,
              "The disk doesn't answer. Nimbrale saves what was recorded when it is started again.");
    EXPECT_THAT(workspace().alerts, IsEmpty());
    delegate_.reset();
    EXPECT_TRUE(movie().isFinishAwaited) << "nobody waited for the disk";
}

TEST_F(RecordingSilentDiskTest, QuittingDoesNotWaitForADiskThatIsKnownNotToAnswer)
{
    launch();
    startRecording();
    pressRecord();
    capture().stream().completeStop();
    stallDisk();
    delegate_->editor()->onClose();
    EXPECT_EQ(workspace().terminations, 1);
    ASSERT_EQ(workspace().notifications.size(), 2U);
    EXPECT_EQ(workspace().notifications[1].text,
              "The disk doesn't answer. Nimbrale saves what was recorded when it is started again.");
}

} // namespace
} // namespace nimbrale
