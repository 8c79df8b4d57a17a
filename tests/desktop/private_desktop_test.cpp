#include "tests/support/image_compare.h"
#include "tests/support/requirements.h"
#include "tests/support/scene.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

namespace nimbrale::test {

namespace {

using testing::HasSubstr;
using Server = PrivateDesktop::Server;
using WindowManager = PrivateDesktop::WindowManager;
using Compositor = PrivateDesktop::Compositor;

struct Case {
    std::string name;
    PrivateDesktop::Options options;
};

class PrivateDesktopTest : public testing::TestWithParam<Case> {};

TEST_P(PrivateDesktopTest, ShowsTheWindowsOfAnotherProcessExactly)
{
    const auto desktop = requireDesktop(GetParam().options);
    EXPECT_EQ(desktop->screenSize(), QSize(GetParam().options.width, GetParam().options.height));
    const auto scene = requireScene(*desktop);
    scene->add("pattern", {.geometry = {100, 80, 300, 200}, .seed = 7});
    scene->add("color", {.geometry = {500, 80, 50, 50}, .seed = 0, .color = QColor(255, 0, 255)});

    EXPECT_TRUE(desktop->waitForPixel(510, 90, QColor(255, 0, 255)));
    const int tolerance = GetParam().options.depth == 16 ? 8 : 0;
    EXPECT_TRUE(imagesMatch(desktop->screenshot({100, 80, 300, 200}), Scene::pattern(7, {300, 200}), {tolerance, 0}));
}

std::vector<Case> cases()
{
    return {
        {"Xvnc", {}},
        {"XvncDepth16", {.depth = 16}},
        {"Xvfb", {.server = Server::xvfb}},
        {"XvfbGrowable", {.server = Server::xvfb, .width = 1024, .height = 768, .growableTo = QSize(4096, 2048)}},
        {"XvfbDepth30", {.server = Server::xvfb, .depth = 30}},
        {"XorgDummy", {.server = Server::xorgDummy}},
        {"Openbox", {.windowManager = WindowManager::openbox}},
        {"OpenboxPicom", {.windowManager = WindowManager::openbox, .compositor = Compositor::picom}},
        {"Xfwm4", {.windowManager = WindowManager::xfwm4}},
        {"Xfwm4Compositing", {.windowManager = WindowManager::xfwm4, .compositor = Compositor::windowManagersOwn}},
        {"Kwin", {.windowManager = WindowManager::kwin}},
        {"KwinCompositing", {.windowManager = WindowManager::kwin, .compositor = Compositor::windowManagersOwn}},
        {"Marco", {.windowManager = WindowManager::marco}},
        {"MarcoCompositing", {.windowManager = WindowManager::marco, .compositor = Compositor::windowManagersOwn}},
    };
}

INSTANTIATE_TEST_SUITE_P(Everywhere, PrivateDesktopTest, testing::ValuesIn(cases()),
                         [](const testing::TestParamInfo<Case>& each) { return each.param.name; });

TEST(PrivateDesktopDisplays, AnOutputIsPluggedInAndUnplugged)
{
    const auto desktop = requireDesktop({.windowManager = WindowManager::openbox});
    ASSERT_EQ(desktop->monitors().size(), 1U);
    ASSERT_TRUE(desktop->arrangeOutputs({{0, 0, 1280, 720}, {1280, 0, 1024, 768}}));
    const auto both = desktop->monitors();
    ASSERT_EQ(both.size(), 2U);
    EXPECT_EQ(both[1].name, "VNC-1");
    EXPECT_EQ(both[1].geometry, QRect(1280, 0, 1024, 768));

    desktop->unplug("VNC-1");
    EXPECT_EQ(desktop->monitors().size(), 1U);
    desktop->plug("VNC-1", {1280, 0, 1024, 768});
    EXPECT_EQ(desktop->monitorNamed("VNC-1")->geometry, QRect(1280, 0, 1024, 768));
}

TEST(PrivateDesktopDisplays, AMonitorIsSetBesideTheOutput)
{
    const auto desktop = requireDesktop({});
    ASSERT_TRUE(desktop->resizeScreen({2000, 720}));
    desktop->setMonitor("Beside", {1280, 0, 640, 400});
    const auto monitor = desktop->monitorNamed("Beside");
    ASSERT_TRUE(monitor);
    EXPECT_EQ(monitor->geometry, QRect(1280, 0, 640, 400));
    EXPECT_FALSE(monitor->isAutomatic);
    EXPECT_EQ(monitor->outputCount, 0);
}

TEST(PrivateDesktopPointer, ClicksReachTheWindowUnderThePointer)
{
    const auto desktop = requireDesktop({.windowManager = WindowManager::openbox});
    const auto scene = requireScene(*desktop);
    scene->add("below", {.geometry = {100, 80, 300, 200}, .overrideRedirect = false});
    ASSERT_TRUE(waitUntil([&] { return scene->focused() == "below"; }, Milliseconds{3000}));
    scene->add("above", {.geometry = {600, 80, 100, 100}, .seed = 3});

    desktop->click({650, 130});
    EXPECT_EQ(scene->pressCount("above"), 1);
    EXPECT_EQ(scene->pressCount("below"), 0);
    EXPECT_EQ(desktop->pointerPosition(), QPoint(650, 130));
}

TEST(PrivateDesktopCompositor, StartsAndStops)
{
    requireProgram("picom");
    const auto desktop = requireDesktop({.windowManager = WindowManager::openbox});
    EXPECT_FALSE(desktop->isComposited());
    EXPECT_TRUE(desktop->startCompositor());
    EXPECT_TRUE(desktop->isComposited());
    EXPECT_TRUE(desktop->stopCompositor());
    EXPECT_FALSE(desktop->isComposited());
}

/// What a test does where something is missing or broken.
class PrivateDesktopStart : public testing::Test {
protected:
    PrivateDesktopStart()
    {
        std::filesystem::remove_all(programs_);
        std::filesystem::create_directories(programs_);
    }
    ~PrivateDesktopStart() override { setenv("PATH", path_.c_str(), 1); }

