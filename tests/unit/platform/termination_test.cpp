#include "platform/termination.h"

#include <gmock/gmock.h>

#include <vector>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class TerminationTest : public testing::Test {
protected:
    /// The application answers like this.
    void answerWith(TerminateReply reply)
    {
        termination_.onShouldTerminate = [this, reply] {
            ++questions_;
            return reply;
        };
    }
    void ask()
    {
        termination_.ask([this](bool isGranted) { answers_.push_back(isGranted); });
    }

    Termination termination_;
    int questions_ = 0;
    std::vector<bool> answers_;
};

TEST_F(TerminationTest, IsGrantedWhileNobodyIsToBeAsked)
{
    ask();
    EXPECT_THAT(answers_, ElementsAre(true));
    EXPECT_FALSE(termination_.isWaiting());
}

TEST_F(TerminationTest, TheApplicationAnswersAtOnce)
{
    answerWith(TerminateReply::cancel);
    ask();
    EXPECT_THAT(answers_, ElementsAre(false));
    answerWith(TerminateReply::now);
    ask();
    EXPECT_THAT(answers_, ElementsAre(false, true)) << "after a refusal it may be asked again";
    EXPECT_EQ(questions_, 2);
    EXPECT_FALSE(termination_.isWaiting());
}

TEST_F(TerminationTest, ALaterAnswerIsWaitedForByAllAndTheApplicationIsAskedOnce)
{
    answerWith(TerminateReply::later);
    ask();
    EXPECT_TRUE(termination_.isWaiting());
    ask();
    ask();
    EXPECT_THAT(answers_, IsEmpty());
    EXPECT_EQ(questions_, 1);

    termination_.reply(true);
    EXPECT_THAT(answers_, ElementsAre(true, true, true));
    EXPECT_FALSE(termination_.isWaiting());
}

TEST_F(TerminationTest, ALaterRefusalLetsTheApplicationGoOn)
{
    answerWith(TerminateReply::later);
    ask();
    termination_.reply(false);
    EXPECT_THAT(answers_, ElementsAre(false));
    EXPECT_FALSE(termination_.isWaiting());
    ask();
    EXPECT_EQ(questions_, 2) << "a new wish is a new question";
    EXPECT_TRUE(termination_.isWaiting());
}

TEST_F(TerminationTest, AReplyThatNobodyWaitsForDoesNothing)
{
    termination_.reply(true);
    answerWith(TerminateReply::later);
    ask();
    EXPECT_THAT(answers_, IsEmpty()) << "an answer of before does not count";
    termination_.reply(true);
    termination_.reply(false);
    EXPECT_THAT(answers_, ElementsAre(true));
}

TEST_F(TerminationTest, TheReplyMayComeBeforeLater)
{
    termination_.onShouldTerminate = [this] {
        termination_.reply(true);
        return TerminateReply::later;
    };
    ask();
    EXPECT_THAT(answers_, ElementsAre(true));
    EXPECT_FALSE(termination_.isWaiting());
}

TEST_F(TerminationTest, AskingWithinTheQuestionJoinsIt)
{
    termination_.onShouldTerminate = [this] {
        ++questions_;
        ask();
        return TerminateReply::now;
    };
    ask();
    EXPECT_EQ(questions_, 1);
    EXPECT_THAT(answers_, ElementsAre(true, true));
}

TEST_F(TerminationTest, WhoGetsTheAnswerMayAskAgain)
{
    answerWith(TerminateReply::later);
    bool isAskedAgain = false;
    termination_.ask([&](bool) {
        if (!std::exchange(isAskedAgain, true))
            ask();
    });
    termination_.reply(false);
    EXPECT_EQ(questions_, 2);
    EXPECT_TRUE(termination_.isWaiting());
    EXPECT_THAT(answers_, IsEmpty());
}

} // namespace
} // namespace nimbrale
