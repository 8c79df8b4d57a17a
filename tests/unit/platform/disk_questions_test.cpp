// Questions to disks that may never answer: who asks goes on, and may go.

#include "platform/disk_questions.h"

#include "tests/fakes/fake_main_queue.h"

#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <thread>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::Optional;

template <typename Condition>
bool waitUntil(Condition condition)
{
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (!condition() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    return condition();
}

/// A disk that answers when the test says so.
struct SilentDisk {
    std::atomic<bool> isSilent = true;
    std::atomic<int> asked = 0;

    int answer()
    {
        ++asked;
        while (isSilent)
            std::this_thread::yield();
        return 7;
    }
};

class DiskQuestionsTest : public testing::Test {
protected:
    [[nodiscard]] DiskQuestions::Asked ask(DiskQuestions& questions)
    {
        return questions.ask<int>([disk = disk_] { return disk->answer(); }, [this](int answer) { answer_ = answer; });
    }

    std::shared_ptr<SilentDisk> disk_ = std::make_shared<SilentDisk>();
    FakeMainQueue queue_;
    std::optional<int> answer_;
};

TEST_F(DiskQuestionsTest, TheAnswerComesOnTheMainQueue)
{
    disk_->isSilent = false;
    DiskQuestions questions(queue_, "test");
    const auto asked = ask(questions);
    ASSERT_TRUE(waitUntil([&] { return queue_.pendingPosts() > 0; }));
    EXPECT_FALSE(answer_);
    queue_.runPosted();
    EXPECT_THAT(answer_, Optional(7));
}

TEST_F(DiskQuestionsTest, WhoDropsAQuestionHearsNothing)
{
    DiskQuestions questions(queue_, "test");
    auto asked = ask(questions);
    ASSERT_TRUE(waitUntil([&] { return disk_->asked == 1; }));
    asked.reset();
    disk_->isSilent = false;
    questions.waitFor(20s);
    queue_.runPosted();
    EXPECT_FALSE(answer_);
}

TEST_F(DiskQuestionsTest, WhoDropsAnAnswerThatIsOnItsWayHearsNothing)
{
    disk_->isSilent = false;
    DiskQuestions questions(queue_, "test");
    auto asked = ask(questions);
    ASSERT_TRUE(waitUntil([&] { return queue_.pendingPosts() > 0; }));
    asked.reset();
    queue_.runPosted();
    EXPECT_FALSE(answer_);
}

TEST_F(DiskQuestionsTest, AQuestionThatHangsHoldsUpNoOther)
{
    DiskQuestions questions(queue_, "test");
    const auto hanging = ask(questions);
    ASSERT_TRUE(waitUntil([&] { return disk_->asked == 1; }));
    std::optional<int> other;
    const auto asked = questions.ask<int>([] { return 8; }, [&](int answer) { other = answer; });
    ASSERT_TRUE(waitUntil([&] { return queue_.pendingPosts() > 0; }));
    queue_.runPosted();
    EXPECT_THAT(other, Optional(8));
    EXPECT_FALSE(answer_);
    disk_->isSilent = false;
}

TEST_F(DiskQuestionsTest, NobodyWaitsForAQuestionThatHangs)
{
    auto queue = std::make_unique<FakeMainQueue>();
    auto questions = std::make_unique<DiskQuestions>(*queue, "test");
    auto asked =
        questions->ask<int>([disk = disk_] { return disk->answer(); }, [this](int answer) { answer_ = answer; });
    ASSERT_TRUE(waitUntil([&] { return disk_->asked == 1; }));
    asked.reset();
    questions.reset();
    queue.reset();
    // The thread that was left behind touches nothing of what is gone.
    disk_->isSilent = false;
    EXPECT_TRUE(waitUntil([&] { return disk_.use_count() == 1; }));
    EXPECT_FALSE(answer_);
}

TEST_F(DiskQuestionsTest, PatienceEndsAfterTenSecondsOnce)
{
    int exhausted = 0;
    std::optional<DiskPatience> patience;
    patience.emplace(queue_, [&] {
        ++exhausted;
        patience.reset();
    });
    queue_.advance(9900ms);
    EXPECT_EQ(exhausted, 0);
    queue_.advance(100ms);
    EXPECT_EQ(exhausted, 1);
    queue_.advance(60s);
    EXPECT_EQ(exhausted, 1);
    EXPECT_EQ(queue_.pendingTimers(), 0U);
}

TEST_F(DiskQuestionsTest, PatienceThatIsDroppedTellsNothing)
{
    int exhausted = 0;
    std::optional<DiskPatience> patience;
    patience.emplace(queue_, [&] { ++exhausted; });
    queue_.advance(5s);
    patience.reset();
    queue_.advance(60s);
    EXPECT_EQ(exhausted, 0);
}

} // namespace
} // namespace nimbrale
