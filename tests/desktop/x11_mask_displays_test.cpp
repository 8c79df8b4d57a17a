// Displays go or shrink while panels stand or move on them: no picture of what is left shows anything of them.

#include "tests/desktop/painted_panels_fixture.h"

#include <string>

namespace nimbrale::test {
namespace {

using x11::PixelRegion;

constexpr QRect leftDisplay(0, 0, 1280, 720);
constexpr QRect rightDisplay(1280, 0, 640, 720);
constexpr QSize size(160, 120);

class X11MaskDisplaysTest : public PaintedPanelsTest {
protected:
    void arrange(const std::vector<QRect>& displays)
    {
        EXPECT_TRUE(desktop->arrangeOutputs(displays));
        QRect whole;
        for (const QRect& display : displays)
            whole |= display;
        EXPECT_TRUE(captured->pumpUntil([&] { return desktop->screenSize() == whole.size(); }));
        repaint();
    }
    /// The server keeps no pixels of them when the screen gets another size.
    void repaint()
    {
        for (const auto& panel : painted)
            panel->repaint();
        flush();
    }
};

TEST_P(X11MaskDisplaysTest, PanelsThatStandOrMoveWhileTheirDisplayGoesAreInNoPicture)
{
    const PixelRegion whole(0, 0, size.width(), size.height());
    const PixelRegion lower(0, 60, size.width(), 60);
    arrange({leftDisplay, rightDisplay});
    PaintedPanel& standing = addPanel({QPoint(200, 150), size}, whole);
    PaintedPanel& moving = addPanel({QPoint(1400, 200), size}, lower);
    beginWatch();
    for (int round = 0; round < 3; ++round) {
        {
            const Slowdown slowdown(*desktop, round == 1);
            arrange({leftDisplay});
            // As the product does: it hears of the change, and brings the panel back.
            moving.setPlace({QPoint(420, 300), size});
            standing.setPlace(standing.place().translated(round % 2 == 0 ? 20 : -20, 10));
            flush();
            pumpBusily(8);
        }
        pumpBusily(50);
        expectShown(moving);
        arrange({leftDisplay, rightDisplay});
        moving.setPlace({QPoint(1400, 200), size});
        flush();
        pumpBusily(50);
        expectShown(moving);
    }
    expectShown(standing);
    expectNothing(8);
}

/// KWin goes on showing all of the screen moved by the difference, panels included, for longer than a second after the
/// height has changed, and paints in their right place meanwhile what is drawn, the proof among it.
class X11MaskShrinkingDisplayTest : public X11MaskDisplaysTest {};

TEST_P(X11MaskShrinkingDisplayTest, PanelsThatStandOrMoveWhileTheirDisplayShrinksAreInNoPicture)
{
    constexpr QRect smaller(0, 0, 1000, 600);
    const PixelRegion whole(0, 0, size.width(), size.height());
    PaintedPanel& standing = addPanel({QPoint(200, 150), size}, whole);
    PaintedPanel& moving = addPanel({QPoint(500, 380), size}, whole);
    beginWatch();
    const auto draw = [this](int height) {
        captured->updateRegion({double(region.x()), double(region.y()), double(region.width()), double(height)});
    };
    for (int round = 0; round < 3; ++round) {
        for (const QRect& display : {smaller, leftDisplay}) {
            {
                const Slowdown slowdown(*desktop, round == 1);
                arrange({display});
                moving.setPlace({display == smaller ? QPoint(400, 130) : QPoint(500, 380), size});
                flush();
                pumpBusily(6);
            }
            // The place of the region is computed anew.
            draw(display == smaller ? region.height() - 1 : region.height());
            pumpBusily(30);
            expectShown(moving);
        }
    }
    expectShown(standing);
    expectNothing(20);
}

// As for a virtual display whose size changes: KWin moves nothing then.
TEST_P(X11MaskDisplaysTest, PanelsAreInNoPictureWhileTheScreenGrowsAndShrinksBesideTheDisplays)
{
    const PixelRegion whole(0, 0, size.width(), size.height());
    arrange({leftDisplay});
    const PaintedPanel& standing = addPanel({QPoint(200, 150), size}, whole);
    ASSERT_TRUE(desktop->resizeScreen({2000, 1000}));
    repaint();
    pumpBusily(40);
    beginWatch();
    for (const int height : {1060, 1000, 1120, 1000}) {
        ASSERT_TRUE(desktop->resizeScreen({1000 + height, height}));
        repaint();
        pumpBusily(50);
    }
    expectShown(standing);
    expectNothing(4);
}

INSTANTIATE_TEST_SUITE_P(
    , X11MaskShrinkingDisplayTest,
    testing::Values(Managers{"Picom", Managers::WindowManager::openbox, Managers::Compositor::picom},
                    Managers{"PicomGlx", Managers::WindowManager::openbox, Managers::Compositor::picomGlx},
                    Managers{"Marco", Managers::WindowManager::marco, Managers::Compositor::windowManagersOwn},
                    Managers{"Xfwm4", Managers::WindowManager::xfwm4, Managers::Compositor::windowManagersOwn},
                    Managers{"Mutter", Managers::WindowManager::mutter, Managers::Compositor::windowManagersOwn}),
    [](const auto& managers) { return std::string(managers.param.name); });

INSTANTIATE_TEST_SUITE_P(, X11MaskDisplaysTest, everyCompositingManager,
                         [](const auto& managers) { return std::string(managers.param.name); });

} // namespace
} // namespace nimbrale::test
