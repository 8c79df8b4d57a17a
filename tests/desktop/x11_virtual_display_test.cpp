#include "platform/x11/backdrop_card.h"
#include "platform/x11/handles.h"
#include "platform/x11/x11_virtual_displays.h"
#include "tests/desktop/displays_host.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <gmock/gmock.h>
#include <thread>
#include <xcb/composite.h>
#include <xcb/randr.h>

namespace nimbrale::test {

namespace {

using Compositor = PrivateDesktop::Compositor;
using Server = PrivateDesktop::Server;
using WindowManager = PrivateDesktop::WindowManager;

constexpr Milliseconds underASecond{900};

class VirtualDisplayTest : public testing::Test {
protected:
    void start(const PrivateDesktop::Options& options)
    {
        std::string reason;
        desktop_ = PrivateDesktop::start(options, reason);
        if (!desktop_)
            GTEST_SKIP() << reason;
        host_ = std::make_unique<DisplaysHost>(*desktop_);
    }

    void startOnOpenbox() { start({.width = 1280, .height = 720, .windowManager = WindowManager::openbox}); }

    [[nodiscard]] std::unique_ptr<VirtualDisplayDevice> make()
    {
        auto made = host_->virtualDisplays->create(DisplaysHost::descriptor());
        if (!made) {
            ADD_FAILURE() << made.error().message;
            return nullptr;
        }
        (*made)->onUnusable = [this](const Error& error) { unusable_ = error.message; };
        return std::move(*made);
    }

    [[nodiscard]] std::unique_ptr<VirtualDisplayDevice> make(int width, int height)
    {
        auto device = make();
        if (!device)
            return nullptr;
        const auto applied = device->applySettings(DisplaysHost::settings(width, height));
        EXPECT_TRUE(applied) << applied.error().message;
        return device;
    }

    [[nodiscard]] QRect ours() const
    {
        const auto monitor = desktop_->monitorNamed("Nimbrale");
        return monitor ? monitor->geometry : QRect();
    }

    [[nodiscard]] bool isWhole(const QRect& place) const
    {
        const QSize size = desktop_->screenSize();
        return ours() == place && size.width() == place.x() + place.width() &&
               size.height() == place.y() + place.height();
    }

    [[nodiscard]] xcb_randr_output_t primary() const
    {
        xcb_connection_t* const connection = desktop_->connection();
        const x11::Reply<xcb_randr_get_output_primary_reply_t> reply(xcb_randr_get_output_primary_reply(
            connection, xcb_randr_get_output_primary(connection, desktop_->screen().root), nullptr));
        return reply ? reply->output : 0;
    }

    /// A window of this process as the shared screen's is one.
    xcb_window_t showWindow(const PixelRect& place, std::uint32_t color)
    {
        xcb_connection_t* const raw = host_->connection->get();
        const xcb_window_t window = host_->connection->newId();
        const std::array<std::uint32_t, 2> values = {color, 1};
        xcb_create_window(raw, XCB_COPY_FROM_PARENT, window, host_->connection->root(),
                          static_cast<std::int16_t>(place.x), static_cast<std::int16_t>(place.y),
                          static_cast<std::uint16_t>(place.width), static_cast<std::uint16_t>(place.height), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values.data());
        host_->virtualDisplays->area().add(window);
        xcb_map_window(raw, window);
        host_->connection->flush();
        return window;
    }

    [[nodiscard]] bool isVerified() { return host_->virtualDisplays->area().isVerified(); }

    [[nodiscard]] bool shows(const QPoint& place, const QColor& color)
    {
        return DisplaysHost::pumpUntil([&] { return desktop_->pixel(place.x(), place.y()) == color; });
    }

