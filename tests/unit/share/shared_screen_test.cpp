#include "tests/unit/share/shared_screen_fixture.h"

#include <chrono>
#include <gmock/gmock.h>
#include <string>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using WindowKind = SharedScreen::WindowKind;

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

TEST_F(SharedScreenTest, PointsOfTheVirtualDisplayCountForItsPixels)
{
    screens.list.push_back(makeScreen(displays.nextDisplayID, {1440, -300, 400, 300}, 2));
    sharedScreen.activate(region, geometry, 2);

    sharedScreen.show(picture());

    EXPECT_EQ(frameLayer(panels.last()).frame(), (Rect{0, 0, 400, 300}));
}

TEST_F(SharedScreenTest, ChangesOfTheDisplaysMakeNoOtherVirtualDisplay)
{
    listVirtualScreen();
    sharedScreen.activate(region, geometry, 2);
    screens.notify();
    platform.mainQueue().advance(1h);
    EXPECT_THAT(displays.descriptors, SizeIs(1));
    EXPECT_THAT(askedModes(), SizeIs(1));
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
    EXPECT_EQ(panels.last().title, "") << "only the mirror window is looked for by its title";
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

TEST_F(SharedScreenTest, HasNoVirtualDisplayToTellOfWhereNoneCanBeMade)
{
    makeVirtualDisplaysFail();
    bool isLost = false;
    sharedScreen.onVirtualDisplayLost = [&isLost] { isLost = true; };
    sharedScreen.activate(region, geometry, 2);
    EXPECT_EQ(sharedScreen.virtualDisplayIdentity(), std::nullopt);
    EXPECT_FALSE(isLost) << "what never was is not lost";
}

TEST_F(SharedScreenTest, APausedScreenKeepsItsWindowUntilItIsShownAgain)
{
    listVirtualScreen();
    sharedScreen.activate(region, geometry, 2);
    sharedScreen.show(picture());
    const FakePanel* const window = &panels.last();

    sharedScreen.pause();
    EXPECT_THAT(panels.last().rootLayer().sublayersInOrder(), SizeIs(2)) << "the card";
    EXPECT_EQ(frameLayer(panels.last()).contents(), nullptr);
    sharedScreen.deactivate();
    ASSERT_THAT(panels.living, ElementsAre(window));
    EXPECT_THAT(panels.orderedOut, IsEmpty());

    sharedScreen.activate({120, 80, 300, 200}, geometry, 2);
    sharedScreen.show({picture().surface, {120, 80, 300, 200}});
    EXPECT_THAT(panels.living, ElementsAre(window));
    EXPECT_THAT(panels.last().rootLayer().sublayersInOrder(), SizeIs(1));
    EXPECT_EQ(frameLayer(panels.last()).frame(), (Rect{0, 0, 600, 400}));
    sharedScreen.deactivate();
    EXPECT_THAT(panels.living, IsEmpty());
}

TEST_F(SharedScreenTest, ADisplayOfAnotherScaleAfterAPauseGetsAWindowOfItsOwnWithTheCard)
{
    listVirtualScreen();
    sharedScreen.activate(region, geometry, 2);
    sharedScreen.pause();
    sharedScreen.deactivate();

    sharedScreen.activate(region, geometry, 1);
    EXPECT_THAT(panels.created, SizeIs(2));
    ASSERT_THAT(panels.living, SizeIs(1));
    EXPECT_THAT(panels.last().rootLayer().sublayersInOrder(), SizeIs(2)) << "the card";
    sharedScreen.show(picture());
    EXPECT_THAT(panels.last().rootLayer().sublayersInOrder(), SizeIs(1));
}

TEST_F(SharedScreenTest, AMirrorWindowStaysDuringAPauseAndFollowsTheRegionAfterwards)
{
    makeVirtualDisplaysFail();
    sharedScreen.activate(region, geometry, 2);
    sharedScreen.pause();
    sharedScreen.deactivate();
    sharedScreen.activate({0, 0, 300, 200}, geometry, 2);
    EXPECT_THAT(panels.created, SizeIs(1));
    EXPECT_EQ(panels.last().frame(), (Rect{0, 700, 300, 200}));
    EXPECT_EQ(panels.last().title, "🎯 Share this · Screen area 300×200");
}

TEST_F(SharedScreenTest, APauseThatEndsWithoutAPictureTakesTheWindowAway)
{
    listVirtualScreen();
    sharedScreen.activate(region, geometry, 2);
    sharedScreen.pause();
    sharedScreen.deactivate();
    sharedScreen.endPause();
    EXPECT_THAT(panels.living, IsEmpty());
    sharedScreen.activate(region, geometry, 2);
    EXPECT_THAT(panels.last().rootLayer().sublayersInOrder(), SizeIs(1)) << "the next window shows no card";
}

TEST_F(SharedScreenTest, AScreenThatIsNotShownCannotBePaused)
{
    listVirtualScreen();
    sharedScreen.pause();
    sharedScreen.activate(region, geometry, 2);
    EXPECT_THAT(panels.last().rootLayer().sublayersInOrder(), SizeIs(1));
}

} // namespace
} // namespace nimbrale
