// What is left of a virtual display whose process was killed, and what is not a leftover.

#include "tests/desktop/virtual_display_fixture.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <thread>
#include <xcb/xcbext.h>

namespace nimbrale::test {

namespace {

/// On a server where the monitor bears no output, and on one where it does.
class LeftoversTest : public VirtualDisplayTest, public testing::WithParamInterface<PrivateDesktop::Server> {};

TEST_P(LeftoversTest, WhatAKilledProcessLeftIsRemovedByTheNextOne)
{
    start({.server = GetParam(), .width = 1280, .height = 720});
    if (IsSkipped())
        return;
    const xcb_randr_output_t primaryBefore = primary();
    host_.reset();
    const auto child = desktop_->spawn(buildFolder() / "x11_virtual_display_leftovers_test",
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
    EXPECT_EQ(primary(), primaryBefore);
    EXPECT_EQ(host_->screens->screens().size(), 1U);
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
    if (IsSkipped())
        return;
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

} // namespace

} // namespace nimbrale::test
