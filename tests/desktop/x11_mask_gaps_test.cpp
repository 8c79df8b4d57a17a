// Moments in which what the capture knows of panels and what the screen shows are far apart: no picture shows a panel.

#include "platform/x11/capture/change_collector.h"
#include "tests/desktop/masked_capture_fixture.h"
#include "tests/support/window_requests.h"

#include <memory>
#include <semaphore>
#include <string>
#include <utility>

namespace nimbrale::test {
namespace {

constexpr QPoint first(200, 150);
constexpr QPoint second(420, 300);
/// Well within the time for which a place is held that nobody proves to be left.
constexpr Milliseconds whileNothingIsPainted{1300};

class X11MaskGapsTest : public X11MaskedCaptureTest {
protected:
    [[nodiscard]] int ownPixelsAt(QPoint corner) const { return ownPixels(desktop->screenshot({corner, panelSize})); }
    static constexpr int wholePanel = panelSize.width() * panelSize.height();

    static void startOn(CapturedDesktop& later)
    {
        later.start({double(region.x()), double(region.y()), double(region.width()), double(region.height())});
    }
};

TEST_P(X11MaskGapsTest, APanelWhoseNewsComeWithTheStartOfACaptureIsInNoPicture)
{
    CapturedDesktop later(*desktop);
    const auto owner = std::move(*x11::Connection::open(desktop->displayName()));
    const xcb_window_t panel = owner->newId();
    later.painted().set(panel, x11::PixelRegion(0, 0, panelSize.width(), panelSize.height()));
    bool isShown = false;
    // Until the start has been asked for; what follows keeps the thread from the panel's news up to that.
    later.engine().post([] { sleepFor(Milliseconds{300}); });
    later.engine().post([&] {
        const std::uint32_t values[] = {ownColor.rgb() & RGB_MASK, 1};
        xcb_create_window(owner->get(), XCB_COPY_FROM_PARENT, panel, owner->root(), std::int16_t(first.x()),
                          std::int16_t(first.y()), std::uint16_t(panelSize.width()), std::uint16_t(panelSize.height()),
                          0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        xcb_map_window(owner->get(), panel);
        owner->synchronize();
        isShown = waitUntil([&] { return ownPixelsAt(first) == wholePanel; }, Milliseconds{3000});
    });
    watch.watch(later);
    startOn(later);
    EXPECT_TRUE(isShown) << "the control: the screen shows the panel";
    later.pumpFor(Milliseconds{500});
    later.onFrame = nullptr;
    watch.expectNoneFound(1);
}

TEST_P(X11MaskGapsTest, APanelThatACompositorWithoutTimeShowsAtTheStartOfACaptureIsInNoPicture)
{
    CapturedDesktop later(*desktop);
    const xcb_window_t panel = makePanel(first);
    later.painted().set(panel, x11::PixelRegion(0, 0, panelSize.width(), panelSize.height()));
    waitUntilStill();
    ASSERT_TRUE(desktop->pauseCompositor());
    movePanel(panel, second);
    captured->connection().synchronize();
    later.pumpFor(Milliseconds{100});
    int stillShown = 0;
    later.mainQueue().postAfter(whileNothingIsPainted, [&] {
        stillShown = ownPixelsAt(first);
        desktop->resumeCompositor();
    });
    watch.watch(later);
    startOn(later);
    EXPECT_TRUE(later.pumpUntil([&] { return ownPixelsAt(second) == wholePanel; }));
    later.pumpFor(Milliseconds{500});
    EXPECT_EQ(stillShown, wholePanel) << "the control";
    later.onFrame = nullptr;
    watch.expectNoneFound(1);
}

TEST_P(X11MaskGapsTest, APanelThatIsStillShownWhenAnotherCompositorTakesOverIsInNoPicture)
{
    const xcb_window_t panel = makePanel(first);
    captured->settle();
    watch.watch(*captured);
    ASSERT_TRUE(desktop->pauseCompositor());
    movePanel(panel, second);
    captured->connection().synchronize();
    captured->pumpFor(Milliseconds{100});
    const auto successor = std::move(*x11::Connection::open(desktop->displayName()));
    const xcb_window_t manager = successor->newId();
    xcb_create_window(successor->get(), XCB_COPY_FROM_PARENT, manager, successor->root(), -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
    xcb_set_selection_owner(successor->get(), manager, successor->atom("_NET_WM_CM_S0"), XCB_CURRENT_TIME);
    successor->synchronize();
    const int before = watch.pictures();
    captured->pumpFor(whileNothingIsPainted);
    const int stillShown = ownPixelsAt(first);
    desktop->resumeCompositor();
    EXPECT_EQ(stillShown, wholePanel) << "the control: the one before has not gone yet";
    EXPECT_TRUE(captured->pumpUntil([&] { return ownPixelsAt(first) == 0; }, 5000));
    EXPECT_TRUE(captured->pumpUntil([&] { return watch.pictures() > before; })) << "sharing goes on";
    captured->onFrame = nullptr;
    watch.expectNoneFound(1);
}

TEST_P(X11MaskGapsTest, APanelThatGoesAndComesBackElsewhereBeforeAnybodyHearsOfItIsInNoPicture)
{
    const xcb_window_t panel = makePanel(first);
    captured->settle();
    watch.watch(*captured);
    for (int round = 0; round < 20; ++round) {
        const QPoint corner = round % 2 ? first : second;
        captured->engine().post([] { sleepFor(Milliseconds{80}); });
        xcb_unmap_window(captured->connection().get(), panel);
        movePanel(panel, corner);
        xcb_map_window(captured->connection().get(), panel);
        captured->connection().flush();
        for (int step = 0; step < 10; ++step) {
            scene->fill("upper", {10 + 20 * step, 20 + round, 30, 30}, QColor(20 * step, 200, 40));
            captured->pumpFor(Milliseconds{20});
        }
        EXPECT_TRUE(captured->pumpUntil([&] { return ownPixelsAt(corner) == wholePanel; })) << "the control";
    }
    captured->onFrame = nullptr;
    watch.expectNoneFound(50);
}

TEST_P(X11MaskGapsTest, AnOwnWindowThatComesAndGoesWithItsWorkspaceIsInNoPicture)
{
    const WindowRequests requests(*desktop);
    requests.setWorkspaceCount(2);
    const QRect place(200, 150, 300, 200);
    (void)makeOwnWindow(place, false);
    const auto isShown = [&](bool isWanted) {
        return captured->pumpUntil([&] { return (ownPixels(desktop->screenshot(place)) > 1000) == isWanted; }, 5000);
    };
    ASSERT_TRUE(isShown(true));
    // On all workspaces, as the frame is.
    (void)makePanel({550, 400});
    captured->settle();
    watch.watch(*captured);
    for (std::uint32_t round = 0; round < 4; ++round) {
        requests.switchToWorkspace(round % 2 == 0 ? 1 : 0);
        EXPECT_TRUE(isShown(round % 2 != 0)) << "the control";
        const int pictures = watch.pictures();
        captured->pumpFor(Milliseconds{1000});
        EXPECT_TRUE(captured->pumpUntil([&] { return watch.pictures() > pictures; }, 5000)) << "it goes on";
    }
    captured->onFrame = nullptr;
    watch.expectNoneFound(4);
}

TEST_P(X11MaskGapsTest, AnOwnWindowThatItsManagerPutsElsewhereIsInNoPicture)
{
    const WindowRequests requests(*desktop);
    const xcb_window_t own = makeOwnWindow({230, 190, 140, 100}, false);
    const auto shownAt = [&](QPoint corner) {
        return ownPixels(desktop->screenshot({corner + QPoint(20, 40), QSize(100, 50)})) == 5000;
    };
    ASSERT_TRUE(captured->pumpUntil([&] { return shownAt({230, 190}); }, 5000));
    // The same for all workspaces, as the frame is.
    (void)makePanel({550, 120});
    captured->settle();
    watch.watch(*captured);
    constexpr int rounds = 20;
    for (int round = 0; round < rounds; ++round) {
        const QPoint corner = round % 2 == 0 ? QPoint(520, 380) : QPoint(230, 190);
        // Other windows give the capture something to do at whatever moment the window jumps.
        for (int step = 0; step < 3 + round % 7; ++step) {
            scene->fill("lower", {5 + 10 * step, 5 + round, 8, 8}, QColor(20 * step, 90, 40));
            captured->pumpFor(Milliseconds{7});
        }
        requests.putAt(own, corner);
        for (int step = 0; step < 20; ++step) {
            scene->fill("lower", {200 + 4 * step, 5 + round, 8, 8}, QColor(10 * step, 90, 140));
            captured->pumpFor(Milliseconds{5});
        }
        ASSERT_TRUE(captured->pumpUntil([&] { return shownAt(corner); }, 5000)) << "the control";
    }
    captured->onFrame = nullptr;
    watch.expectNoneFound(rounds);
}

/// A panel that the screen shows before the capture has heard of it, and goes on showing.
class X11UnheardPanelTest : public X11MaskGapsTest {
protected:
    void SetUp() override
    {
        X11MaskGapsTest::SetUp();
        waitUntilStill();
        watch.watch(*captured);
        captured->engine().post([this] { heard.acquire(); });
        panel = makePanel(first);
        ASSERT_TRUE(desktop->pauseCompositor());
    }

    void TearDown() override
    {
        heard.release();
        X11MaskGapsTest::TearDown();
    }

    void expectNothingOfItOnceItIsHeardOf()
    {
        captured->connection().synchronize();
        heard.release();
        const int before = watch.pictures();
        captured->pumpFor(whileNothingIsPainted / 2);
        // A picture is drawn although the screen does not change.
        captured->updateRegion(
            {double(region.x()), double(region.y()), double(region.width()), double(region.height()) - 1});
        captured->pumpFor(whileNothingIsPainted / 2);
        const int stillShown = ownPixelsAt(first);
        desktop->resumeCompositor();
        EXPECT_EQ(stillShown, wholePanel) << "the control";
        EXPECT_TRUE(captured->pumpUntil([&] { return ownPixelsAt(first) == 0; }));
        captured->pumpFor(Milliseconds{500});
        captured->onFrame = nullptr;
        watch.expectNoneFound(before + 1);
    }

    std::binary_semaphore heard{0};
    xcb_window_t panel = XCB_NONE;
};

TEST_P(X11UnheardPanelTest, ThatHasGoneIsInNoPicture)
{
    xcb_unmap_window(captured->connection().get(), panel);
    expectNothingOfItOnceItIsHeardOf();
}

TEST_P(X11UnheardPanelTest, ThatHasMovedOnIsInNoPicture)
{
    movePanel(panel, second);
    expectNothingOfItOnceItIsHeardOf();
}

INSTANTIATE_TEST_SUITE_P(, X11UnheardPanelTest, everyCompositingManager,
                         [](const auto& managers) { return std::string(managers.param.name); });

INSTANTIATE_TEST_SUITE_P(, X11MaskGapsTest, everyCompositingManager,
                         [](const auto& managers) { return std::string(managers.param.name); });

} // namespace
} // namespace nimbrale::test