    std::unique_ptr<PrivateDesktop> desktop_;
    std::unique_ptr<DisplaysHost> host_;
    std::string unusable_;
};

TEST_F(VirtualDisplayTest, IsAMonitorWithoutOutputsBeyondTheCornerAndListedSecond)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    auto device = make();
    ASSERT_TRUE(device);
    EXPECT_NE(device->displayID(), 0U);
    ASSERT_TRUE(device->applySettings(DisplaysHost::settings(800, 600)));
    const std::vector<PrivateDesktop::Monitor> monitors = desktop_->monitors();
    ASSERT_EQ(monitors.size(), 2U);
    EXPECT_EQ(monitors[0].name, "VNC-0");
    EXPECT_TRUE(monitors[0].isPrimary);
    EXPECT_EQ(monitors[1].name, "Nimbrale");
    EXPECT_EQ(monitors[1].geometry, QRect(1280, 720, 800, 600));
    EXPECT_EQ(monitors[1].outputCount, 0);
    EXPECT_FALSE(monitors[1].isAutomatic);
    EXPECT_EQ(desktop_->screenSize(), QSize(2080, 1320));
    EXPECT_EQ(host_->virtualDisplays->bounds(device->displayID()), (PixelRect{1280, 720, 800, 600}));
    EXPECT_EQ(host_->screens->mainDisplay(), host_->screens->displayIDForMonitor(host_->connection->atom("VNC-0")));
    const auto screen = findScreen(*host_->screens, device->displayID());
    ASSERT_TRUE(screen);
    EXPECT_EQ(screen->name, "Nimbrale");
    EXPECT_EQ(screen->frame, (Rect{1280, -600, 800, 600}));
}

TEST_F(VirtualDisplayTest, LeavesTheDesktopAsItWas)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    ASSERT_EQ(primary(), 0U);
    auto device = make(800, 600);
    ASSERT_TRUE(device);
    EXPECT_NE(primary(), 0U);
    device.reset();
    EXPECT_EQ(desktop_->monitors().size(), 1U);
    EXPECT_EQ(desktop_->screenSize(), QSize(1280, 720));
    EXPECT_EQ(primary(), 0U);
    EXPECT_EQ(host_->screens->screens().size(), 1U);
    EXPECT_EQ(host_->virtualDisplays->area().pixels(), PixelRect{});

    device = make(640, 480);
    EXPECT_TRUE(isWhole({1280, 720, 640, 480}));
}

TEST_F(VirtualDisplayTest, APrimaryThatTheUserChoseStays)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    desktop_->run("xrandr", {"--output", "VNC-0", "--primary"});
    const xcb_randr_output_t chosen = primary();
    ASSERT_NE(chosen, 0U);
    auto device = make(800, 600);
    EXPECT_EQ(primary(), chosen);
    device.reset();
    EXPECT_EQ(primary(), chosen);
}

TEST_F(VirtualDisplayTest, KeepsTheDotsPerInch)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    const xcb_screen_t& screen = desktop_->screen();
    const double pitch = static_cast<double>(screen.width_in_millimeters) / screen.width_in_pixels;
    auto device = make(1920, 1080);
    const auto connection = std::move(*x11::Connection::open(desktop_->displayName()));
    EXPECT_NEAR(static_cast<double>(connection->screen().width_in_millimeters) / connection->screen().width_in_pixels,
                pitch, pitch * 0.01);
}

TEST_F(VirtualDisplayTest, FollowsEverySizeThatIsAskedFor)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    auto device = make(800, 600);
    ASSERT_TRUE(device->applySettings(DisplaysHost::settings(1000, 700)));
    EXPECT_TRUE(isWhole({1280, 720, 1000, 700}));
    ASSERT_TRUE(device->applySettings(DisplaysHost::settings(301, 201)));
    EXPECT_TRUE(isWhole({1280, 720, 301, 201}));
    EXPECT_EQ(host_->virtualDisplays->bounds(device->displayID()), (PixelRect{1280, 720, 301, 201}));
    DisplaysHost::pumpFor(Milliseconds{300});
    EXPECT_TRUE(isWhole({1280, 720, 301, 201}));
    EXPECT_EQ(unusable_, "");
}

TEST_F(VirtualDisplayTest, RefusesSizesBeyondTheDescriptor)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    auto device = make(800, 600);
    EXPECT_FALSE(device->applySettings(DisplaysHost::settings(7681, 600)));
    EXPECT_FALSE(device->applySettings(DisplaysHost::settings(0, 600)));
    EXPECT_FALSE(device->applySettings({false, {}}));
    EXPECT_TRUE(isWhole({1280, 720, 800, 600}));
}

TEST_F(VirtualDisplayTest, MovesWhereItIsTold)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    auto device = make(800, 600);
    ASSERT_TRUE(device->setOrigin(1400, 800));
    EXPECT_TRUE(isWhole({1400, 800, 800, 600}));
    DisplaysHost::pumpFor(Milliseconds{300});
    EXPECT_TRUE(isWhole({1400, 800, 800, 600}));
    EXPECT_FALSE(device->setOrigin(-1, 0));
    EXPECT_FALSE(device->setOrigin(32000, 800));
    EXPECT_TRUE(isWhole({1400, 800, 800, 600}));
}

