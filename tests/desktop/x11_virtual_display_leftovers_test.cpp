// What is left of a virtual display whose process was killed, and what is not a leftover.

#include "platform/x11/virtual_display/display_keeping.h"
#include "tests/desktop/leftovers_fixture.h"
#include "tests/support/display_viewer.h"
#include "tests/support/image_compare.h"
#include "tests/support/scene.h"
#include "tests/support/screen_size_watch.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <thread>
#include <xcb/xcbext.h>

namespace nimbrale::test {

namespace {

TEST_P(LeftoversTest, AKilledProcessShowsNothingOfOthersAndIsTidiedUpAtOnce)
{
    startLoudDesktop();
    const auto process = startProcessWithDisplay();
    DisplayViewer viewer(desktop_->displayName(), "Nimbrale", isOfTheCard);
    ASSERT_TRUE(waitUntil([&] { return viewer.pictures() >= 5; }, Milliseconds{3000}));
    process->signal(SIGKILL);
    const int before = viewer.pictures();
    EXPECT_TRUE(waitUntil([&] { return isAsBefore(); }, Milliseconds{5000}))
        << desktop_->monitors().size() << " monitors, " << desktop_->screenSize().width() << " wide, "
        << topLevelWindows() << " windows, " << windowsBefore_ << " before, primary " << primary();
    EXPECT_TRUE(waitUntil([&] { return !caretaker(); }, Milliseconds{5000}));
    const DisplayViewer::Result seen = viewer.stop();
    EXPECT_GT(seen.pictures, before) << "the card is seen after the process has gone";
    EXPECT_EQ(seen.foreignPictures, 0);
    EXPECT_EQ(seen.staleForeignPictures, 0);
}

// As when the system ends everything of a session or of a group of processes.
TEST_P(LeftoversTest, WhatAProcessLeftThatWasKilledWithItsCaretakerShowsTheCardUntilTheNextOneRemovesIt)
{
    startLoudDesktop();
    const auto process = startProcessWithDisplay();
    kill(*caretaker(), SIGKILL);
    DisplayViewer viewer(desktop_->displayName(), "Nimbrale", isOfTheCard);
    process->signal(SIGKILL);
    ASSERT_TRUE(process->waitForEnd(Milliseconds{3000}));
    const int before = viewer.pictures();
    ASSERT_TRUE(waitUntil([&] { return viewer.pictures() >= before + 50; }, Milliseconds{3000}));
    const DisplayViewer::Result seen = viewer.stop();
    EXPECT_EQ(seen.foreignPictures, 0);
    ASSERT_EQ(desktop_->monitors().size(), 2U);
    ASSERT_FALSE(isAsBefore());

    host_ = std::make_unique<DisplaysHost>(*desktop_);
    EXPECT_EQ(desktop_->monitors().size(), 1U);
    EXPECT_EQ(desktop_->screenSize(), QSize(1280, 720));
    EXPECT_EQ(primary(), primaryBefore_);
    EXPECT_EQ(host_->screens->screens().size(), 1U);
    EXPECT_TRUE(waitUntil([&] { return topLevelWindows() <= windowsBefore_; }, Milliseconds{1000}));
}

TEST_P(LeftoversTest, ADisplayWhoseClientAnotherOneKilledIsRemoved)
{
    startLoudDesktop();
    auto device = make(800, 600);
    ASSERT_TRUE(isWhole({1280, 720, 800, 600}));
    ASSERT_TRUE(waitUntil([&] { return caretaker().has_value(); }, Milliseconds{3000}));
    xcb_connection_t* const raw = desktop_->connection();
    const xcb_atom_t claim = host_->connection->atom("_NIMBRALE_VIRTUAL_DISPLAY_S0");
    const x11::Reply<xcb_get_selection_owner_reply_t> owner(
        xcb_get_selection_owner_reply(raw, xcb_get_selection_owner(raw, claim), nullptr));
    ASSERT_TRUE(owner && owner->owner);
    DisplayViewer viewer(desktop_->displayName(), "Nimbrale", isOfTheCard);
    xcb_kill_client(raw, owner->owner);
    desktop_->synchronize();
    EXPECT_TRUE(waitUntil(
        [&] {
            return desktop_->monitors().size() == 1 && desktop_->screenSize() == QSize(1280, 720) &&
                   primary() == primaryBefore_;
        },
        Milliseconds{2000}));
    EXPECT_EQ(viewer.stop().foreignPictures, 0);
    device.reset();
    host_.reset();
    EXPECT_EQ(desktop_->monitors().size(), 1U);
}

TEST_P(LeftoversTest, ACaretakerEndsWithTheDisplay)
{
    startLoudDesktop();
    auto device = make(800, 600);
    ASSERT_TRUE(waitUntil([&] { return caretaker().has_value(); }, Milliseconds{3000}));
    device.reset();
    EXPECT_TRUE(waitUntil([&] { return !caretaker(); }, Milliseconds{3000}));
    EXPECT_TRUE(isAsBefore());
}

/// That of `isOfTheCard` is the text's light grey.
bool hasText(const QImage& picture)
{
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            if (qGray(picture.pixel(x, y)) > 200)
                return true;
        }
    }
    return false;
}

