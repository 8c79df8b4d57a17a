// The real application where something is missing or wrong: it works around it or says what is the matter.

#include "tests/support/application.h"
#include "tests/support/image_compare.h"
#include "tests/support/requirements.h"
#include "tests/support/scene.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace nimbrale::test {
namespace {

using namespace std::string_literals;
using Server = PrivateDesktop::Server;
using WindowManager = PrivateDesktop::WindowManager;

const QColor frameYellow(255, 214, 10);
constexpr QRect region(100, 100, 400, 300);

class BadInputTest : public testing::Test {
protected:
    void startDesktop(const PrivateDesktop::Options& options)
    {
        desktop = requireDesktop(options);
        desktop->setBackground(QColor(30, 60, 90));
    }

    void startApplication(const Application::Settings& settings = {.region = region})
    {
        application = requireApplication(*desktop, settings);
    }

    void startWithSettings(const std::string& content)
    {
        const std::filesystem::path file = settingsFile();
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file) << content;
        startAgain();
    }

    void startAgain()
    {
        std::string reason;
        application = Application::startAgain(*desktop, reason);
        ASSERT_TRUE(application) << reason;
    }

    [[nodiscard]] std::filesystem::path settingsFile() const
    {
        return desktop->configFolder() / "Nimbrale" / "Nimbrale.conf";
    }

    /// The border just left of the region, half way down.
    [[nodiscard]] bool showsFrameAround(const QRect& area) const
    {
        return desktop->waitForPixel(area.x() - 2, area.y() + area.height() / 2, frameYellow, Milliseconds{8000});
    }

    void expectOrderlyEnd()
    {
        EXPECT_TRUE(application->process().isRunning()) << application->process().output();
        EXPECT_EQ(application->quit(), 0) << application->process().output();
    }

    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<Application> application;
};

TEST_F(BadInputTest, WithoutADisplayItSaysSo)
{
    std::string error;
    const std::filesystem::path output = testOutputFolder() / "no-display.txt";
    const auto process = Process::start((buildFolder() / "nimbrale").string(), {}, {{}, output, false}, error);
    ASSERT_TRUE(process) << error;
    EXPECT_EQ(process->waitForEnd(Milliseconds{5000}), 1);
    EXPECT_NE(process->output().find("neither DISPLAY nor WAYLAND_DISPLAY is set"), std::string::npos)
        << process->output();
}

TEST_F(BadInputTest, ADisplayThatIsNotThereEndsItWithAMessage)
{
    std::string error;
    const std::filesystem::path output = testOutputFolder() / "dead-display.txt";
    const auto process =
        Process::start((buildFolder() / "nimbrale").string(), {}, {{{"DISPLAY", ":9876"}}, output, false}, error);
    ASSERT_TRUE(process) << error;
    EXPECT_EQ(process->waitForEnd(Milliseconds{5000}), 1);
    EXPECT_NE(process->output().find("could not connect to display :9876"), std::string::npos) << process->output();
}

TEST_F(BadInputTest, AnEmptyWaylandDisplayIsNone)
{
    startDesktop({});
    application = requireApplication(*desktop, {.region = region}, {{"WAYLAND_DISPLAY", ""}});
    EXPECT_TRUE(showsFrameAround(region));
    expectOrderlyEnd();
}

TEST_F(BadInputTest, WithoutRandRTheMirrorWindowServes)
{
    startDesktop({.server = Server::xvfb, .serverArguments = {"-extension", "RANDR"}});
    startApplication();
    EXPECT_TRUE(showsFrameAround(region));
    EXPECT_TRUE(application->process().waitForOutput("Virtual display unavailable; sharing a window instead",
                                                     Milliseconds{5000}));
    expectOrderlyEnd();
}

TEST_F(BadInputTest, WithoutCompositeItSharesAndTellsOnce)
{
    startDesktop({.windowManager = WindowManager::openbox, .serverArguments = {"-extension", "Composite"}});
    // Besides the frame, the alert is all that will be on the display.
    const QRect besideTheFrame(540, 0, 740, 720);
    const QImage empty = desktop->screenshot(besideTheFrame);
    startApplication();
    EXPECT_TRUE(showsFrameAround(region));
    ASSERT_TRUE(application->waitForVirtualDisplay(region.size()));
    const auto isAlertShown = [&] { return desktop->screenshot(besideTheFrame) != empty; };
    ASSERT_TRUE(waitUntil(isAlertShown, Milliseconds{3000})) << keepImage(desktop->screenshot(), "desktop");
    sleepFor(Milliseconds{300});
    constexpr std::uint32_t returnKey = 0xff0d;
    desktop->pressKey(returnKey);
    desktop->releaseKey(returnKey);
    EXPECT_TRUE(waitUntil([&] { return !isAlertShown(); }, Milliseconds{3000}))
        << keepImage(desktop->screenshot(), "desktop");
    EXPECT_FALSE(waitUntil(isAlertShown, Milliseconds{1000})) << "it is told once";
    const QRect shared = desktop->monitorNamed("Nimbrale")->geometry;
    EXPECT_TRUE(
        waitUntil([&] { return desktop->screenshot(shared) == desktop->screenshot(region); }, Milliseconds{3000}));
    expectOrderlyEnd();
}

