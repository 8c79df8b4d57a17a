// Displays change under the frame: what slides under it is nobody's business, and the program lives on without any.

#include "tests/support/application.h"
#include "tests/support/image_compare.h"
#include "tests/support/requirements.h"
#include "tests/support/scene.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <thread>

namespace nimbrale::test {
namespace {

using Server = PrivateDesktop::Server;
using WindowManager = PrivateDesktop::WindowManager;

const QColor quiet(30, 60, 90);
const QColor privateColor(255, 0, 255);
const QColor frameYellow(255, 214, 10);

/// Looks at the virtual display, wherever it is, as fast as the server lets it, and counts what it sees of a color.
class Watcher {
public:
    Watcher(const PrivateDesktop& desktop, const QColor& color)
        : desktop_(desktop), color_(color.rgb()), thread_([this] { watch(); })
    {}
    ~Watcher() { stop(); }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    void stop()
    {
        isOver_ = true;
        if (thread_.joinable())
            thread_.join();
    }
    [[nodiscard]] int looks() const { return looks_; }
    [[nodiscard]] int sightings() const { return sightings_; }

private:
    void watch()
    {
        while (!isOver_) {
            const auto before = desktop_.monitorNamed("Nimbrale");
            if (!before)
                continue;
            const QImage picture = desktop_.screenshot(before->geometry);
            // A picture of where it was a moment ago says nothing.
            if (desktop_.monitorNamed("Nimbrale") != before)
                continue;
            ++looks_;
            sightings_ += shows(picture) ? 1 : 0;
        }
    }
    [[nodiscard]] bool shows(const QImage& picture) const
    {
        constexpr int step = 8;
        for (int y = 0; y < picture.height(); y += step) {
            for (int x = 0; x < picture.width(); x += step) {
                if (picture.pixel(x, y) == color_)
                    return true;
            }
        }
        return false;
    }

    const PrivateDesktop& desktop_;
    QRgb color_;
    std::atomic<bool> isOver_ = false;
    std::atomic<int> looks_ = 0;
    std::atomic<int> sightings_ = 0;
    std::thread thread_;
};

struct Surroundings {
    const char* name;
    Server server;
    WindowManager windowManager = WindowManager::none;
};

void PrintTo(const Surroundings& surroundings, std::ostream* stream)
{
    *stream << surroundings.name;
}

class DisplayChangeTest : public testing::TestWithParam<Surroundings> {
protected:
    void SetUp() override
    {
        desktop = requireDesktop(
            {.server = GetParam().server, .width = 1600, .height = 900, .windowManager = GetParam().windowManager});
        desktop->setBackground(quiet);
        desktop->movePointer({20, 20});
    }

    void startApplication()
    {
        application = requireApplication(*desktop, {.region = region});
        ASSERT_TRUE(application->waitForVirtualDisplay(region.size())) << application->process().output();
        ASSERT_TRUE(waitUntil([&] { return showsOnDisplay(quiet); }, Milliseconds{5000}))
            << keepImage(desktop->screenshot(), "desktop");
    }
    /// In the middle of the virtual display.
    [[nodiscard]] bool showsOnDisplay(const QColor& color) const
    {
        const auto monitor = desktop->monitorNamed("Nimbrale");
        return monitor && desktop->pixel(monitor->geometry.center().x(), monitor->geometry.center().y()) == color;
    }
    /// The first display shrinks, and the second one moves up to it.
    void shrinkTheFirst() const
    {
        if (GetParam().server == Server::xvnc)
            ASSERT_TRUE(desktop->arrangeOutputs({small, slid}));
        else
            desktop->run("xrandr", {"--output", "DUMMY0", "--mode", "800x600", "--output", "DUMMY1", "--pos", "800x0"});
    }

    const QRect first{0, 0, 1600, 900};
    const QRect second{1600, 0, 1024, 768};
    const QRect small{0, 0, 800, 600};
    const QRect slid{800, 0, 1024, 768};
    const QRect region{900, 100, 400, 300};
    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<Application> application;
};

TEST_P(DisplayChangeTest, TheNeighbourThatSlidesUnderTheFrameIsNeverShown)
{
    ASSERT_TRUE(desktop->arrangeOutputs({first, second}));
    const auto scene = requireScene(*desktop);
    scene->add("private", {.geometry = second, .seed = 0, .color = privateColor});
    startApplication();

    // A control: what lies there is seen.
    Watcher control(*desktop, privateColor);
    scene->move("private", region.topLeft());
    ASSERT_TRUE(waitUntil([&] { return control.sightings() > 0; }, Milliseconds{3000}));
    control.stop();
    scene->move("private", second.topLeft());
    ASSERT_TRUE(waitUntil([&] { return showsOnDisplay(quiet); }, Milliseconds{3000}));

    Watcher watcher(*desktop, privateColor);
    ASSERT_TRUE(waitUntil([&] { return watcher.looks() > 20; }, Milliseconds{3000}));
    shrinkTheFirst();
    // As a window manager does when it hears of the change.
    scene->move("private", slid.topLeft());
    const int looksBefore = watcher.looks();
    sleepFor(Milliseconds{2500});
    watcher.stop();
    EXPECT_GT(watcher.looks(), looksBefore + 50);
    EXPECT_EQ(watcher.sightings(), 0) << "of " << watcher.looks() << " looks";
    EXPECT_TRUE(application->process().isRunning());
    // It goes on with what is left of the first display.
    EXPECT_TRUE(waitUntil([&] { return showsOnDisplay(quiet); }, Milliseconds{5000}))
        << keepImage(desktop->screenshot(), "desktop");
}

TEST_P(DisplayChangeTest, TheOnlyDisplayGoesAndComesBackAndTheShareGoesOn)
{
    startApplication();
    const std::string output = desktop->outputName(0);
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        desktop->unplug(output);
        ASSERT_TRUE(waitUntil(
            [&] {
                const auto monitors = desktop->monitors();
                return std::ranges::none_of(monitors, [](const auto& monitor) { return monitor.isAutomatic; });
            },
            Milliseconds{3000}))
            << "the display is gone";
        sleepFor(Milliseconds{2500});
        desktop->plug(output, first);
        EXPECT_TRUE(waitUntil(
            [&] { return desktop->pixel(region.x() - 2, region.center().y()) == frameYellow && showsOnDisplay(quiet); },
            Milliseconds{5000}))
            << keepImage(desktop->screenshot(), "desktop") << application->process().output();
    }
    EXPECT_EQ(application->quit(), 0) << application->process().output();
}

INSTANTIATE_TEST_SUITE_P(Servers, DisplayChangeTest,
                         testing::Values(Surroundings{"Xvnc", Server::xvnc},
                                         Surroundings{"XorgDummy", Server::xorgDummy},
                                         Surroundings{"Marco", Server::xvnc, WindowManager::marco}),
                         [](const auto& surroundings) { return surroundings.param.name; });

} // namespace
} // namespace nimbrale::test