TEST_P(LeftoversTest, ADisplayThatIsReadShowsTheCardUntilTheReaderEnds)
{
    startLoudDesktop();
    const auto reader = startReader();
    auto device = make(800, 600);
    ASSERT_TRUE(waitUntil([&] { return caretaker().has_value(); }, Milliseconds{3000}));
    showWindow({1280, 720, 800, 600}, 0x00ff00);
    ScreenSizeWatch changes(*desktop_);
    device.reset();
    host_.reset();
    sleepFor(Milliseconds{2500});
    EXPECT_TRUE(changes.sizes().empty()) << "a change of the monitor or the screen";
    EXPECT_TRUE(isWhole({1280, 720, 800, 600}));
    EXPECT_TRUE(hasText(desktop_->screenshot({1280, 720, 800, 600})));
    EXPECT_TRUE(caretaker());

    reader->terminate();
    EXPECT_TRUE(waitUntil([&] { return isAsBefore(); }, Milliseconds{3000}));
    EXPECT_FALSE(changes.sizes().empty()) << "the watch sees changes";
    EXPECT_TRUE(waitUntil([&] { return !caretaker(); }, Milliseconds{3000}));
}

TEST_P(LeftoversTest, ADisplayThatIsReadStaysWhenItsProcessIsKilled)
{
    startLoudDesktop();
    const auto reader = startReader();
    const auto process = startProcessWithDisplay();
    ASSERT_TRUE(waitUntil([&] { return hasText(desktop_->screenshot({1280, 720, 800, 600})); }, Milliseconds{3000}));
    ScreenSizeWatch changes(*desktop_);
    process->signal(SIGKILL);
    sleepFor(Milliseconds{2500});
    EXPECT_TRUE(changes.sizes().empty());
    EXPECT_TRUE(isWhole({1280, 720, 800, 600}));
    EXPECT_TRUE(hasText(desktop_->screenshot({1280, 720, 800, 600})));

    reader->terminate();
    EXPECT_TRUE(waitUntil([&] { return isAsBefore(); }, Milliseconds{3000}));
}

TEST_P(LeftoversTest, TheNextStartGoesOnWithADisplayThatIsRead)
{
    startLoudDesktop();
    const auto reader = startReader();
    const auto process = startProcessWithDisplay();
    DisplayViewer viewer(desktop_->displayName(), "Nimbrale", isOfTheCard);
    ScreenSizeWatch changes(*desktop_);
    process->signal(SIGKILL);
    ASSERT_TRUE(process->waitForEnd(Milliseconds{3000}));

    host_ = std::make_unique<DisplaysHost>(*desktop_);
    ASSERT_EQ(host_->screens->screens().size(), 2U);
    EXPECT_EQ(host_->screens->mainDisplay(), host_->screens->screens().front().displayID);
    auto device = make(800, 600);
    DisplaysHost::pumpFor(Milliseconds{1500});
    EXPECT_TRUE(changes.sizes().empty()) << "a change of the monitor or the screen";
    EXPECT_TRUE(isWhole({1280, 720, 800, 600}));
    EXPECT_TRUE(hasText(desktop_->screenshot({1280, 720, 800, 600})));
    EXPECT_TRUE(waitUntil([&] { return topLevelWindows() == windowsBefore_ + 3; }, Milliseconds{1000}))
        << "the claim, the shade and the card of one display, " << topLevelWindows() - windowsBefore_;
    const DisplayViewer::Result seen = viewer.stop();
    EXPECT_EQ(seen.foreignPictures, 0);
    showWindow({1280, 720, 800, 600}, 0x00ff00);
    EXPECT_TRUE(shows({1680, 1020}, Qt::green));

    ASSERT_TRUE(device->applySettings(DisplaysHost::settings(640, 480)));
    EXPECT_TRUE(isWhole({1280, 720, 640, 480}));
    EXPECT_FALSE(changes.sizes().empty()) << "the watch sees changes";
    reader->terminate();
    device.reset();
    EXPECT_TRUE(waitUntil([&] { return desktop_->monitors().size() == 1; }, Milliseconds{1000}));
    EXPECT_EQ(primary(), primaryBefore_);
    host_.reset();
    EXPECT_TRUE(waitUntil([&] { return isAsBefore() && !caretaker(); }, Milliseconds{3000}));
}

