// What is left of a virtual display whose process was killed, and what is not a leftover.

#include "tests/desktop/virtual_display_fixture.h"
#include "tests/support/display_viewer.h"
#include "tests/support/scene.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <optional>
#include <random>
#include <set>
#include <thread>
#include <xcb/xcbext.h>

namespace nimbrale::test {

namespace {

/// On a server where the monitor bears no output, and on one where it does.
class LeftoversTest : public VirtualDisplayTest, public testing::WithParamInterface<PrivateDesktop::Server> {
protected:
    void startLoudDesktop()
    {
        start({.server = GetParam(), .width = 1280, .height = 720});
        scene_ = makeLoud();
        primaryBefore_ = primary();
        windowsBefore_ = topLevelWindows();
    }

    /// In the place of this process, with a caretaker of its own.
    [[nodiscard]] std::unique_ptr<Process> startProcessWithDisplay()
    {
        host_.reset();
        auto process = desktop_->spawn(buildFolder() / "x11_virtual_display_leftovers_test",
                                       {"--gtest_filter=ProcessThatIsKilled.*", "--gtest_also_run_disabled_tests"});
        EXPECT_TRUE(process);
        EXPECT_TRUE(waitUntil([&] { return isWhole({1280, 720, 800, 600}); }, Milliseconds{5000}));
        EXPECT_NE(primary(), 0U);
        if (!waitUntil([&] { return caretaker().has_value(); }, Milliseconds{3000}))
            failTest("no caretaker");
        return process;
    }

    /// The caretaker of this desktop: a program of its own that outlives the one that started it.
    [[nodiscard]] std::optional<pid_t> caretaker() const
    {
        for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
            std::ifstream file(entry.path() / "cmdline");
            const std::string arguments{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
            const std::string ending = std::string("nimbrale-caretaker") + '\0' + desktop_->displayName() + '\0';
            if (arguments.size() >= ending.size() &&
                arguments.compare(arguments.size() - ending.size(), ending.size(), ending) == 0)
                return std::stoi(entry.path().filename());
        }
        return std::nullopt;
    }

    [[nodiscard]] int topLevelWindows() const
    {
        xcb_connection_t* const raw = desktop_->connection();
        const x11::Reply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(raw, xcb_query_tree(raw, desktop_->screen().root), nullptr));
        return tree ? tree->children_len : -1;
    }

    [[nodiscard]] bool isAsBefore() const
    {
        return desktop_->monitors().size() == 1 && desktop_->screenSize() == QSize(1280, 720) &&
               primary() == primaryBefore_ && topLevelWindows() == windowsBefore_;
    }

    [[nodiscard]] static bool isOfTheCard(std::uint32_t color)
    {
        const auto channel = [color](int shift) { return static_cast<int>(color >> shift & 0xff); };
        return channel(16) == channel(8) && channel(0) >= channel(8) && channel(0) - channel(8) <= 4;
    }

    std::unique_ptr<Scene> scene_;
    xcb_randr_output_t primaryBefore_ = 0;
    int windowsBefore_ = 0;
};

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
