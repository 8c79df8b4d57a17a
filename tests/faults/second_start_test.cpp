// The real application, started while it runs, while it ends, and after it was killed.

#include "tests/support/application.h"
#include "tests/support/image_compare.h"
#include "tests/support/requirements.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <vector>

namespace nimbrale::test {
namespace {

constexpr QRect region(100, 100, 400, 300);
const std::string mirrorMessage = "Virtual display unavailable";

class SecondStartTest : public testing::Test {
protected:
    void SetUp() override
    {
        desktop = requireDesktop({.windowManager = PrivateDesktop::WindowManager::openbox});
        desktop->movePointer({900, 600});
        application = requireApplication(*desktop, {.region = region});
        ASSERT_TRUE(application->waitForVirtualDisplay(region.size())) << application->process().output();
    }

    [[nodiscard]] std::unique_ptr<Application> startAgain() const
    {
        std::string reason;
        std::unique_ptr<Application> another = Application::startAgain(*desktop, reason);
        EXPECT_TRUE(another) << reason;
        return another;
    }
    [[nodiscard]] bool showsFrame() const
    {
        return desktop->pixel(region.x() - 2, region.y() + region.height() / 2) == QColor(255, 214, 10);
    }
    [[nodiscard]] bool showsSettings() const { return desktop->windowTitled("Settings").has_value(); }
    [[nodiscard]] std::vector<std::filesystem::path> sockets() const
    {
        std::vector<std::filesystem::path> found;
        for (const auto& entry : std::filesystem::directory_iterator(desktop->folder() / "runtime" / "nimbrale")) {
            if (entry.is_socket())
                found.push_back(entry.path());
        }
        return found;
    }
    [[nodiscard]] int virtualDisplays() const
    {
        int count = 0;
        for (const PrivateDesktop::Monitor& monitor : desktop->monitors())
            count += monitor.isAutomatic ? 0 : 1;
        return count;
    }

    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<Application> application;
};

TEST_F(SecondStartTest, ItOpensSettingsInTheRunningInstanceAndEnds)
{
    ASSERT_FALSE(showsSettings());
    for (int start = 1; start <= 2; ++start) {
        const auto second = startAgain();
        EXPECT_EQ(second->process().waitForEnd(Milliseconds{5000}), 0) << second->process().output();
        EXPECT_EQ(second->process().output(), "");
        EXPECT_TRUE(waitUntil([&] { return showsSettings(); }, Milliseconds{3000}))
            << keepImage(desktop->screenshot(), "desktop");
    }
    EXPECT_TRUE(application->process().isRunning());
    EXPECT_EQ(virtualDisplays(), 1);
    EXPECT_EQ(application->quit(), 0) << application->process().output();
}

TEST_F(SecondStartTest, OfManyStartsAtOnceOneShowsTheFrame)
{
    ASSERT_EQ(application->quit(), 0);
    application.reset();
    std::vector<std::unique_ptr<Application>> starts;
    for (int start = 0; start < 6; ++start)
        starts.push_back(startAgain());
    const auto runningCount = [&] {
        return std::ranges::count_if(starts, [](const auto& start) { return start->process().isRunning(); });
    };
    ASSERT_TRUE(waitUntil([&] { return runningCount() == 1; }, Milliseconds{20000}))
        << runningCount() << " are running";
    for (const auto& start : starts) {
        if (start->process().isRunning())
            EXPECT_TRUE(start->waitForVirtualDisplay(region.size()));
        else
            EXPECT_EQ(start->process().waitForEnd(Milliseconds{0}), 0) << start->process().output();
    }
    EXPECT_TRUE(waitUntil([&] { return showsSettings(); }, Milliseconds{3000}));
    EXPECT_EQ(virtualDisplays(), 1);
}

TEST_F(SecondStartTest, DuringTheEndOfTheFirstItWaitsAndSharesAsBefore)
{
    int meetings = 0;
    for (int round = 0; round < 16; ++round) {
        SCOPED_TRACE(round);
        application->process().signal(SIGTERM);
        sleepFor(Milliseconds{round * 12});
        // A precondition of its own: most rounds meet the first one alive.
        const bool wasEnding = application->process().isRunning();
        auto second = startAgain();
        ASSERT_TRUE(second->waitForVirtualDisplay(region.size())) << second->process().output();
        EXPECT_EQ(application->process().waitForEnd(Milliseconds{5000}), 0) << application->process().output();
        EXPECT_EQ(second->process().output().find(mirrorMessage), std::string::npos)
            << (wasEnding ? "while the first was ending" : "after its end");
        EXPECT_TRUE(second->process().isRunning());
        EXPECT_TRUE(waitUntil([&] { return virtualDisplays() == 1; }, Milliseconds{2000}));
        meetings += wasEnding ? 1 : 0;
        application = std::move(second);
    }
    EXPECT_GE(meetings, 4) << "too few starts met an ending instance to say anything";
}

TEST_F(SecondStartTest, AfterAKillTheNextStartTakesOver)
{
    for (int round = 0; round < 6; ++round) {
        SCOPED_TRACE(round);
        application->process().signal(SIGKILL);
        ASSERT_EQ(application->process().waitForEnd(Milliseconds{5000}), 128 + SIGKILL);
        ASSERT_EQ(sockets().size(), 1U) << "a kill leaves the socket behind";
        // The monitor stays as well, but the frame goes with the process.
        ASSERT_TRUE(waitUntil([&] { return !showsFrame(); }, Milliseconds{3000}));
        auto second = startAgain();
        ASSERT_TRUE(waitUntil([&] { return showsFrame(); }, Milliseconds{10000})) << second->process().output();
        EXPECT_TRUE(second->waitForVirtualDisplay(region.size())) << second->process().output();
        EXPECT_TRUE(second->process().isRunning());
        EXPECT_EQ(second->process().output().find(mirrorMessage), std::string::npos) << second->process().output();
        const auto third = startAgain();
        EXPECT_EQ(third->process().waitForEnd(Milliseconds{5000}), 0) << third->process().output();
        application = std::move(second);
    }
}

TEST_F(SecondStartTest, AnInstanceThatStandsStillIsReported)
{
    application->process().signal(SIGSTOP);
    const auto second = startAgain();
    // It waits five seconds for an answer, and then has the toolkit start before it speaks, which takes a busy machine
    // its time.
    EXPECT_TRUE(second->process().waitForOutput("does not answer", Milliseconds{30000})) << second->process().output();
    EXPECT_EQ(virtualDisplays(), 1);
    application->process().signal(SIGCONT);
}

TEST_F(SecondStartTest, AnotherDisplayWithTheSameSettingsIsRefused)
{
    const auto other = requireDesktop({});
    const Environment shared{{"XDG_CONFIG_HOME", desktop->environment().at("XDG_CONFIG_HOME")},
                             {"XDG_RUNTIME_DIR", desktop->environment().at("XDG_RUNTIME_DIR")}};
    const auto refused = other->spawn((buildFolder() / "nimbrale").string(), {}, shared);
    ASSERT_TRUE(refused);
    EXPECT_TRUE(refused->waitForOutput("on another display", Milliseconds{10000})) << refused->output();
    EXPECT_FALSE(other->monitorNamed("Nimbrale"));
    EXPECT_FALSE(showsSettings()) << "nothing opens where the user is not";

    // With settings of its own it starts there.
    const auto welcome = other->spawn((buildFolder() / "nimbrale").string(), {},
                                      {{"XDG_RUNTIME_DIR", desktop->environment().at("XDG_RUNTIME_DIR")}});
    ASSERT_TRUE(welcome);
    EXPECT_TRUE(waitUntil([&] { return other->monitorNamed("Nimbrale").has_value(); }, Milliseconds{10000}))
        << welcome->output();
}

} // namespace
} // namespace nimbrale::test
