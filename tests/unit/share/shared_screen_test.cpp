#include "share/shared_screen.h"

#include "tests/fakes/fake_platform.h"
#include "tests/fakes/log_capture.h"

#include <gmock/gmock.h>

#include <chrono>
#include <string>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using WindowKind = SharedScreen::WindowKind;

constexpr DisplayID realDisplay = 1;
constexpr Rect region{100, 50, 400, 300};
const DisplayGeometry geometry{{1440, 900}, {0, 0, 1440, 900}, 0};
const LogCapture::Line unavailableLine =
    errorLine("Nimbrale.virtual-display", "Virtual display unavailable; sharing a window instead");

class SharedScreenTest : public testing::Test {
protected:
    SharedScreenTest()
    {
        screens.list = {makeScreen(realDisplay, geometry.screenFrame, 2)};
        displays.boundsOf[realDisplay] = {0, 0, 2880, 1800};
    }

    void makeVirtualDisplaysFail() { displays.createResult = fail(ErrorCode::unsupported, "no such thing here"); }
    /// As the system does some time after the virtual display was made.
    void listVirtualScreen(const Rect& frame = {1440, -600, 800, 600})
    {
        screens.remove(displays.nextDisplayID);
        screens.list.push_back(makeScreen(displays.nextDisplayID, frame));
    }
    [[nodiscard]] std::vector<VirtualDisplayMode> askedModes() const
    {
        std::vector<VirtualDisplayMode> modes;
        for (const VirtualDisplaySettings& settings : displays.device().appliedSettings)
            modes.push_back(settings.modes.at(0));
        return modes;
    }
    [[nodiscard]] static Frame picture() { return {std::make_shared<FakeSurface>(800, 600), region}; }
    [[nodiscard]] static const Layer& frameLayer(FakePanel& panel)
    {
        return *panel.rootLayer().sublayersInOrder().at(0);
    }

    LogCapture log;
    FakePlatform platform;
    FakeScreens& screens = platform.screens();
    FakeVirtualDisplays& displays = platform.virtualDisplays();
    FakePanels& panels = platform.panels();
    SharedScreen sharedScreen{displays, panels, screens, platform.mainQueue()};
};

TEST_F(SharedScreenTest, MakesNoVirtualDisplayBeforeItsFirstUse)
{
    EXPECT_THAT(displays.descriptors, IsEmpty());
    EXPECT_FALSE(sharedScreen.isActive());
    EXPECT_EQ(sharedScreen.windowKind(), std::nullopt);
}

