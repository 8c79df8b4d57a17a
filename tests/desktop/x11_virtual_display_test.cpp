#include "platform/x11/virtual_display/backdrop_card.h"
#include "tests/desktop/virtual_display_fixture.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <gmock/gmock.h>
#include <thread>

namespace nimbrale::test {

namespace {

using Server = PrivateDesktop::Server;
using WindowManager = PrivateDesktop::WindowManager;

constexpr Milliseconds underASecond{900};

TEST_F(VirtualDisplayTest, IsAMonitorWithoutOutputsBeyondTheCornerAndListedSecond)
{
    startOnOpenbox();
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
    auto device = make(800, 600);
    EXPECT_FALSE(device->applySettings(DisplaysHost::settings(7681, 600)));
    EXPECT_FALSE(device->applySettings(DisplaysHost::settings(0, 600)));
    EXPECT_FALSE(device->applySettings({false, {}}));
    EXPECT_TRUE(isWhole({1280, 720, 800, 600}));
}

TEST_F(VirtualDisplayTest, MovesWhereItIsTold)
{
    startOnOpenbox();
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
    auto device = make(800, 600);
    ASSERT_TRUE(isWhole({1280, 720, 800, 600}));
    desktop_->deleteMonitor("Nimbrale");
    ASSERT_FALSE(desktop_->monitorNamed("Nimbrale"));
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return isWhole({1280, 720, 800, 600}); }, underASecond));
}

TEST_F(VirtualDisplayTest, FindsANewPrimaryWhenNoneIsLeft)
{
    startOnOpenbox();
    auto device = make(800, 600);
    ASSERT_NE(primary(), 0U);
    desktop_->run("xrandr", {"--noprimary"});
    ASSERT_EQ(primary(), 0U);
    EXPECT_TRUE(DisplaysHost::pumpUntil(
        [&] {
            return primary() != 0 && isWhole({1280, 720, 800, 600});
        },
        underASecond));
    EXPECT_EQ(desktop_->monitors().front().name, "VNC-0");
}

TEST_F(VirtualDisplayTest, EightChangesOfTheDisplaysInFiveSecondsDoNotEndIt)
{
    start({.server = Server::xorgDummy, .width = 1280, .height = 720});
    auto device = make(400, 300);
    const auto began = std::chrono::steady_clock::now();
    for (int change = 0; change < 8; ++change) {
        // Each makes the screen too small for ours and moves the corner where ours belongs.
        const bool isPlug = change % 2 == 0;
        if (isPlug)
            desktop_->plug("DUMMY1", {1280, 0, 1280, 720});
        else
            desktop_->unplug("DUMMY1");
        EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return isWhole({isPlug ? 2560 : 1280, 720, 400, 300}); }));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds{5});
    DisplaysHost::pumpFor(Milliseconds{200});
    EXPECT_EQ(unusable_, "");
    EXPECT_TRUE(isWhole({1280, 720, 400, 300}));
}

TEST_F(VirtualDisplayTest, PanningDisplaysKeepTheirAreaAndTheScreenDoesNotGrow)
{
    start({.server = Server::xorgDummy, .width = 1280, .height = 720});
    desktop_->run("xrandr", {"--output", "DUMMY0", "--panning", "1600x900"});
    ASSERT_EQ(desktop_->screenSize(), QSize(1600, 900));
    ASSERT_EQ(desktop_->monitors().front().geometry, QRect(0, 0, 1600, 900));
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return host_->screens->screens().front().frame.width == 1600; }));
    auto device = make(800, 600);
    for (const QSize size : {QSize(800, 600), QSize(1000, 700), QSize(640, 480)}) {
        ASSERT_TRUE(device->applySettings(DisplaysHost::settings(size.width(), size.height())));
        DisplaysHost::pumpFor(Milliseconds{300});
        EXPECT_TRUE(isWhole({1600, 900, size.width(), size.height()}));
        EXPECT_EQ(desktop_->monitors().front().geometry, QRect(0, 0, 1600, 900));
    }
    device.reset();
    EXPECT_EQ(desktop_->screenSize(), QSize(1600, 900));
    EXPECT_EQ(desktop_->monitors().front().geometry, QRect(0, 0, 1600, 900));
    EXPECT_EQ(unusable_, "");
}