TEST_F(VirtualDisplayTest, ComesBackAfterAnotherProgramArrangedTheDisplays)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    auto device = make(800, 600);
    DisplaysHost::pumpFor(Milliseconds{200});
    desktop_->run("xrandr", {"--output", "VNC-0", "--primary"});
    ASSERT_EQ(desktop_->screenSize(), QSize(1280, 720));
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return isWhole({1280, 720, 800, 600}); }, underASecond));
    DisplaysHost::pumpFor(Milliseconds{300});
    EXPECT_TRUE(isWhole({1280, 720, 800, 600}));
    EXPECT_EQ(unusable_, "");
}

TEST_F(VirtualDisplayTest, ComesBackAfterAnotherProgramRemovedIt)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    auto device = make(800, 600);
    desktop_->deleteMonitor("Nimbrale");
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return isWhole({1280, 720, 800, 600}); }, underASecond));
}

TEST_F(VirtualDisplayTest, FindsANewPrimaryWhenNoneIsLeft)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    auto device = make(800, 600);
    desktop_->run("xrandr", {"--noprimary"});
    EXPECT_TRUE(DisplaysHost::pumpUntil(
        [&] {
            return primary() != 0 && isWhole({1280, 720, 800, 600});
        },
        underASecond));
    EXPECT_EQ(desktop_->monitors().front().name, "VNC-0");
}

TEST_F(VirtualDisplayTest, GivesUpAgainstAProgramThatKeepsShrinkingTheScreen)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    auto device = make(800, 600);
    const bool gaveUp = DisplaysHost::pumpUntil(
        [&] {
            if (desktop_->screenSize() != QSize(1280, 720))
                static_cast<void>(desktop_->resizeScreen({1280, 720}));
            return !unusable_.empty();
        },
        Milliseconds{4000});
    EXPECT_TRUE(gaveUp);
    EXPECT_FALSE(device->applySettings(DisplaysHost::settings(900, 600)));
    device.reset();
    EXPECT_EQ(desktop_->monitors().size(), 1U);
}

TEST_F(VirtualDisplayTest, MakesRoomForADisplayThatIsPluggedIn)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    auto device = make(800, 600);
    int changes = 0;
    const Subscription subscription = host_->screens->observeChanges([&changes] { ++changes; });
    // Over the corner where ours is.
    ASSERT_TRUE(desktop_->arrangeOutputs({{0, 0, 1280, 720}, {1280, 400, 1024, 768}}));
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return isWhole({2304, 1168, 800, 600}); }, underASecond));
    EXPECT_GT(changes, 0);
    EXPECT_EQ(host_->virtualDisplays->bounds(device->displayID()), (PixelRect{2304, 1168, 800, 600}));
    EXPECT_EQ(host_->virtualDisplays->area().pixels(), (PixelRect{2304, 1168, 800, 600}));

    desktop_->unplug("VNC-1");
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return isWhole({1280, 720, 800, 600}); }, underASecond));
    device.reset();
    EXPECT_EQ(desktop_->screenSize(), QSize(1280, 720));
    EXPECT_EQ(unusable_, "");
}

TEST_F(VirtualDisplayTest, ThePointerStaysOutEvenAcrossAGap)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    // Displays that touch nowhere let the pointer float between them.
    ASSERT_TRUE(desktop_->arrangeOutputs({{0, 0, 800, 600}, {1000, 0, 280, 720}}));
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return host_->screens->screens().size() == 2; }));
    auto device = make(800, 600);
    ASSERT_TRUE(isWhole({1280, 720, 800, 600}));
    DisplaysHost::pumpFor(Milliseconds{200});
    desktop_->movePointer({1200, 700});
    for (int step = 0; step < 40; ++step)
        desktop_->run("xdotool", {"mousemove_relative", "--", "15", "7"});
    const QPoint pointer = desktop_->pointerPosition();
    EXPECT_FALSE(QRect(1280, 720, 800, 600).contains(pointer)) << pointer.x() << "," << pointer.y();
}

TEST_F(VirtualDisplayTest, ALivingOneOfAnotherProcessIsLeftAlone)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    auto device = make(800, 600);
    const DisplaysHost other(*desktop_);
    EXPECT_TRUE(isWhole({1280, 720, 800, 600}));
    const auto second = other.virtualDisplays->create(DisplaysHost::descriptor());
    ASSERT_FALSE(second);
    EXPECT_THAT(second.error().message, testing::HasSubstr("Another running Nimbrale"));
    EXPECT_TRUE(isWhole({1280, 720, 800, 600}));
    device.reset();
    EXPECT_TRUE(other.virtualDisplays->create(DisplaysHost::descriptor()));
}

