// The output without a display that the virtual display's monitor bears, as cards have some.

#include "tests/desktop/virtual_display_fixture.h"

#include <gtest/gtest.h>

namespace nimbrale::test {

namespace {

class IdleOutputTest : public VirtualDisplayTest {
protected:
    void startOnACard()
    {
        start({.server = PrivateDesktop::Server::xorgDummy,
               .width = 1280,
               .height = 720,
               .windowManager = PrivateDesktop::WindowManager::openbox});
    }

    /// The names of the outputs that the virtual display bears, as the system's own tool tells them.
    [[nodiscard]] std::string borneOutputs() const
    {
        const std::string list = desktop_->run("xrandr", {"--listmonitors"});
        const std::size_t start = list.find(" Nimbrale ");
        if (start == std::string::npos)
            return "no virtual display";
        const std::string line = list.substr(start, list.find('\n', start) - start);
        const std::size_t end = line.find("  ");
        return end == std::string::npos ? "" : line.substr(end + 2);
    }
};

TEST_F(IdleOutputTest, IsBorneByTheMonitorAndTakesNothingFromOthers)
{
    startOnACard();
    auto device = make(800, 600);
    EXPECT_TRUE(isWhole({1280, 720, 800, 600}));
    const std::vector<PrivateDesktop::Monitor> monitors = desktop_->monitors();
    ASSERT_EQ(monitors.size(), 2U);
    EXPECT_EQ(monitors[0].name, "DUMMY0");
    EXPECT_TRUE(monitors[0].isPrimary);
    EXPECT_EQ(monitors[1].outputCount, 1);
    const std::string output = borneOutputs();
    EXPECT_EQ(output.rfind("DUMMY", 0), 0U) << output;
    EXPECT_NE(output, "DUMMY0");

    ASSERT_TRUE(device->applySettings(DisplaysHost::settings(1000, 700)));
    EXPECT_TRUE(isWhole({1280, 720, 1000, 700}));
    EXPECT_EQ(borneOutputs(), output);
    const auto screen = findScreen(*host_->screens, device->displayID());
    ASSERT_TRUE(screen);
    EXPECT_EQ(screen->name, "Nimbrale");
}

TEST_F(IdleOutputTest, IsGivenBackWhenADisplayIsPluggedIn)
{
    startOnACard();
    auto device = make(800, 600);
    const std::string output = borneOutputs();
    ASSERT_EQ(output.rfind("DUMMY", 0), 0U) << output;
    const QRect plugged(1280, 0, 1280, 720);
    desktop_->plug(output, plugged);
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] {
        const auto monitor = desktop_->monitorNamed(output);
        return monitor && monitor->geometry == plugged && isWhole({1280 + 1280, 720, 800, 600});
    }));
    EXPECT_NE(borneOutputs(), output);
    EXPECT_EQ(desktop_->monitorNamed("Nimbrale")->outputCount, 1);
    EXPECT_EQ(host_->screens->screens().size(), 3U);
    EXPECT_EQ(unusable_, "");
}

TEST_F(IdleOutputTest, ADisplayGetsItsMonitorBackAtTheEnd)
{
    startOnACard();
    auto device = make(800, 600);
    const std::string output = borneOutputs();
    device.reset();
    desktop_->plug(output, {1280, 0, 1280, 720});
    EXPECT_TRUE(desktop_->monitorNamed(output));
    EXPECT_EQ(desktop_->monitors().size(), 2U);
}

} // namespace

} // namespace nimbrale::test