TEST_F(VirtualDisplayTest, GivesUpAgainstAProgramThatKeepsShrinkingTheScreen)
{
    startOnOpenbox();
    auto device = make(800, 600);
    const bool gaveUp = DisplaysHost::pumpUntil(
        [&] {
            if (desktop_->screenSize() != QSize(1280, 720))
                static_cast<void>(desktop_->resizeScreen({1280, 720}));
            return !unusable_.empty();
        },
        Milliseconds{10000});
    EXPECT_TRUE(gaveUp);
    EXPECT_FALSE(device->applySettings(DisplaysHost::settings(900, 600)));
    device.reset();
    EXPECT_EQ(desktop_->monitors().size(), 1U);
}

TEST_F(VirtualDisplayTest, MakesRoomForADisplayThatIsPluggedIn)
{
    startOnOpenbox();
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
    // Displays that touch nowhere let the pointer float between them.
    ASSERT_TRUE(desktop_->arrangeOutputs({{0, 0, 800, 600}, {1000, 0, 280, 720}}));
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return host_->screens->screens().size() == 2; }));
    auto device = make(800, 600);
    ASSERT_TRUE(isWhole({1280, 720, 800, 600}));
    DisplaysHost::pumpFor(Milliseconds{200});
    desktop_->movePointer({1200, 700});
    for (int step = 0; step < 40; ++step)
        desktop_->movePointerBy({15, 7});
    const QPoint pointer = desktop_->pointerPosition();
    EXPECT_FALSE(QRect(1280, 720, 800, 600).contains(pointer)) << pointer.x() << "," << pointer.y();
    EXPECT_NE(pointer, QPoint(1200, 700));
}

TEST_F(VirtualDisplayTest, ALivingOneOfAnotherProcessIsLeftAlone)
{
    startOnOpenbox();
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

TEST_F(VirtualDisplayTest, AServerThatCannotGrowIsSaidToBeUnfit)
{
    start({.server = Server::xvfb, .width = 1280, .height = 720});
    const auto made = host_->virtualDisplays->create(DisplaysHost::descriptor());
    ASSERT_FALSE(made);
    EXPECT_EQ(made.error().code, ErrorCode::unsupported);
    EXPECT_EQ(desktop_->monitors().size(), 1U);
    EXPECT_EQ(desktop_->screenSize(), QSize(1280, 720));
    EXPECT_EQ(primary(), 0U);
    EXPECT_EQ(host_->screens->screens().size(), 1U);
}

TEST_F(VirtualDisplayTest, ASizeThatTheServerRefusesFourTimesEndsIt)
{
    start({.server = Server::xvfb, .width = 1280, .height = 720, .growableTo = QSize(2080, 1320)});
    auto device = make(800, 600);
    EXPECT_TRUE(isWhole({1280, 720, 800, 600}));
    for (int attempt = 1; attempt < 4; ++attempt)
        EXPECT_FALSE(device->applySettings(DisplaysHost::settings(801, 600)));
    DisplaysHost::pumpFor(Milliseconds{100});
    EXPECT_EQ(unusable_, "");
    EXPECT_TRUE(isWhole({1280, 720, 800, 600})) << "the size before stays meanwhile";
    // A size that fits ends the count.
    EXPECT_TRUE(device->applySettings(DisplaysHost::settings(799, 600)));
    for (int attempt = 1; attempt <= 4; ++attempt)
        EXPECT_FALSE(device->applySettings(DisplaysHost::settings(801, 600)));
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return !unusable_.empty(); }));
}

TEST_F(VirtualDisplayTest, WorksOnTheServerOfARealDesktop)
{
    start({.server = Server::xorgDummy, .width = 1280, .height = 720, .windowManager = WindowManager::openbox});
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
            const bool wasThere = desktop_->monitorNamed("Nimbrale").has_value();
            const QColor pixel = desktop_->pixel(1300, 740);
            if (wasThere && desktop_->monitorNamed("Nimbrale"))
                seen.push_back(pixel);
            sleepFor(Milliseconds{5});
        }
    });
    device.reset();
    isDone = true;
    viewer.join();
    ASSERT_GE(seen.size(), 2U);
    EXPECT_EQ(seen.back(), QColor(Qt::black));
    EXPECT_EQ(seen[seen.size() - 2], QColor(Qt::black));
}

} // namespace

} // namespace nimbrale::test