TEST_F(VirtualDisplayTest, WhatAKilledProcessLeftIsRemovedByTheNextOne)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    host_.reset();
    const auto child = desktop_->spawn(buildFolder() / "x11_virtual_display_test",
                                       {"--gtest_filter=ProcessThatIsKilled.*", "--gtest_also_run_disabled_tests"});
    ASSERT_TRUE(child);
    ASSERT_TRUE(waitUntil([&] { return isWhole({1280, 720, 800, 600}); }, Milliseconds{5000}));
    ASSERT_NE(primary(), 0U);
    child->signal(SIGKILL);
    ASSERT_TRUE(child->waitForEnd(Milliseconds{3000}));
    ASSERT_EQ(desktop_->monitors().size(), 2U);

    host_ = std::make_unique<DisplaysHost>(*desktop_);
    EXPECT_EQ(desktop_->monitors().size(), 1U);
    EXPECT_EQ(desktop_->screenSize(), QSize(1280, 720));
    EXPECT_EQ(primary(), 0U);
    EXPECT_EQ(host_->screens->screens().size(), 1U);
}

// Not a test: what the one above starts and kills.
TEST(ProcessThatIsKilled, DISABLED_HasAVirtualDisplay)
{
    const DisplaysHost host{std::string()};
    const auto device = host.virtualDisplays->create(DisplaysHost::descriptor());
    ASSERT_TRUE(device);
    ASSERT_TRUE((*device)->applySettings(DisplaysHost::settings(800, 600)));
    DisplaysHost::pumpFor(Milliseconds{60'000});
}

TEST_F(VirtualDisplayTest, AnotherProgramsMonitorIsNoLeftover)
{
    start({.width = 1280, .height = 720});
    if (IsSkipped())
        return;
    ASSERT_TRUE(desktop_->resizeScreen({1280 + 500, 720}));
    desktop_->setMonitor("Extra", {1280, 0, 500, 720});
    auto device = make(800, 600);
    EXPECT_TRUE(isWhole({1780, 720, 800, 600}));
    device.reset();
    EXPECT_TRUE(desktop_->monitorNamed("Extra"));
    EXPECT_EQ(desktop_->screenSize(), QSize(1780, 720));
}

TEST_F(VirtualDisplayTest, AServerThatCannotGrowIsSaidToBeUnfit)
{
    start({.server = Server::xvfb, .width = 1280, .height = 720});
    if (IsSkipped())
        return;
    const auto made = host_->virtualDisplays->create(DisplaysHost::descriptor());
    ASSERT_FALSE(made);
    EXPECT_EQ(made.error().code, ErrorCode::unsupported);
    EXPECT_EQ(desktop_->monitors().size(), 1U);
    EXPECT_EQ(desktop_->screenSize(), QSize(1280, 720));
    EXPECT_EQ(primary(), 0U);
    EXPECT_EQ(host_->screens->screens().size(), 1U);
}

TEST_F(VirtualDisplayTest, ASizeThatTheServerHasNoRoomForEndsIt)
{
    start({.server = Server::xvfb, .width = 1280, .height = 720, .growableTo = QSize(2080, 1320)});
    if (IsSkipped())
        return;
    auto device = make(800, 600);
    EXPECT_TRUE(isWhole({1280, 720, 800, 600}));
    EXPECT_FALSE(device->applySettings(DisplaysHost::settings(801, 600)));
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return !unusable_.empty(); }));
}

TEST_F(VirtualDisplayTest, WorksOnTheServerOfARealDesktop)
{
    start({.server = Server::xorgDummy, .width = 1280, .height = 720, .windowManager = WindowManager::openbox});
    if (IsSkipped())
        return;
    auto device = make(800, 600);
    EXPECT_TRUE(isWhole({1280, 720, 800, 600}));
    EXPECT_TRUE(desktop_->monitors().front().isPrimary);
    desktop_->run("xrandr", {"--output", desktop_->monitors().front().name, "--primary"});
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return isWhole({1280, 720, 800, 600}); }, underASecond));
    device.reset();
    EXPECT_EQ(desktop_->screenSize(), QSize(1280, 720));
    EXPECT_EQ(unusable_, "");
}

