// A virtual display that turns out to be of no use, and the one that takes its place.

#include "tests/unit/share/shared_screen_fixture.h"

#include <chrono>
#include <gmock/gmock.h>
#include <optional>
#include <vector>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using WindowKind = SharedScreen::WindowKind;

TEST_F(SharedScreenTest, UnusableVirtualDisplayGivesWayToTheMirrorWindow)
{
    listVirtualScreen();
    sharedScreen.activate(region, geometry, 2);

    displays.device().becomeUnusable({ErrorCode::permanent, "nothing is shown"});
    platform.mainQueue().runPosted();

    EXPECT_THAT(log.errors(), ElementsAre(unavailableLine));
    EXPECT_FALSE(displays.device().isAlive);
    EXPECT_EQ(sharedScreen.windowKind(), WindowKind::mirror);
    EXPECT_EQ(panels.last().frame(), (Rect{100, 550, 400, 300}));
    EXPECT_THAT(panels.living, SizeIs(1));

    sharedScreen.regionChangeEnded();
    sharedScreen.deactivate();
    sharedScreen.activate(region, geometry, 2);
    EXPECT_THAT(displays.descriptors, SizeIs(1)) << "the virtual display must stay dropped";
    EXPECT_EQ(sharedScreen.windowKind(), WindowKind::mirror);
}

TEST_F(SharedScreenTest, WindowOnALostVirtualDisplayIsTakenAway)
{
    listVirtualScreen();
    sharedScreen.activate(region, geometry, 2);
    ASSERT_THAT(panels.orderedOut, IsEmpty());

    displays.device().becomeUnusable({ErrorCode::permanent, "nothing is shown"});
    platform.mainQueue().runPosted();

    EXPECT_THAT(panels.orderedOut, SizeIs(1));
    EXPECT_EQ(panels.last().options.style, PanelStyle::mirrorWindow);
    EXPECT_THAT(panels.living, SizeIs(1));
}

TEST_F(SharedScreenTest, UnusableVirtualDisplayWhileInactiveShowsNothing)
{
    listVirtualScreen();
    sharedScreen.activate(region, geometry, 2);
    sharedScreen.deactivate();

    displays.device().becomeUnusable({ErrorCode::permanent, "nothing is shown"});
    platform.mainQueue().runPosted();

    EXPECT_EQ(sharedScreen.windowKind(), std::nullopt);
    EXPECT_FALSE(displays.device().isAlive);
}

