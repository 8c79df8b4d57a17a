// Compositing managers that have no time for longer than anybody waits for them.

#include "tests/desktop/masked_capture_fixture.h"

#include <string>

namespace nimbrale::test {
namespace {

constexpr QPoint first(200, 150);
constexpr QPoint second(420, 300);
/// Well beyond the time for which a place is held, and the patience after that.
constexpr Milliseconds beyondPatience =
    x11::HeldPlaces::longestLag + x11::HeldPlaces::longestPatience + Milliseconds{1250};

class X11MaskPatienceTest : public X11MaskedCaptureTest {
protected:
    void TearDown() override
    {
        if (desktop)
            desktop->resumeCompositor();
        X11MaskedCaptureTest::TearDown();
    }

    [[nodiscard]] int ownPixelsAt(QPoint corner) const { return ownPixels(desktop->screenshot({corner, panelSize})); }

    /// Pictures are drawn although the screen does not change.
    void drawAnew(int height)
    {
        captured->updateRegion({double(region.x()), double(region.y()), double(region.width()), double(height)});
    }

    void watchBeyondPatience()
    {
        waitUntilStill();
        captured->settle();
        watch.watch(*captured);
        ASSERT_TRUE(desktop->pauseCompositor());
    }

    void expectNothingOnceItGoesOn()
    {
        captured->pumpFor(beyondPatience);
        const int before = watch.pictures();
        drawAnew(region.height() - 1);
        EXPECT_GT(watch.pictures(), before) << "sharing goes on";
        EXPECT_GT(ownPixelsAt(first), panelSize.width() * panelSize.height() * 9 / 10)
            << "the control: the screen still shows it there";
        desktop->resumeCompositor();
        EXPECT_TRUE(captured->pumpUntil([&] { return ownPixelsAt(first) == 0; }, 8000));
        // In the end the picture is as the screen.
        const QRect left({first.x() - region.x(), first.y() - region.y()}, panelSize);
        EXPECT_TRUE(captured->pumpUntil(
            [&] {
                return captured->image().copy(left) == desktop->screenshot({first, panelSize});
            },
            10'000));
        captured->onFrame = nullptr;
        watch.expectNoneFound(1);
    }
};

TEST_P(X11MaskPatienceTest, APanelThatIsShownWhereItWasForLongerThanAnyPatienceIsInNoPicture)
{
    const xcb_window_t panel = makePanel(first);
    watchBeyondPatience();
    movePanel(panel, second);
    expectNothingOnceItGoesOn();
}

// Nothing is left in which a proof could be lit.
TEST_P(X11MaskPatienceTest, TheLastPanelThatIsShownForLongAfterItHasGoneIsInNoPicture)
{
    const xcb_window_t panel = makePanel(first);
    watchBeyondPatience();
    xcb_destroy_window(captured->connection().get(), panel);
    captured->connection().flush();
    expectNothingOnceItGoesOn();
}

INSTANTIATE_TEST_SUITE_P(, X11MaskPatienceTest, everyCompositingManager,
                         [](const auto& managers) { return std::string(managers.param.name); });

} // namespace
} // namespace nimbrale::test
