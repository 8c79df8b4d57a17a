#include "platform/session_lock.h"

#include "tests/fakes/log_capture.h"

#include <gmock/gmock.h>

#include <vector>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LockReportsTest : public testing::Test {
protected:
    LogCapture log;
    LockReports lock;
    /// What the lock was at each call.
    std::vector<bool> told;
    Subscription observer = lock.observe([this] { told.push_back(lock.isLocked()); });
};

TEST_F(LockReportsTest, IsNotLockedAtFirst)
{
    EXPECT_FALSE(lock.isLocked());
}

TEST_F(LockReportsTest, IsLockedWhileAnySourceSaysSo)
{
    lock.report("saver", true);
    EXPECT_TRUE(lock.isLocked());
    lock.report("login manager", true);
    lock.report("saver", false);
    EXPECT_TRUE(lock.isLocked());
    lock.report("login manager", false);
    EXPECT_FALSE(lock.isLocked());
}

TEST_F(LockReportsTest, TellsOfChangesAlone)
{
    lock.report("saver", false);
    EXPECT_THAT(told, IsEmpty());
    lock.report("saver", true);
    lock.report("saver", true);
    lock.report("login manager", true);
    EXPECT_THAT(told, ElementsAre(true));
    lock.report("saver", false);
    lock.report("login manager", false);
    EXPECT_THAT(told, ElementsAre(true, false));
}

TEST_F(LockReportsTest, AWordFromOneSourceIsNotTakenBackByAnother)
{
    lock.report("saver", true);
    lock.report("login manager", false);
    EXPECT_TRUE(lock.isLocked());
}

} // namespace
} // namespace nimbrale