TEST_F(SharedScreenTest, ALostVirtualDisplayIsMadeAnewWhenTheDisplaysHaveRested)
{
    listVirtualScreen();
    sharedScreen.activate(region, geometry, 2);
    displays.device().becomeUnusable({ErrorCode::unsupported, "it was taken off the screen"});
    platform.mainQueue().runPosted();
    ASSERT_EQ(sharedScreen.windowKind(), WindowKind::mirror);

    platform.mainQueue().advance(9s);
    screens.notify();
    platform.mainQueue().advance(9999ms);
    EXPECT_THAT(displays.devices, SizeIs(1)) << "the displays have not rested for ten seconds";
    screens.remove(displays.nextDisplayID);
    displays.nextDisplayID = 78;
    platform.mainQueue().advance(1ms);
    ASSERT_THAT(displays.devices, SizeIs(2));
    EXPECT_THAT(askedModes(), ElementsAre(VirtualDisplayMode{800, 600, 60}));
    EXPECT_EQ(sharedScreen.windowKind(), WindowKind::mirror) << "until the system lists the new display";

    listVirtualScreen();
    screens.notify();
    EXPECT_EQ(sharedScreen.windowKind(), WindowKind::virtualDisplay);
    EXPECT_THAT(panels.living, SizeIs(1));

    // The next time it waits twice as long.
    displays.device().becomeUnusable({ErrorCode::unsupported, "it was taken off the screen"});
    platform.mainQueue().advance(19'999ms);
    EXPECT_THAT(displays.devices, SizeIs(2));
    platform.mainQueue().advance(1ms);
    EXPECT_THAT(displays.devices, SizeIs(3));
}

TEST_F(SharedScreenTest, AVirtualDisplayThatTheDesktopRefusesForGoodIsNotMadeAnew)
{
    sharedScreen.activate(region, geometry, 2);
    displays.device().becomeUnusable({ErrorCode::permanent, "the desktop lets there be none"});
    platform.mainQueue().advance(1h);
    EXPECT_THAT(displays.devices, SizeIs(1));
    EXPECT_EQ(sharedScreen.windowKind(), WindowKind::mirror);
    sharedScreen.deactivate();
    sharedScreen.activate(region, geometry, 2);
    EXPECT_THAT(displays.devices, SizeIs(1));
    EXPECT_EQ(sharedScreen.windowKind(), WindowKind::mirror);
}

TEST_F(SharedScreenTest, AVirtualDisplayThatIsLostAgainAndAgainIsMadeAnewEveryTenMinutes)
{
    listVirtualScreen();
    sharedScreen.activate(region, geometry, 2);
    for (const auto& delay : {10s, 20s, 40s, 80s, 160s, 320s, 600s, 600s}) {
        displays.device().becomeUnusable({ErrorCode::unsupported, "it was taken off the screen"});
        platform.mainQueue().runPosted();
        const std::size_t before = displays.devices.size();
        platform.mainQueue().advance(delay - 1ms);
        EXPECT_THAT(displays.devices, SizeIs(before)) << delay.count();
        platform.mainQueue().advance(1ms);
        ASSERT_THAT(displays.devices, SizeIs(before + 1)) << delay.count();
    }
}

TEST_F(SharedScreenTest, ALostVirtualDisplayIsNotMadeWhileNothingIsShared)
{
    listVirtualScreen();
    sharedScreen.activate(region, geometry, 2);
    displays.device().becomeUnusable({ErrorCode::unsupported, "it was taken off the screen"});
    platform.mainQueue().runPosted();
    sharedScreen.deactivate();
    platform.mainQueue().advance(1min);
    EXPECT_THAT(displays.devices, SizeIs(1));
    sharedScreen.activate(region, geometry, 2);
    EXPECT_THAT(displays.devices, SizeIs(2));
}

TEST_F(SharedScreenTest, AVirtualDisplayThatCannotBeMadeAnewLeavesTheMirrorWindowAlone)
{
    listVirtualScreen();
    sharedScreen.activate(region, geometry, 2);
    displays.device().becomeUnusable({ErrorCode::unsupported, "it was taken off the screen"});
    platform.mainQueue().runPosted();
    const FakePanel* const mirror = &panels.last();
    makeVirtualDisplaysFail();
    platform.mainQueue().advance(10s);
    EXPECT_THAT(displays.descriptors, SizeIs(2));
    EXPECT_EQ(&panels.last(), mirror);
    EXPECT_EQ(sharedScreen.windowKind(), WindowKind::mirror);
    platform.mainQueue().advance(1h);
    screens.notify();
    platform.mainQueue().advance(1h);
    EXPECT_THAT(displays.descriptors, SizeIs(2)) << "what cannot be made is not tried again";
}

TEST_F(SharedScreenTest, TellsItsVirtualDisplayAndWhenItLostIt)
{
    using Identity = SharedScreen::VirtualDisplayIdentity;
    std::vector<std::optional<Identity>> identitiesWhenLost;
    std::vector<std::optional<WindowKind>> windowsWhenLost;
    sharedScreen.onVirtualDisplayLost = [&] {
        identitiesWhenLost.push_back(sharedScreen.virtualDisplayIdentity());
        windowsWhenLost.push_back(sharedScreen.windowKind());
    };
    EXPECT_EQ(sharedScreen.virtualDisplayIdentity(), std::nullopt) << "none is made before its first use";

    sharedScreen.activate(region, geometry, 2);
    const Identity identity{displays.device().displayID, "Nimbrale"};
    EXPECT_EQ(sharedScreen.virtualDisplayIdentity(), identity) << "also before the system lists it";
    listVirtualScreen();
    screens.notify();
    sharedScreen.deactivate();
    EXPECT_EQ(sharedScreen.virtualDisplayIdentity(), identity);
    sharedScreen.activate(region, geometry, 2);
    EXPECT_THAT(identitiesWhenLost, IsEmpty());

    displays.device().becomeUnusable({ErrorCode::permanent, "nothing is shown"});
    platform.mainQueue().runPosted();
    EXPECT_THAT(identitiesWhenLost, ElementsAre(std::nullopt));
    EXPECT_THAT(windowsWhenLost, ElementsAre(WindowKind::mirror)) << "the mirror window stands already";
    EXPECT_EQ(sharedScreen.virtualDisplayIdentity(), std::nullopt);
}

} // namespace
} // namespace nimbrale
