#include "platform/x11/displays/x11_screens.h"

#include "tests/desktop/displays_host.h"

#include <gmock/gmock.h>

namespace nimbrale::test {

namespace {

class ScreensTest : public DisplaysTest {
protected:
    [[nodiscard]] x11::X11Screens& screens() { return *host_->screens; }

    [[nodiscard]] Screen named(const std::string& name)
    {
        for (const Screen& screen : screens().screens()) {
            if (screen.name == name)
                return screen;
        }
        ADD_FAILURE() << "no screen named " << name;
        return {};
    }

    /// A panel's window as docks are, with the struts that it reserves.
    xcb_window_t showPanel(const QRect& place, const std::array<std::uint32_t, 12>& struts)
    {
        xcb_connection_t* const raw = desktop_->connection();
        const xcb_window_t window = xcb_generate_id(raw);
        xcb_create_window(raw, XCB_COPY_FROM_PARENT, window, desktop_->screen().root,
                          static_cast<std::int16_t>(place.x()), static_cast<std::int16_t>(place.y()),
                          static_cast<std::uint16_t>(place.width()), static_cast<std::uint16_t>(place.height()), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        const xcb_atom_t dock = atom("_NET_WM_WINDOW_TYPE_DOCK");
        xcb_change_property(raw, XCB_PROP_MODE_REPLACE, window, atom("_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM, 32, 1,
                            &dock);
        reserve(window, struts);
        xcb_map_window(raw, window);
        desktop_->synchronize();
        return window;
    }

    void reserve(xcb_window_t window, const std::array<std::uint32_t, 12>& struts)
    {
        xcb_change_property(desktop_->connection(), XCB_PROP_MODE_REPLACE, window, atom("_NET_WM_STRUT_PARTIAL"),
                            XCB_ATOM_CARDINAL, 32, 12, struts.data());
        desktop_->synchronize();
    }

    [[nodiscard]] xcb_atom_t atom(const std::string& name) { return host_->connection->atom(name); }
};

TEST_F(ScreensTest, OneDisplayIsTheMainOneAndStartsAtTheOrigin)
{
    start({.width = 1280, .height = 720});
    ASSERT_EQ(screens().screens().size(), 1U);
    const Screen screen = screens().screens().front();
    EXPECT_EQ(screen.frame, (Rect{0, 0, 1280, 720}));
    EXPECT_EQ(screen.visibleFrame, screen.frame);
    EXPECT_EQ(screen.backingScaleFactor, 1);
    EXPECT_EQ(screen.name, "VNC-0");
    EXPECT_NE(screen.displayID, 0U);
    EXPECT_EQ(screens().mainDisplay(), screen.displayID);
}

TEST_F(ScreensTest, AnIdentifierIsTheSameAfterARestart)
{
    start({});
    const DisplayID before = screens().mainDisplay();
    host_.reset();
    host_ = std::make_unique<DisplaysHost>(*desktop_);
    EXPECT_EQ(screens().mainDisplay(), before);
}

TEST_F(ScreensTest, APluggedInDisplayIsToldWithItsPlace)
{
    start({.width = 1280, .height = 720});
    int changes = 0;
    const Subscription subscription = screens().observeChanges([&changes] { ++changes; });
    ASSERT_TRUE(desktop_->arrangeOutputs({{0, 0, 1280, 720}, {1280, 0, 800, 600}}));
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return screens().screens().size() == 2; }));
    EXPECT_GT(changes, 0);
    // Its top is level with the main screen's, so its bottom lies 120 points above the origin.
    EXPECT_EQ(named("VNC-1").frame, (Rect{1280, 120, 800, 600}));
    EXPECT_EQ(screens().space().pixelsOf({1280, 120, 800, 600}), (PixelRect{1280, 0, 800, 600}));
    EXPECT_EQ(screens().space().pointOf({1280, 600}), (Point{1280, 120}));

    desktop_->unplug("VNC-1");
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return screens().screens().size() == 1; }));
}

TEST_F(ScreensTest, ThePrimaryDisplayIsTheOriginWhereverItLies)
{
    start({.width = 1280, .height = 720});
    ASSERT_TRUE(desktop_->arrangeOutputs({{0, 0, 1280, 720}, {1280, 0, 800, 600}}));
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return screens().screens().size() == 2; }));
    desktop_->run("xrandr", {"--output", "VNC-1", "--primary"});
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return named("VNC-1").frame == Rect{0, 0, 800, 600}; }));
    EXPECT_EQ(named("VNC-0").frame, (Rect{-1280, -120, 1280, 720}));
    EXPECT_EQ(screens().mainDisplay(), named("VNC-1").displayID);
    EXPECT_EQ(screens().space().pixelsOf({-1280, -120, 10, 20}), (PixelRect{0, 700, 10, 20}));
}

TEST_F(ScreensTest, DotsPerInchScaleAllRealDisplays)
{
    start({.width = 1280, .height = 720, .dotsPerInch = 144});
    const Screen screen = screens().screens().front();
    EXPECT_EQ(screen.backingScaleFactor, 1.5);
    EXPECT_EQ(screen.frame, (Rect{0, 0, 1280 / 1.5, 480}));
    EXPECT_EQ(screens().space().pixelsOf({100, 100, 200, 80}), (PixelRect{150, 450, 300, 120}));
    EXPECT_EQ(screens().space().scaleAt({0, 0, 10, 10}), 1.5);
    desktop_->movePointer({150, 450});
    EXPECT_EQ(screens().mouseLocation(), (Point{100, 180}));
}