TEST_P(LeftoversTest, AStartWithoutADisplayRemovesTheOneThatWasLeftWhenItsReaderEnds)
{
    startLoudDesktop();
    auto reader = startReader();
    const auto process = startProcessWithDisplay();
    kill(*caretaker(), SIGKILL);
    process->signal(SIGKILL);
    ASSERT_TRUE(process->waitForEnd(Milliseconds{3000}));
    host_ = std::make_unique<DisplaysHost>(*desktop_);
    DisplaysHost::pumpFor(Milliseconds{1500});
    EXPECT_TRUE(isWhole({1280, 720, 800, 600}));
    reader->terminate();
    EXPECT_TRUE(DisplaysHost::pumpUntil(
        [&] { return desktop_->monitors().size() == 1 && desktop_->screenSize() == QSize(1280, 720); },
        Milliseconds{3000}));
}

TEST_P(LeftoversTest, ADisplayThatIsReadStaysWhileItsProcessMakesItAnew)
{
    startLoudDesktop();
    const auto reader = startReader();
    auto device = make(800, 600);
    ScreenSizeWatch changes(*desktop_);
    device.reset();
    DisplaysHost::pumpFor(Milliseconds{500});
    device = make(800, 600);
    DisplaysHost::pumpFor(Milliseconds{1500});
    EXPECT_TRUE(changes.sizes().empty()) << "a change of the monitor or the screen";
    showWindow({1280, 720, 800, 600}, 0x00ff00);
    EXPECT_TRUE(shows({1680, 1020}, Qt::green));
    reader->terminate();
    device.reset();
    EXPECT_TRUE(waitUntil([&] { return desktop_->monitors().size() == 1; }, Milliseconds{1000}));
}

TEST_P(LeftoversTest, ADisplayIsNotKeptForeverForAReader)
{
    start({.server = GetParam(), .width = 1280, .height = 720});
    const auto reader = startReader();
    auto device = make(800, 600);
    ASSERT_TRUE(waitUntil([&] { return caretaker().has_value(); }, Milliseconds{3000}));
    kill(*caretaker(), SIGKILL);
    device.reset();
    const auto record = x11::VirtualDisplayRecord::read(*host_->connection);
    ASSERT_TRUE(record);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(x11::keepWhileRead(*host_->connection, *record, Milliseconds{2500}));
    const auto kept = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(kept, Milliseconds{2500});
    EXPECT_LT(kept, Milliseconds{5000});
    EXPECT_EQ(x11::longestKeeping, std::chrono::minutes{10});
}

TEST_P(LeftoversTest, ADisplayThatIsKeptMakesWayForOneThatIsPluggedIn)
{
    startLoudDesktop();
    const auto reader = startReader();
    auto device = make(800, 600);
    device.reset();
    host_.reset();
    sleepFor(Milliseconds{1500});
    ASSERT_TRUE(isWhole({1280, 720, 800, 600}));
    ASSERT_TRUE(desktop_->arrangeOutputs({{0, 0, 1280, 720}, {1280, 400, 1280, 720}}));
    EXPECT_TRUE(waitUntil([&] { return !desktop_->monitorNamed("Nimbrale"); }, Milliseconds{3000}));
    EXPECT_TRUE(waitUntil([&] { return !caretaker(); }, Milliseconds{3000}));
    EXPECT_EQ(topLevelWindows(), windowsBefore_);
}

INSTANTIATE_TEST_SUITE_P(Servers, LeftoversTest,
                         testing::Values(PrivateDesktop::Server::xvnc, PrivateDesktop::Server::xorgDummy),
                         [](const auto& server) {
                             return server.param == PrivateDesktop::Server::xvnc ? "Xvnc" : "XorgDummy";
                         });