TEST_F(VirtualDisplayTest, TheCardIsSeenWhereNoWindowCoversIt)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    auto device = make(1000, 600);
    desktop_->synchronize();
    const QImage seen = desktop_->screenshot({1280, 720, 1000, 600});
    const QImage card = x11::BackdropCard::picture(1000, 600);
    ASSERT_FALSE(card.isNull());
    QImage expected(1000, 600, QImage::Format_RGB32);
    expected.fill(Qt::black);
    for (int y = 0; y < card.height(); ++y) {
        for (int x = 0; x < card.width(); ++x)
            expected.setPixel((1000 - card.width()) / 2 + x, (600 - card.height()) / 2 + y, card.pixel(x, y));
    }
    EXPECT_EQ(seen.convertToFormat(QImage::Format_RGB32), expected);
}

TEST_F(VirtualDisplayTest, TheCardIsTheLastThingSeen)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    auto device = make(800, 600);
    desktop_->setBackground(Qt::red);
    // Something of another program lies over it.
    xcb_connection_t* const raw = desktop_->connection();
    const xcb_window_t window = xcb_generate_id(raw);
    const std::array<std::uint32_t, 2> values = {0xff0000, 1};
    xcb_create_window(raw, XCB_COPY_FROM_PARENT, window, desktop_->screen().root, 1280, 720, 800, 600, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT,
                      values.data());
    xcb_map_window(raw, window);
    ASSERT_TRUE(desktop_->waitForPixel(1300, 740, Qt::red));
    // The picture is read by a second client while the display goes.
    std::vector<QColor> seen;
    std::atomic<bool> isDone = false;
    std::thread viewer([&] {
        while (!isDone) {
            if (desktop_->monitorNamed("Nimbrale"))
                seen.push_back(desktop_->pixel(1300, 740));
            sleepFor(Milliseconds{5});
        }
    });
    device.reset();
    isDone = true;
    viewer.join();
    EXPECT_GE(std::count(seen.begin(), seen.end(), QColor(Qt::black)), 2);
    ASSERT_FALSE(seen.empty());
}

struct Managers {
    const char* name;
    WindowManager windowManager;
    Compositor compositor;
    bool needsOverlay;
};

void PrintTo(const Managers& managers, std::ostream* stream)
{
    *stream << managers.name;
}

class CompositedVirtualDisplayTest : public VirtualDisplayTest, public testing::WithParamInterface<Managers> {
protected:
    void startComposited()
    {
        start({.width = 1280,
               .height = 720,
               .windowManager = GetParam().windowManager,
               .compositor = GetParam().compositor});
        // A compositor owns its selection before it hears of changes of the screen's size.
        sleepFor(Milliseconds{700});
    }
};

TEST_P(CompositedVirtualDisplayTest, WindowsArriveOnTheScreen)
{
    startComposited();
    if (IsSkipped())
        return;
    ASSERT_TRUE(desktop_->isComposited());
    auto device = make(800, 600);
    ASSERT_TRUE(device);
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() || !unusable_.empty(); }));
    ASSERT_EQ(unusable_, "");
    EXPECT_EQ(host_->virtualDisplays->area().usesOverlay(), GetParam().needsOverlay);
    EXPECT_TRUE(shows({1290, 730}, Qt::black));

    const xcb_window_t window = showWindow({1280, 720, 800, 600}, 0x2060c0);
    EXPECT_TRUE(shows({1300, 740}, QColor(0x20, 0x60, 0xc0)));
    EXPECT_TRUE(shows({2070, 1310}, QColor(0x20, 0x60, 0xc0)));
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() || !unusable_.empty(); }));

    // Bigger, as after a drag of the frame: the window follows the display.
    ASSERT_TRUE(device->applySettings(DisplaysHost::settings(1000, 700)));
    const std::array<std::uint32_t, 2> size = {1000, 700};
    xcb_configure_window(host_->connection->get(), window, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                         size.data());
    host_->connection->flush();
    EXPECT_TRUE(shows({2270, 1410}, QColor(0x20, 0x60, 0xc0)));

    // The card comes out again when the window goes.
    host_->virtualDisplays->area().remove(window);
    xcb_destroy_window(host_->connection->get(), window);
    host_->connection->flush();
    EXPECT_TRUE(shows({1300, 740}, Qt::black));
    device.reset();
    EXPECT_FALSE(host_->virtualDisplays->area().usesOverlay());
    EXPECT_EQ(desktop_->screenSize(), QSize(1280, 720));
    EXPECT_EQ(unusable_, "");
}