TEST_F(ScreensTest, TheOwnMonitorHasScaleOneAndIsNeverTheMainDisplay)
{
    start({.width = 1280, .height = 720, .dotsPerInch = 192});
    ASSERT_TRUE(desktop_->resizeScreen({1280 + 400, 720 + 300}));
    desktop_->setMonitor("Ours", {1280, 720, 400, 300});
    const DisplayID expected = screens().displayIDForMonitor(atom("Ours"));
    screens().setOwnMonitor(atom("Ours"));
    screens().refresh();
    const Screen own = named("Ours");
    EXPECT_EQ(own.displayID, expected);
    EXPECT_EQ(own.backingScaleFactor, 1);
    EXPECT_EQ(own.frame, (Rect{640, -300, 400, 300}));
    EXPECT_EQ(own.visibleFrame, own.frame);
    EXPECT_EQ(screens().mainDisplay(), named("VNC-0").displayID);
    EXPECT_EQ(screens().space().pixelsOf(own.frame), (PixelRect{1280, 720, 400, 300}));
    EXPECT_EQ(screens().space().pixelsOf({650, -10, 20, 5}), (PixelRect{1290, 725, 20, 5}));
    EXPECT_EQ(screens().space().scaleAt(own.frame), 1);
    EXPECT_EQ(screens().space().pointOf({1290, 725}), (Point{650, -5}));
}

TEST_F(ScreensTest, APanelTakesItsPartOfItsOwnDisplayOnly)
{
    start({.width = 1280, .height = 720, .windowManager = PrivateDesktop::WindowManager::openbox});
    ASSERT_TRUE(desktop_->arrangeOutputs({{0, 0, 1280, 720}, {1280, 0, 800, 720}}));
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return screens().screens().size() == 2; }));
    const xcb_window_t panel = showPanel({0, 0, 1280, 30}, {0, 0, 30, 0, 0, 0, 0, 0, 0, 1279, 0, 0});
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return named("VNC-0").visibleFrame == Rect{0, 0, 1280, 690}; }));
    EXPECT_EQ(named("VNC-1").visibleFrame, named("VNC-1").frame);

    reserve(panel, {0, 0, 50, 0, 0, 0, 0, 0, 0, 1279, 0, 0});
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return named("VNC-0").visibleFrame == Rect{0, 0, 1280, 670}; }));

    xcb_destroy_window(desktop_->connection(), panel);
    desktop_->synchronize();
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return named("VNC-0").visibleFrame == named("VNC-0").frame; }));
}

TEST_F(ScreensTest, APanelTakesWholePoints)
{
    start({.width = 1280, .height = 720, .dotsPerInch = 144, .windowManager = PrivateDesktop::WindowManager::openbox});
    showPanel({0, 0, 1280, 32}, {0, 0, 32, 0, 0, 0, 0, 0, 0, 1279, 0, 0});
    // 32 pixels are 21.33 points, of which a stored place, in whole points, knows nothing.
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return named("VNC-0").visibleFrame.maxY() == 480 - 22; }));
    EXPECT_EQ(named("VNC-0").visibleFrame.minY(), 0);
}

TEST_F(ScreensTest, WhileAMouseEventIsDealtWithThePointerIsWhereItHappened)
{
    start({.width = 1280, .height = 720});
    desktop_->movePointer({100, 50});
    {
        const auto held = screens().pointer().hold({30, 20});
        EXPECT_EQ(screens().mouseLocation(), (Point{30, 700}));
    }
    EXPECT_EQ(screens().mouseLocation(), (Point{100, 670}));
}

TEST_F(ScreensTest, ThePartPerDisplayThatAWindowManagerTellsCounts)
{
    start({.width = 1280, .height = 720});
    const std::array<std::uint32_t, 4> area = {0, 27, 1280, 693};
    xcb_change_property(desktop_->connection(), XCB_PROP_MODE_REPLACE, desktop_->screen().root,
                        atom("_GTK_WORKAREAS_D0"), XCB_ATOM_CARDINAL, 32, 4, area.data());
    desktop_->synchronize();
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] {
        return screens().screens().front().visibleFrame == Rect{0, 0, 1280, 693};
    }));
}

TEST_F(ScreensTest, WithoutRandrTheWholeScreenIsOneDisplay)
{
    start({.server = PrivateDesktop::Server::xvfb,
           .width = 900,
           .height = 500,
           .serverArguments = {"-extension", "RANDR"}});
    ASSERT_EQ(host_->connection->randrVersion(), 0);
    ASSERT_EQ(screens().screens().size(), 1U);
    EXPECT_EQ(screens().screens().front().frame, (Rect{0, 0, 900, 500}));
    EXPECT_NE(screens().mainDisplay(), 0U);
    EXPECT_FALSE(host_->virtualDisplays->create(DisplaysHost::descriptor()));
}

TEST_F(ScreensTest, ThePointerIsWhereTheServerSays)
{
    start({.width = 1280, .height = 720});
    desktop_->movePointer({100, 50});
    EXPECT_EQ(screens().mouseLocation(), (Point{100, 670}));
    screens().pointer().didMove();
    desktop_->movePointer({120, 50});
    EXPECT_TRUE(waitUntil(
        [&] {
            return screens().mouseLocation() == Point{120, 670};
        },
        Milliseconds{1000}))
        << "a position that was set without a word is found a little later";
}

} // namespace

} // namespace nimbrale::test