// Not a test: what the ones above start and kill.
TEST(ProcessThatIsKilled, DISABLED_HasAVirtualDisplay)
{
    const DisplaysHost host{std::string()};
    const auto device = host.virtualDisplays->create(DisplaysHost::descriptor());
    ASSERT_TRUE(device);
    ASSERT_TRUE((*device)->applySettings(DisplaysHost::settings(800, 600)));
    DisplaysHost::pumpFor(Milliseconds{60'000});
}

// Not a test: what the one below stops and lets go on.
TEST(ProcessThatIsStopped, DISABLED_ResizesAllTheTime)
{
    const DisplaysHost host{std::string()};
    const auto device = host.virtualDisplays->create(DisplaysHost::descriptor());
    ASSERT_TRUE(device);
    for (int round = 0;; ++round) {
        ASSERT_TRUE((*device)->applySettings(DisplaysHost::settings(400 + round % 2 * 100, 300)));
        DisplaysHost::pumpFor(Milliseconds{1});
    }
}

TEST_P(LeftoversTest, AProcessThatIsStoppedDoesNotHoldTheServerUp)
{
    start({.server = GetParam(), .width = 1280, .height = 720});
    host_.reset();
    const auto child = desktop_->spawn(buildFolder() / "x11_virtual_display_leftovers_test",
                                       {"--gtest_filter=ProcessThatIsStopped.*", "--gtest_also_run_disabled_tests"});
    ASSERT_TRUE(child);
    ASSERT_TRUE(waitUntil([&] { return ours().height() == 300; }, Milliseconds{5000}));
    std::mt19937 random(1);
    std::set<int> widths;
    int held = 0;
    for (int round = 0; round < 60; ++round) {
        std::this_thread::sleep_for(std::chrono::microseconds{std::uniform_int_distribution(0, 20'000)(random)});
        child->signal(SIGSTOP);
        xcb_connection_t* const raw = desktop_->connection();
        const auto asked = xcb_get_input_focus(raw);
        xcb_flush(raw);
        void* reply = nullptr;
        xcb_generic_error_t* error = nullptr;
        const bool isAnswered = waitUntil([&] { return xcb_poll_for_reply(raw, asked.sequence, &reply, &error) != 0; },
                                          Milliseconds{1000}, Milliseconds{1});
        held += isAnswered ? 0 : 1;
        child->signal(SIGCONT);
        if (!isAnswered)
            reply = xcb_get_input_focus_reply(raw, asked, nullptr);
        const x11::Reply<void> owner(reply);
        widths.insert(ours().width());
    }
    EXPECT_EQ(held, 0);
    EXPECT_TRUE(child->isRunning());
    EXPECT_EQ(widths.size(), 2U) << "it was resizing all the while";
    child->signal(SIGKILL);
}

class LeftoversUnderCompositingTest : public VirtualDisplayTest,
                                      public testing::WithParamInterface<PrivateDesktop::WindowManager> {};

TEST_P(LeftoversUnderCompositingTest, ADisplayThatIsReadShowsTheCardAndThenTheNextPicture)
{
    start({.width = 1280,
           .height = 720,
           .windowManager = GetParam(),
           .compositor = PrivateDesktop::Compositor::windowManagersOwn});
    const auto reader = desktop_->spawn("nimbrale_screen_reader");
    ASSERT_TRUE(reader && reader->waitForOutput("reading", Milliseconds{3000}));
    const QRect place(1280, 720, 800, 600);
    auto device = make(800, 600);
    showWindow({1280, 720, 800, 600}, 0x00ff00);
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() && isWhole(place); }));
    ASSERT_TRUE(shows({1680, 1020}, Qt::green));
    ScreenSizeWatch changes(*desktop_);
    device.reset();
    host_.reset();
    const auto showsCard = [&] {
        const QImage picture = desktop_->screenshot(place);
        return picture.pixelColor(10, 10) == Qt::black && hasText(picture);
    };
    EXPECT_TRUE(waitUntil(showsCard, Milliseconds{3000})) << keepImage(desktop_->screenshot(), "left");
    sleepFor(Milliseconds{1500});
    EXPECT_TRUE(showsCard()) << keepImage(desktop_->screenshot(), "kept");

    host_ = std::make_unique<DisplaysHost>(*desktop_);
    device = make(800, 600);
    showWindow({1280, 720, 800, 600}, 0x0000ff);
    EXPECT_TRUE(shows({1680, 1020}, Qt::blue)) << keepImage(desktop_->screenshot(), "taken over");
    EXPECT_TRUE(changes.sizes().empty()) << "a change of the monitor or the screen";
    EXPECT_TRUE(unusable_.empty()) << unusable_;
    reader->terminate();
    device.reset();
    EXPECT_TRUE(waitUntil([&] { return desktop_->monitors().size() == 1; }, Milliseconds{1000}));
}

INSTANTIATE_TEST_SUITE_P(WindowManagers, LeftoversUnderCompositingTest,
                         testing::Values(PrivateDesktop::WindowManager::xfwm4, PrivateDesktop::WindowManager::kwin,
                                         PrivateDesktop::WindowManager::marco, PrivateDesktop::WindowManager::mutter),
                         [](const auto& manager) { return PrivateDesktop::managerName(manager.param); });

TEST_F(VirtualDisplayTest, AnotherProgramsMonitorIsNoLeftover)
{
    start({.width = 1280, .height = 720});
    ASSERT_TRUE(desktop_->resizeScreen({1280 + 500, 720}));
    desktop_->setMonitor("Extra", {1280, 0, 500, 720});
    auto device = make(800, 600);
    EXPECT_TRUE(isWhole({1780, 720, 800, 600}));
    device.reset();
    EXPECT_TRUE(desktop_->monitorNamed("Extra"));
    EXPECT_EQ(desktop_->screenSize(), QSize(1780, 720));
}

} // namespace

} // namespace nimbrale::test
