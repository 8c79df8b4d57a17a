// Where the frame's controls lie beside bars of a desktop shell that keeps the clicks on them to itself.

#include "region/region_overlay_layout.h"

#include <gtest/gtest.h>

namespace nimbrale {
namespace {

const Rect screen{0, 0, 1512, 982};

RegionOverlayLayout layoutWithoutBars(const Rect& region)
{
    RegionOverlayLayoutInput input;
    input.region = region;
    input.screen = screen;
    return RegionOverlayLayout(input);
}

RegionOverlayLayout layoutBesideBars(const Rect& reachable, const Rect& region)
{
    RegionOverlayLayoutInput input;
    input.region = region;
    input.screen = screen;
    input.reachable = reachable;
    input.recordingTextWidth = 40;
    return RegionOverlayLayout(input);
}

void expectSamePlaces(const RegionOverlayLayout& layout, const RegionOverlayLayout& expected)
{
    EXPECT_EQ(layout.handle(), expected.handle());
    EXPECT_EQ(layout.resizeButton(), expected.resizeButton());
    for (const FrameButton button : allFrameButtons)
        EXPECT_EQ(layout.button(button), expected.button(button));
}

TEST(RegionOverlayBarsTest, ControlsOverABarThatKeepsTheClicksAreMovedOffItByTheLeast)
{
    constexpr Rect belowTheBar{0, 0, 1512, 950};
    const RegionOverlayLayout layout = layoutBesideBars(belowTheBar, {300, 582, 640, 400});
    EXPECT_EQ(layout.handle().maxY(), 950);
    EXPECT_EQ(layout.button(FrameButton::close).maxY(), 950);
    EXPECT_EQ(layout.button(FrameButton::settings).maxY(), 922) << "the buttons keep their distances";
    EXPECT_EQ(layout.button(FrameButton::record).maxY(), 894);
    EXPECT_EQ(layout.recordingBackground()->minY(), layout.handle().minY()) << "the time goes with the handle";
    EXPECT_EQ(layout.borderOuter(), layoutWithoutBars({300, 582, 640, 400}).borderOuter())
        << "nobody clicks on the border";
    const RegionOverlayLayout usual = layoutWithoutBars({300, 582, 640, 400});
    EXPECT_EQ(layout.handle().x, usual.handle().x);
    EXPECT_EQ(layout.button(FrameButton::close).x, usual.button(FrameButton::close).x);
    EXPECT_EQ(layout.resizeButton(), usual.resizeButton());
    EXPECT_EQ(layout.buttonAt({usual.button(FrameButton::close).midX(), 939}), FrameButton::close);
    EXPECT_EQ(layout.buttonAt({usual.button(FrameButton::close).midX(), 970}), std::nullopt);
}

TEST(RegionOverlayBarsTest, ControlsThatOnlyReachIntoABarAreMovedByThatMuch)
{
    // The region ends below the bar; what sits on its upper border reaches 13 or 14 points above it.
    const RegionOverlayLayout layout = layoutBesideBars({0, 0, 1512, 950}, {300, 540, 640, 400});
    EXPECT_EQ(layout.handle().maxY(), 950);
    EXPECT_EQ(layout.button(FrameButton::close).maxY(), 950);
}

TEST(RegionOverlayBarsTest, ControlsBesideNoBarStayWhereTheyAreUpToTheScreensEdge)
{
    constexpr Rect belowTheBar{0, 0, 1512, 950};
    for (const Rect& region : {Rect{300, 200, 640, 400}, Rect{866, 5, 640, 400}, Rect{0, 0, 1512, 900}})
        expectSamePlaces(layoutBesideBars(belowTheBar, region), layoutWithoutBars(region));
    const Rect atTheTop{300, 582, 640, 400};
    expectSamePlaces(layoutBesideBars(screen, atTheTop), layoutWithoutBars(atTheTop));
}

TEST(RegionOverlayBarsTest, TheResizeButtonIsMovedOffBarsBelowAndAtTheRight)
{
    const RegionOverlayLayout layout = layoutBesideBars({0, 40, 1450, 942}, {872, 0, 640, 400});
    EXPECT_EQ(layout.resizeButton(), (Rect{1428, 40, 22, 22}));
    EXPECT_EQ(layout.button(FrameButton::close).x, 1428);
}

TEST(RegionOverlayBarsTest, ControlsAreMovedOffABarAtTheLeft)
{
    constexpr Rect besideTheBar{60, 0, 1452, 982};
    const Rect narrow{5, 300, 50, 200};
    const RegionOverlayLayout usual = layoutWithoutBars(narrow);
    ASSERT_LT(usual.handle().x, 60);
    ASSERT_LT(usual.resizeButton().x, 60);
    const RegionOverlayLayout layout = layoutBesideBars(besideTheBar, narrow);
    EXPECT_EQ(layout.handle(), (Rect{60, usual.handle().y, usual.handle().width, usual.handle().height}));
    EXPECT_EQ(layout.resizeButton(), (Rect{60, usual.resizeButton().y, 22, 22}));
    EXPECT_EQ(layout.button(FrameButton::close).x, 60);
    const Rect apart{300, 300, 640, 200};
    expectSamePlaces(layoutBesideBars(besideTheBar, apart), layoutWithoutBars(apart));
}

TEST(RegionOverlayBarsTest, ButtonsAreNotMovedUpOutOfTheWindow)
{
    const Rect low{300, 0, 640, 50};
    EXPECT_EQ(layoutBesideBars({0, 40, 1512, 942}, low).button(FrameButton::close),
              layoutWithoutBars(low).button(FrameButton::close));
}

} // namespace
} // namespace nimbrale
