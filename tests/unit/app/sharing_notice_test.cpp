#include "app/sharing_notice.h"
#include "tests/fakes/fake_workspace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* title = "🎯 Share this · Screen area 400×300";
constexpr const char* sentence =
    "This desktop has no virtual display. In your meeting, share the window “🎯 Share this · Screen area 400×300”.";

class SharingNoticeTest : public testing::Test {
protected:
    FakeWorkspace workspace_;
    std::unique_ptr<SharingNotice> notice_ = std::make_unique<SharingNotice>(workspace_);
};

TEST_F(SharingNoticeTest, NamesTheWindowOnceInANotification)
{
    notice_->tell({}, title);
    EXPECT_THAT(workspace_.notifications, ElementsAre(Notification{"Share the window instead of a display", sentence}));
    notice_->tell({}, title);
    notice_->tell({}, "🎯 Share this · Screen area 500×300");
    EXPECT_THAT(workspace_.notifications, SizeIs(1));
    EXPECT_THAT(workspace_.alerts, IsEmpty());
}

TEST_F(SharingNoticeTest, WithAVirtualDisplayThereIsNothingToTell)
{
    notice_->tell({}, std::nullopt);
    EXPECT_THAT(workspace_.notifications, IsEmpty());
    EXPECT_THAT(workspace_.alerts, IsEmpty());
    notice_->tell({}, title);
    EXPECT_THAT(workspace_.notifications, SizeIs(1)) << "it was lost";
}

TEST_F(SharingNoticeTest, WhereNoNotificationIsShownAnAlertNamesTheWindow)
{
    workspace_.showsNotifications = false;
    notice_->tell({}, title);
    EXPECT_THAT(workspace_.alerts, IsEmpty());
    ASSERT_THAT(workspace_.unshown, SizeIs(1));
    workspace_.unshown.front()();
    EXPECT_THAT(
        workspace_.alerts,
        ElementsAre(Alert{AlertStyle::informational, "Share the window instead of a display", sentence, {"OK"}}));
    EXPECT_THAT(workspace_.openAlerts, SizeIs(1));
    notice_->tell({}, title);
    EXPECT_THAT(workspace_.unshown, SizeIs(1));
}

TEST_F(SharingNoticeTest, ANotificationThatFailsAfterItsEndTellsNobody)
{
    workspace_.showsNotifications = false;
    notice_->tell({}, title);
    notice_.reset();
    workspace_.unshown.at(0)();
    EXPECT_THAT(workspace_.alerts, IsEmpty());
}

TEST_F(SharingNoticeTest, LimitationsAndTheWindowShareAnAlert)
{
    notice_->tell({"The pointer is missing."}, title);
    ASSERT_THAT(workspace_.alerts, SizeIs(1));
    EXPECT_EQ(workspace_.alerts.front().message, "Sharing is limited on this desktop");
    EXPECT_EQ(workspace_.alerts.front().informativeText, std::string("The pointer is missing.\n") + sentence);
    notice_->tell({"The pointer is missing."}, title);
    EXPECT_THAT(workspace_.alerts, SizeIs(1));
    EXPECT_THAT(workspace_.notifications, IsEmpty());
}

TEST_F(SharingNoticeTest, ALimitationThatComesLaterIsToldByItself)
{
    notice_->tell({"The pointer is missing."}, std::nullopt);
    notice_->tell({"The pointer is missing.", "Banners are shared."}, std::nullopt);
    ASSERT_THAT(workspace_.alerts, SizeIs(2));
    EXPECT_EQ(workspace_.alerts.back().informativeText, "Banners are shared.");
    notice_->tell({}, std::nullopt);
    notice_->tell({"Banners are shared.", "The pointer is missing."}, std::nullopt);
    EXPECT_THAT(workspace_.alerts, SizeIs(2));
}

TEST_F(SharingNoticeTest, AWindowThatComesAfterTheLimitationsIsTold)
{
    notice_->tell({"The pointer is missing."}, std::nullopt);
    notice_->tell({"The pointer is missing."}, title);
    EXPECT_THAT(workspace_.alerts, SizeIs(1));
    EXPECT_THAT(workspace_.notifications, SizeIs(1));
}

TEST_F(SharingNoticeTest, AWindowThatWasReturnedIsToldOnceAndNeverByAnAlert)
{
    notice_->tellWindowReturned();
    notice_->tellWindowReturned();
    EXPECT_THAT(workspace_.notifications,
                ElementsAre(Notification{"A window was moved back to your display",
                                         "It was on the virtual display, which only your meeting sees."}));
    workspace_.showsNotifications = false;
    const auto other = std::make_unique<SharingNotice>(workspace_);
    other->tellWindowReturned();
    workspace_.unshown.at(0)();
    EXPECT_THAT(workspace_.alerts, IsEmpty());
}

} // namespace
} // namespace nimbrale
