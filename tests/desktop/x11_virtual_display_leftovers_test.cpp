// What is left of a virtual display whose process was killed, and what is not a leftover.

#include "tests/desktop/virtual_display_fixture.h"

#include <csignal>
#include <gtest/gtest.h>

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