TEST_F(SharedScreenTest, FillsTheVirtualDisplay)
{
    listVirtualScreen();

    sharedScreen.activate(region, geometry, 2);

    EXPECT_TRUE(sharedScreen.isActive());
    EXPECT_EQ(sharedScreen.windowKind(), WindowKind::virtualDisplay);
    EXPECT_THAT(askedModes(), ElementsAre(VirtualDisplayMode{800, 600, 60}));
    ASSERT_THAT(panels.living, SizeIs(1));
    const FakePanel& panel = panels.last();
    EXPECT_EQ(panel.options.style, PanelStyle::fullScreen);
    EXPECT_EQ(panel.options.level, 1000);
    EXPECT_EQ(panel.frame(), (Rect{1440, -600, 800, 600}));
    EXPECT_EQ(panel.order, FakePanel::Order::front);
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(SharedScreenTest, OneCapturedPixelIsOnePixelOfTheVirtualDisplay)
{
    listVirtualScreen();
    sharedScreen.activate(region, geometry, 2);

    sharedScreen.show(picture());

    EXPECT_EQ(frameLayer(panels.last()).frame(), (Rect{0, 0, 800, 600}));
}

TEST_F(SharedScreenTest, WaitsForTheScreenOfTheVirtualDisplayAndMakesTheWindowOnce)
{
    sharedScreen.activate(region, geometry, 2);
    EXPECT_EQ(sharedScreen.windowKind(), std::nullopt);

    screens.notify(); // Something else changed.
    EXPECT_THAT(panels.created, IsEmpty());

    listVirtualScreen();
    screens.notify();
    EXPECT_EQ(sharedScreen.windowKind(), WindowKind::virtualDisplay);

    screens.notify();
    EXPECT_THAT(panels.created, SizeIs(1));
}

TEST_F(SharedScreenTest, WindowFollowsTheVirtualDisplay)
{
    listVirtualScreen();
    sharedScreen.activate(region, geometry, 2);

    listVirtualScreen({1440, -900, 1200, 900});
    screens.notify();

    EXPECT_THAT(panels.created, SizeIs(1));
    EXPECT_EQ(panels.last().frame(), (Rect{1440, -900, 1200, 900}));
}

TEST_F(SharedScreenTest, ScreenChangesWhileInactiveShowNothing)
{
    listVirtualScreen();
    screens.notify();
    EXPECT_THAT(panels.created, IsEmpty());

    sharedScreen.activate(region, geometry, 2);
    sharedScreen.deactivate();
    screens.notify();

    EXPECT_THAT(panels.living, IsEmpty());
}

TEST_F(SharedScreenTest, WithoutAVirtualDisplayAWindowLiesOverTheFramedArea)
{
    makeVirtualDisplaysFail();

    sharedScreen.activate(region, geometry, 2);

    EXPECT_THAT(log.errors(), ElementsAre(unavailableLine));
    EXPECT_EQ(sharedScreen.windowKind(), WindowKind::mirror);
    ASSERT_THAT(panels.living, SizeIs(1));
    const FakePanel& panel = panels.last();
    EXPECT_EQ(panel.options.style, PanelStyle::mirrorWindow);
    EXPECT_EQ(panel.frame(), (Rect{100, 550, 400, 300}));
    EXPECT_EQ(panel.title, "🎯 Share this · Screen area 400×300");
    EXPECT_EQ(panel.order, FakePanel::Order::back);
}

TEST_F(SharedScreenTest, MirrorWindowShowsThePictureInPoints)
{
    makeVirtualDisplaysFail();
    sharedScreen.activate(region, geometry, 2);

    sharedScreen.show(picture());

    EXPECT_EQ(frameLayer(panels.last()).frame(), (Rect{0, 0, 400, 300}));
}

TEST_F(SharedScreenTest, FailedVirtualDisplayIsNotTriedAgain)
{
    makeVirtualDisplaysFail();
    sharedScreen.activate(region, geometry, 2);
    sharedScreen.deactivate();
    displays.createResult = {};

    sharedScreen.activate(region, geometry, 2);

    EXPECT_THAT(displays.descriptors, SizeIs(1));
    EXPECT_THAT(log.errors(), SizeIs(1));
    EXPECT_EQ(sharedScreen.windowKind(), WindowKind::mirror);
}

TEST_F(SharedScreenTest, MirrorWindowFollowsTheDragAndItsTitleTheEndOfIt)
{
    makeVirtualDisplaysFail();
    sharedScreen.activate(region, geometry, 2);

    sharedScreen.setRegion({120, 60, 1280, 720});
    EXPECT_EQ(panels.last().frame(), (Rect{120, 120, 1280, 720}));
    EXPECT_EQ(panels.last().title, "🎯 Share this · Screen area 400×300");

    sharedScreen.regionChangeEnded();
    EXPECT_EQ(panels.last().title, "🎯 Share this · Screen area 1280×720");
}

TEST_F(SharedScreenTest, TitleTruncatesTheSize)
{
    makeVirtualDisplaysFail();

    sharedScreen.activate({0, 0, 400.9, 300.5}, geometry, 1);

    EXPECT_EQ(panels.last().title, "🎯 Share this · Screen area 400×300");
}

TEST_F(SharedScreenTest, MirrorWindowKeepsAFrameBeyondTheScreen)
{
    makeVirtualDisplaysFail();
    sharedScreen.activate(region, geometry, 2);

    sharedScreen.setRegion({1300, 800, 400, 300});

    EXPECT_EQ(panels.last().frame(), (Rect{1300, -200, 400, 300}));
}

TEST_F(SharedScreenTest, DragMovesThePictureButResizesTheVirtualDisplayOnlyAtItsEnd)
{
    listVirtualScreen();
    sharedScreen.activate(region, geometry, 2);
    sharedScreen.show(picture());

    sharedScreen.setRegion({110, 50, 500, 350});
    EXPECT_EQ(frameLayer(panels.last()).frame(), (Rect{-20, 0, 800, 600}));
    EXPECT_THAT(askedModes(), SizeIs(1));
    EXPECT_THAT(panels.last().frames, IsEmpty());

    sharedScreen.regionChangeEnded();
    EXPECT_THAT(askedModes(), ElementsAre(VirtualDisplayMode{800, 600, 60}, VirtualDisplayMode{1000, 700, 60}));
}

TEST_F(SharedScreenTest, RegionOfADragCountsForAWindowMadeLater)
{
    sharedScreen.activate(region, geometry, 2);
    sharedScreen.setRegion({110, 50, 400, 300});
    listVirtualScreen();
    screens.notify();

    sharedScreen.show(picture());

    EXPECT_EQ(frameLayer(panels.last()).frame(), (Rect{-20, 0, 800, 600}));
}

TEST_F(SharedScreenTest, DeactivatingTakesTheWindowAwayAndKeepsTheVirtualDisplay)
{
    listVirtualScreen();
    sharedScreen.activate(region, geometry, 2);

    sharedScreen.deactivate();

    EXPECT_FALSE(sharedScreen.isActive());
    EXPECT_EQ(sharedScreen.windowKind(), std::nullopt);
    EXPECT_THAT(panels.living, IsEmpty());
    EXPECT_THAT(panels.orderedOut, SizeIs(1));
    EXPECT_TRUE(displays.device().isAlive);
}

TEST_F(SharedScreenTest, ActivatingAgainMakesANewWindowAndView)
{
    listVirtualScreen();
    sharedScreen.activate(region, geometry, 2);
    sharedScreen.show(picture());
    sharedScreen.deactivate();

    sharedScreen.activate(region, geometry, 2);

    EXPECT_THAT(panels.created, SizeIs(2));
    EXPECT_EQ(frameLayer(panels.last()).contents(), nullptr);
    EXPECT_THAT(displays.descriptors, SizeIs(1));
}

TEST_F(SharedScreenTest, WebcamIsPassedOnAndCountsForLaterWindowsToo)
{
    const auto webcamLayer = [this] {
        const std::vector<Layer*> layers = panels.last().rootLayer().sublayersInOrder();
        return layers.size() == 2 ? layers.back() : nullptr;
    };
    listVirtualScreen();
    const auto camera = std::make_shared<WebcamPictures>();
    sharedScreen.setWebcam({camera, {10, 20, 160, 90}});

    sharedScreen.activate(region, geometry, 2);
    ASSERT_NE(webcamLayer(), nullptr);
    EXPECT_EQ(webcamLayer()->frame(), (Rect{20, 40, 320, 180}));

    sharedScreen.deactivate();
    sharedScreen.activate(region, geometry, 1);
    ASSERT_NE(webcamLayer(), nullptr);
    EXPECT_EQ(webcamLayer()->frame(), (Rect{10, 20, 160, 90}));

    sharedScreen.setWebcam({});
    EXPECT_EQ(webcamLayer(), nullptr);
    EXPECT_EQ(camera.use_count(), 1);
}

TEST_F(SharedScreenTest, FramesWithoutAWindowAreReleased)
{
    const Frame frame = picture();

    sharedScreen.show(frame);

    EXPECT_EQ(frame.surface.use_count(), 1);
}

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

TEST_F(SharedScreenTest, HasNoVirtualDisplayToTellOfWhereNoneCanBeMade)
{
    makeVirtualDisplaysFail();
    bool isLost = false;
    sharedScreen.onVirtualDisplayLost = [&isLost] { isLost = true; };
    sharedScreen.activate(region, geometry, 2);
    EXPECT_EQ(sharedScreen.virtualDisplayIdentity(), std::nullopt);
    EXPECT_FALSE(isLost) << "what never was is not lost";
}

} // namespace
} // namespace nimbrale