TEST_P(CompositedVirtualDisplayTest, TheCompositorMayGoAndComeBack)
{
    if (GetParam().windowManager == WindowManager::marco)
        GTEST_SKIP() << "marco's compositor cannot be switched while it runs";
    startComposited();
    if (IsSkipped())
        return;
    auto device = make(800, 600);
    const xcb_window_t window = showWindow({1280, 720, 800, 600}, 0x2060c0);
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() || !unusable_.empty(); }));
    const xcb_window_t other = showWindow({100, 100, 50, 50}, 0x00ff00);
    host_->virtualDisplays->area().remove(other);

    desktop_->stopCompositor();
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() && !desktop_->isComposited(); }));
    EXPECT_FALSE(host_->virtualDisplays->area().usesOverlay());
    EXPECT_TRUE(shows({1300, 740}, QColor(0x20, 0x60, 0xc0)));
    EXPECT_TRUE(shows({110, 110}, QColor(0x00, 0xff, 0x00)));

    desktop_->startCompositor();
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return desktop_->isComposited(); }));
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() || !unusable_.empty(); }));
    EXPECT_EQ(host_->virtualDisplays->area().usesOverlay(), GetParam().needsOverlay);
    EXPECT_TRUE(shows({1300, 740}, QColor(0x20, 0x60, 0xc0)));
    EXPECT_EQ(unusable_, "");
    host_->virtualDisplays->area().remove(window);
}

TEST_F(VirtualDisplayTest, ACompositorThatMissedTheNewSizeIsWorkedAround)
{
    // picom takes no notice of the screen growing while it starts.
    start({.width = 1280, .height = 720, .windowManager = WindowManager::openbox, .compositor = Compositor::picom});
    if (IsSkipped())
        return;
    auto device = make(800, 600);
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() || !unusable_.empty(); }));
    const xcb_window_t window = showWindow({1280, 720, 1000, 700}, 0x2060c0);
    EXPECT_TRUE(shows({2070, 1310}, QColor(0x20, 0x60, 0xc0)));
    ASSERT_TRUE(device->applySettings(DisplaysHost::settings(1000, 700)));
    EXPECT_TRUE(shows({2270, 1410}, QColor(0x20, 0x60, 0xc0)));
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() || !unusable_.empty(); }));
    EXPECT_EQ(unusable_, "");
    host_->virtualDisplays->area().remove(window);
}

TEST_F(VirtualDisplayTest, ACompositorThatHidesItEndsIt)
{
    startOnOpenbox();
    if (IsSkipped())
        return;
    // It keeps a picture of its own in front of the whole overlay.
    xcb_connection_t* const raw = desktop_->connection();
    const xcb_window_t curtain = xcb_generate_id(raw);
    const x11::Reply<xcb_composite_get_overlay_window_reply_t> overlay(xcb_composite_get_overlay_window_reply(
        raw, xcb_composite_get_overlay_window(raw, desktop_->screen().root), nullptr));
    ASSERT_TRUE(overlay);
    const std::array<std::uint32_t, 2> values = {0x808080, 1};
    xcb_create_window(raw, XCB_COPY_FROM_PARENT, curtain, overlay->overlay_win, 0, 0, 4000, 4000, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT,
                      values.data());
    xcb_map_window(raw, curtain);
    xcb_set_selection_owner(raw, curtain, host_->connection->atom("_NET_WM_CM_S0"), XCB_CURRENT_TIME);
    desktop_->synchronize();
    auto device = make(800, 600);
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] {
        xcb_configure_window(raw, curtain, XCB_CONFIG_WINDOW_STACK_MODE, &above);
        desktop_->synchronize();
        return !unusable_.empty();
    }));
    EXPECT_THAT(unusable_, testing::HasSubstr("compositing"));
    EXPECT_FALSE(isVerified());
}

INSTANTIATE_TEST_SUITE_P(, CompositedVirtualDisplayTest,
                         testing::Values(Managers{"picom", WindowManager::openbox, Compositor::picom, false},
                                         Managers{"marco", WindowManager::marco, Compositor::windowManagersOwn, false},
                                         Managers{"xfwm4", WindowManager::xfwm4, Compositor::windowManagersOwn, true},
                                         Managers{"kwin", WindowManager::kwin, Compositor::windowManagersOwn, true}),
                         [](const auto& managers) { return std::string(managers.param.name); });

} // namespace

} // namespace nimbrale::test