    /// Has nothing found but the programs of this test.
    void hidePrograms() const { setenv("PATH", programs_.c_str(), 1); }
    /// Puts a program that ends at once in the place of the real one.
    void breakProgram(const std::string& name) const
    {
        const std::filesystem::path program = programs_ / name;
        std::ofstream(program) << "#!/bin/sh\nexit 3\n";
        std::filesystem::permissions(program, std::filesystem::perms::owner_all);
        setenv("PATH", (programs_.string() + ":" + path_).c_str(), 1);
    }

    /// What is told of a test that cannot have this desktop, and ends there.
    static void expectEnd(const PrivateDesktop::Options& options, testing::TestPartResult::Type type,
                          const std::string& words)
    {
        testing::TestPartResultArray results;
        {
            const testing::ScopedFakeTestPartResultReporter reporter(
                testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
            EXPECT_THROW(static_cast<void>(requireDesktop(options)), testing::AssertionException);
        }
        ASSERT_EQ(results.size(), 1);
        EXPECT_EQ(results.GetTestPartResult(0).type(), type);
        EXPECT_THAT(results.GetTestPartResult(0).message(), HasSubstr(words));
    }
    /// Fatal, so that a body that comes after it in SetUp is not run.
    static void expectFatalFailure(const PrivateDesktop::Options& options, const std::string& words)
    {
        expectEnd(options, testing::TestPartResult::kFatalFailure, words);
    }

private:
    std::string path_ = std::getenv("PATH");
    std::filesystem::path programs_ = testOutputFolder() / "programs";
};

TEST_F(PrivateDesktopStart, AMissingProgramIsAReasonToSkip)
{
    hidePrograms();
    expectEnd({}, testing::TestPartResult::kSkip, "Xvnc is not installed");
    expectEnd({.server = Server::xvfb}, testing::TestPartResult::kSkip, "Xvfb is not installed");
}

TEST_F(PrivateDesktopStart, AServerThatDoesNotStartIsAFailure)
{
    expectFatalFailure({.serverArguments = {"-no-such-argument"}}, "Xvnc does not start");
}

TEST_F(PrivateDesktopStart, AWindowManagerThatDoesNotStartIsAFailure)
{
    breakProgram("openbox");
    expectFatalFailure({.windowManager = WindowManager::openbox}, "the window manager does not start");
    breakProgram("marco");
    expectFatalFailure({.windowManager = WindowManager::marco}, "the window manager does not start");
}

TEST_F(PrivateDesktopStart, ACompositorThatDoesNotStartIsAFailure)
{
    breakProgram("picom");
    expectFatalFailure({.windowManager = WindowManager::openbox, .compositor = Compositor::picom},
                       "the compositor does not start");
}

} // namespace

} // namespace nimbrale::test
