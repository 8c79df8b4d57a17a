// Nothing of the application's own is ever in a frame that the far side gets. The application paints everything of its
// own in a marker color for this, and the browser looks through every frame for it.

#include "tests/support/meeting.h"

#include <gtest/gtest.h>

namespace nimbrale::test {

namespace {

constexpr int framesToLookThrough = 2000;
const QRect region(300, 200, 400, 300);
const QColor markerColor(255, 0, 255);

Meeting::Options markedMeeting()
{
    return {.application = {.region = region},
            .applicationEnvironment = {{"NIMBRALE_FRAME_COLOR", "#ff00ff"}},
            .call = {.window = {1200, 600, 320, 240}},
            .isPatterned = false};
}

/// Whether the frame on the screen has the marker's color: without that, looking for it shows nothing.
bool isFrameMarked(const PrivateDesktop& desktop)
{
    return desktop.waitForPixel(region.left() + 60, region.top() - 3, markerColor);
}

void expectNoMarker(Meeting& meeting, int frames)
{
    const BrowserCall::MarkerReport report = meeting.call().markerReport();
    EXPECT_GE(report.received.looked, frames);
    EXPECT_GE(report.shared.looked, frames);
    EXPECT_EQ(report.shared.found, 0) << "kept as " << keepImage(meeting.call().markerImage(), "leak");
    EXPECT_EQ(report.received.found, 0);
    EXPECT_EQ(report.shared.unreadable + report.received.unreadable, 0);
}

/// Another application's window of the marker's color in the region is found, so that one of ours would have been.
void expectMarkerToBeFound(Meeting& meeting)
{
    meeting.scene().add("marked", {.geometry = {region.center(), QSize(40, 40)}, .seed = 0, .color = markerColor});
    const auto isFound = [&] {
        const BrowserCall::MarkerReport report = meeting.call().markerReport();
        return report.shared.found > 0 && report.received.found > 0;
    };
    EXPECT_TRUE(waitUntil(isFound, Milliseconds{5000}));
}

/// Drags the frame around in a circle and back.
class Wanderer {
public:
    explicit Wanderer(Meeting& meeting) : meeting_(meeting) {}

    void wander()
    {
        for (const QPoint corner : {QPoint(420, 260), QPoint(360, 380), QPoint(180, 300), region.topLeft()}) {
            meeting_.dragFrame(place_, corner, 15);
            place_.moveTopLeft(corner);
            sleepFor(Milliseconds{200});
        }
    }

private:
    Meeting& meeting_;
    QRect place_ = region;
};

TEST(OwnWindows, AreInNoFrameWhateverHappens)
{
    const auto meeting = requireMeeting(markedMeeting());
    ASSERT_TRUE(isFrameMarked(meeting->desktop())) << keepImage(meeting->desktop().screenshot(), "desktop");
    meeting->call().watchForMarker();
    Wanderer wanderer(*meeting);
    const auto looked = [&] { return meeting->call().markerReport().received.looked; };
    for (int round = 0; round < 60 && looked() < framesToLookThrough; ++round) {
        wanderer.wander();
        ASSERT_TRUE(meeting->desktop().stopWindowManager());
        sleepFor(Milliseconds{150});
        ASSERT_TRUE(meeting->desktop().startWindowManager());
        wanderer.wander();
        ASSERT_TRUE(meeting->desktop().startCompositor());
        sleepFor(Milliseconds{300});
        wanderer.wander();
        ASSERT_TRUE(meeting->desktop().stopCompositor());
    }
    EXPECT_GT(meeting->call().state().received.changes, 100) << "the stream is frozen";
    expectNoMarker(*meeting, framesToLookThrough);
    expectMarkerToBeFound(*meeting);
}

TEST(OwnWindows, AreInNoFrameWhenTheApplicationStartsDuringACall)
{
    const auto meeting = requireMeeting(markedMeeting());
    meeting->call().watchForMarker();
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(meeting->application().quit(), 0);
        std::string reason;
        ASSERT_TRUE(meeting->restartApplication(reason)) << reason;
        ASSERT_TRUE(meeting->application().waitForVirtualDisplay(region.size()));
        EXPECT_TRUE(isFrameMarked(meeting->desktop())) << keepImage(meeting->desktop().screenshot(), "desktop");
        EXPECT_TRUE(meeting->call().waitForChangesReceived(20, Milliseconds{8000}));
    }
    expectNoMarker(*meeting, 60);
    expectMarkerToBeFound(*meeting);
}

/// Rests the pointer on a control until its tip stands left of it, inside the region, and leaves again.
void showTipOf(Meeting& meeting, QPoint control)
{
    const QPoint tip = control - QPoint(32, 9);
    EXPECT_TRUE(meeting.desktop().waitForPixel(tip.x(), tip.y(), Meeting::quietColor()));
    meeting.desktop().movePointer(control);
    EXPECT_TRUE(meeting.desktop().waitForPixel(tip.x(), tip.y(), markerColor))
        << keepImage(meeting.desktop().screenshot(), "no-tip");
    sleepFor(Milliseconds{200});
    meeting.desktop().movePointer({60, 60});
    EXPECT_TRUE(meeting.desktop().waitForPixel(tip.x(), tip.y(), Meeting::quietColor()));
}

TEST(OwnWindows, TheTipsOfControlsAreInNoFrame)
{
    // No room is on the right for the tips, which come to stand over what is shared.
    const QRect atTheEdge(1170, 200, 400, 300);
    Meeting::Options options = markedMeeting();
    options.application.region = atTheEdge;
    options.call.window = {60, 100, 320, 240};
    const auto meeting = requireMeeting(options);
    meeting->placeMovement(atTheEdge.center());
    meeting->call().watchForMarker();
    for (const bool isComposited : {false, true}) {
        ASSERT_TRUE(!isComposited || meeting->desktop().startCompositor());
        for (int round = 0; round < 3; ++round) {
            showTipOf(*meeting, Application::closeButtonOf(atTheEdge));
            showTipOf(*meeting, Application::settingsButtonOf(atTheEdge));
        }
    }
    expectNoMarker(*meeting, 200);
    meeting->scene().add("marked", {.geometry = {1300, 250, 40, 40}, .seed = 0, .color = markerColor});
    EXPECT_TRUE(waitUntil([&] { return meeting->call().markerReport().received.found > 0; }, Milliseconds{5000}));
}

} // namespace

} // namespace nimbrale::test