TEST_F(BadInputTest, WithoutRenderItSaysWhatIsMissing)
{
    startDesktop({.server = Server::xvfb, .serverArguments = {"-extension", "RENDER"}});
    startApplication();
    EXPECT_TRUE(application->process().waitForOutput("This X server lacks the RENDER", Milliseconds{5000}));
    // It tells the user, who has only that one answer, and ends with it.
    ASSERT_TRUE(waitUntil([&] { return desktop->windowTitled("Nimbrale").has_value(); }, Milliseconds{3000}));
    EXPECT_TRUE(application->process().isRunning());
    EXPECT_FALSE(desktop->monitorNamed("Nimbrale"));
    const QRect message = *desktop->windowTitled("Nimbrale");
    desktop->movePointer(message.center());
    constexpr std::uint32_t escapeKey = 0xff1b;
    // Without a window manager the keys go to the window under the pointer.
    desktop->pressKey(escapeKey);
    desktop->releaseKey(escapeKey);
    EXPECT_EQ(application->process().waitForEnd(Milliseconds{5000}), EXIT_FAILURE) << application->process().output();
}

TEST_F(BadInputTest, EveryDepthOfTheDisplayIsShared)
{
    for (const int depth : {16, 30}) {
        startDesktop({.server = Server::xvfb, .depth = depth, .growableTo = QSize(2600, 1600)});
        const auto scene = requireScene(*desktop);
        scene->add("content", {.geometry = {50, 50, 700, 500}, .seed = 3});
        desktop->movePointer({900, 600});
        const QImage framed = desktop->screenshot(region);
        startApplication();
        ASSERT_TRUE(application->waitForVirtualDisplay(region.size())) << "depth " << depth;
        const QRect shared = desktop->monitorNamed("Nimbrale")->geometry;
        EXPECT_TRUE(waitUntil([&] { return desktop->screenshot(shared) == framed; }, Milliseconds{5000}))
            << "depth " << depth;
        expectOrderlyEnd();
        application.reset();
    }
}

TEST_F(BadInputTest, SettingsOfGarbageAreSetAsideAndTheDefaultsServe)
{
    startDesktop({});
    startWithSettings("\x00\x01\xfe\xff garbage \x07 [[[[ = = =\n\x80\x81"s);
    EXPECT_TRUE(application->waitForVirtualDisplay({800, 600}));
    bool isSetAside = false;
    for (const auto& entry : std::filesystem::directory_iterator(settingsFile().parent_path()))
        isSetAside |= entry.path().filename().string().rfind("Nimbrale.conf.damaged-", 0) == 0;
    EXPECT_TRUE(isSetAside);
    expectOrderlyEnd();
}

TEST_F(BadInputTest, NumbersOutOfRangeAreBroughtIntoTheDisplay)
{
    startDesktop({.width = 1280, .height = 720});
    startWithSettings("[General]\nsettingsLeft=-99999999\nsettingsTop=123456789012\nsettingsWidth=999999999\n"
                      "settingsHeight=-5\nsettingsFramerate=0\nsettingsDisplayID=-17\n");
    EXPECT_TRUE(application->waitForVirtualDisplay({1280, 50}));
    expectOrderlyEnd();
}

TEST_F(BadInputTest, FrameRatesThatNoIntervalCanHoldAreBroughtIntoBounds)
{
    startDesktop({});
    for (const char* rate : {"99999999999", "-99999999999", "2147483648", "9223372036854775807"}) {
        startWithSettings("[General]\nsettingsFramerate="s + rate + "\n");
        EXPECT_TRUE(application->waitForVirtualDisplay({800, 600})) << rate;
        expectOrderlyEnd();
        application.reset();
    }
}

TEST_F(BadInputTest, WhateverStandsInPlaceOfTheSettingsFileTheDefaultsServe)
{
    startDesktop({});
    const std::string file = settingsFile().string();
    const std::vector<std::pair<const char*, std::function<void()>>> places = {
        {"a pipe", [&] { ASSERT_EQ(mkfifo(file.c_str(), 0600), 0); }},
        {"a folder", [&] { std::filesystem::create_directories(file); }},
        {"a device", [&] { std::filesystem::create_symlink("/dev/zero", file); }},
        {"a file of 100 GB",
         [&] {
             std::ofstream(file) << "[General]\n";
             std::filesystem::resize_file(file, std::uintmax_t{100} << 30);
         }},
    };
    for (const auto& [what, make] : places) {
        std::filesystem::remove_all(settingsFile().parent_path());
        std::filesystem::create_directories(settingsFile().parent_path());
        make();
        startAgain();
        EXPECT_TRUE(application->waitForVirtualDisplay({800, 600})) << what;
        expectOrderlyEnd();
        application.reset();
    }
}

TEST_F(BadInputTest, TheServersDeathEndsItWithAMessage)
{
    startDesktop({});
    auto scene = requireScene(*desktop);
    scene->add("framed", {.geometry = region, .seed = 0, .color = Qt::green});
    startApplication();
    ASSERT_TRUE(application->waitForVirtualDisplay(region.size()));
    const auto display = desktop->monitorNamed("Nimbrale");
    ASSERT_TRUE(display);
    // The toolkit (Qt 6.4) uses replies without a look at them while it takes in a changed display, and crashes when
    // the server goes in just that moment. The picture comes after that.
    ASSERT_TRUE(desktop->waitForPixel(display->geometry.center().x(), display->geometry.center().y(), Qt::green));
    scene.reset();
    desktop->server().terminate();
    EXPECT_EQ(application->process().waitForEnd(Milliseconds{5000}), 1);
    const std::string output = application->process().output();
    // The toolkit may notice first, and ends the program in its own words.
    EXPECT_TRUE(output.find("The connection to the X server is lost") != std::string::npos ||
                output.find("The X11 connection broke") != std::string::npos)
        << output;
}

} // namespace
} // namespace nimbrale::test
