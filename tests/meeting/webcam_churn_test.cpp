// Everything about the webcam changes at random, one thing after the other and mostly before the last has had its
// effect: by the user in Settings and on the panel, by cameras that go and come, and by PipeWire. Whenever it is hidden
// the camera is closed, whatever came before.

#include "tests/meeting/webcam_journey.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <random>
#include <vector>

namespace nimbrale::test {
namespace {

constexpr std::uint32_t altKey = 0xffe9;
constexpr std::uint32_t leftKey = 0xff51;
constexpr std::uint32_t upKey = 0xff52;
constexpr std::uint32_t rightKey = 0xff53;
constexpr std::uint32_t downKey = 0xff54;

constexpr Milliseconds moment{2000};
const QColor firstColor(200, 40, 40);
const QColor secondColor(40, 60, 200);

QImage pictureOf(const QColor& color, QSize size)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(color);
    return image;
}

class WebcamChurn : public WebcamJourney {
protected:
    void SetUp() override
    {
        prepare({.name = "Openbox"}, pictureOf(firstColor, {320, 180}));
        plugInSecond();
        start({{"settingsTab", "webcam"},
               {"webcamX", "20"},
               {"webcamY", "30"},
               {"webcamWidth", "320"},
               {"webcamHeight", "180"}});
        ASSERT_TRUE(waitUntil([this] { return isCameraOpen(); }, Milliseconds{20'000})) << picture();
        openSettings();
    }

    void plugInSecond() { second_ = plugIn("other-camera", "Other camera", pictureOf(secondColor, {640, 480})); }

    /// Starting it once more does that. Beside the frame they are in the way of no drag.
    void openSettings()
    {
        sharing_ = desktop->spawn((buildFolder() / "nimbrale").string(), {});
        ASSERT_TRUE(sharing_);
        ASSERT_TRUE(waitUntil([&] { return areSettingsActive(); }, Milliseconds{20'000})) << picture();
        const auto left = [this] { return desktop->activeWindowPlace().value_or(QRect()).left(); };
        if (left() > region.right())
            return;
        const QPoint title = desktop->activeWindowPlace().value_or(QRect()).topLeft() + QPoint(60, -10);
        desktop->drag(title, title + QPoint(region.right() + 20 - left(), 0));
        ASSERT_TRUE(waitUntil([&] { return left() > region.right(); }, Milliseconds{5000})) << picture();
        desktop->movePointer(pixels(farAway));
    }
    [[nodiscard]] bool areSettingsActive() const { return desktop->activeWindowTitle() == "Nimbrale Settings"; }

    void strike(std::uint32_t key)
    {
        desktop->pressKey(key);
        desktop->releaseKey(key);
    }
    void strikeWithAlt(char letter)
    {
        desktop->pressKey(altKey);
        strike(static_cast<std::uint32_t>(letter));
        desktop->releaseKey(altKey);
    }

    /// Whether the thread is there that a camera has while it is open.
    [[nodiscard]] bool isCameraOpen()
    {
        const std::string tasks = "/proc/" + std::to_string(application->process().pid()) + "/task";
        for (const auto& task : std::filesystem::directory_iterator(tasks)) {
            std::string name;
            std::getline(std::ifstream(task.path() / "comm"), name);
            if (name == "nimbrale-camera")
                return true;
        }
        return false;
    }
    void setShown(bool isShown)
    {
        const std::string wanted = isShown ? "true" : "false";
        for (int tries = 0; tries < 3 && application->storedValue("webcamEnabled") != wanted; ++tries) {
            strikeWithAlt('w');
            static_cast<void>(
                waitUntil([&] { return application->storedValue("webcamEnabled") == wanted; }, Milliseconds{3000}));
        }
        ASSERT_EQ(application->storedValue("webcamEnabled"), wanted) << picture();
    }
    void hideAndExpectTheCameraClosed()
    {
        setShown(false);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_TRUE(waitUntil([this] { return !isCameraOpen(); }, moment)) << "hidden, and the camera is open";
        longest_ =
            std::max(longest_, std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - start));
        ++timesHidden_;
    }

    [[nodiscard]] QRect storedBox() const
    {
        const auto number = [this](const char* key) { return std::atoi(application->storedValue(key).c_str()); };
        return {number("webcamX"), number("webcamY"), number("webcamWidth"), number("webcamHeight")};
    }
    void drag(QPoint grip)
    {
        const QRect box = storedBox();
        pointAt(box, grip);
        const QPoint from = frame + box.topLeft() + grip;
        desktop->drag(pixels(from), pixels(from + QPoint(any(-150, 150), any(-100, 100))), 10, Milliseconds{5});
        desktop->movePointer(pixels(farAway));
    }
    /// As on a computer that has no time for it, until it goes on.
    void setPipewireRunning(bool isRunning)
    {
        kill(pipewire->daemon(), isRunning ? SIGCONT : SIGSTOP);
        isPipewireRunning_ = isRunning;
    }
    void crashPipewire()
    {
        isPipewireRunning_ = true;
        pipewire->crash();
        camera->crash();
        second_->crash();
        sleepFor(Milliseconds{any(0, 600)});
        std::string reason;
        ASSERT_TRUE(pipewire->startAgain(reason)) << reason;
        camera = plugIn("test-camera", "Test camera", pictureOf(firstColor, {320, 180}));
        plugInSecond();
    }
    [[nodiscard]] int any(int first, int last) { return std::uniform_int_distribution<int>(first, last)(random_); }

    struct Action {
        const char* name;
        int weight;
        std::function<void()> act;
    };
    [[nodiscard]] std::vector<Action> actions()
    {
        const auto eitherCamera = [this]() -> VirtualCamera& { return any(0, 1) == 0 ? *camera : *second_; };
        return {{"camera", 4,
                 [this] {
                     strikeWithAlt('c');
                     strike(any(0, 1) == 0 ? upKey : downKey);
                 }},
                {"shape", 3,
                 [this] {
                     strikeWithAlt('s');
                     strike(any(0, 1) == 0 ? leftKey : rightKey);
                 }},
                {"background", 5,
                 [this] {
                     strikeWithAlt('b');
                     strike(any(0, 1) == 0 ? leftKey : rightKey);
                 }},
                {"mirrored", 2, [this] { strikeWithAlt('m'); }},
                {"fading", 1, [this] { strikeWithAlt('f'); }},
                {"shown", 4, [this] { strikeWithAlt('w'); }},
                {"place", 2,
                 [this] {
                     drag({storedBox().width() / 2, 17});
                 }},
                {"size", 2,
                 [this] {
                     drag({storedBox().width() - 17, storedBox().height() - 17});
                 }},
                {"unplugged", 2, [eitherCamera] { eitherCamera().tell("unplug"); }},
                {"plugged", 4, [eitherCamera] { eitherCamera().tell("plug"); }},
                {"format", 2,
                 [this, eitherCamera] {
                     const std::vector<std::string> formats{"MJPG:640x480@30", "YUY2:1280x720@30", "NV12:640x360@15",
                                                            "BGRx:320x180@30"};
                     eitherCamera().tell("offer " + formats.at(static_cast<std::size_t>(any(0, 3))));
                 }},
                {"pipewire stops or goes on", 2, [this] { setPipewireRunning(!isPipewireRunning_); }},
                {"pipewire crashes", 1, [this] { crashPipewire(); }}};
    }

    std::unique_ptr<VirtualCamera> second_;
    std::unique_ptr<Process> sharing_;
    std::mt19937 random_;
    Milliseconds longest_{0};
    int timesHidden_ = 0;
    bool isPipewireRunning_ = true;
};

TEST_F(WebcamChurn, TheCameraIsClosedWhenItIsHiddenAndShownWhenItIsShownWhateverCameBefore)
{
    const bool isLong = std::getenv("NIMBRALE_LONG") != nullptr;
    const auto seed = isLong ? std::random_device{}() : 7U;
    random_.seed(seed);
    SCOPED_TRACE("seed " + std::to_string(seed));
    const std::vector<Action> all = actions();
    std::vector<double> weights;
    for (const Action& action : all)
        weights.push_back(action.weight);
    std::discrete_distribution<std::size_t> choice(weights.begin(), weights.end());

    std::string last;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds{isLong ? 60 : 15};
    int count = 0;
    for (; std::chrono::steady_clock::now() < end && !HasFailure(); ++count) {
        const Action& action = all.at(choice(random_));
        last += std::string(" ") + action.name;
        action.act();
        sleepFor(Milliseconds{any(0, 150)});
        if (!areSettingsActive())
            openSettings();
        if (count % 12 == 11) {
            hideAndExpectTheCameraClosed();
            setShown(true);
            last.clear();
        }
        ASSERT_TRUE(application->process().isRunning()) << last << "\n" << application->process().output();
    }
    EXPECT_FALSE(HasFailure()) << "after" << last;

    hideAndExpectTheCameraClosed();
    EXPECT_GT(timesHidden_, 1);
    setPipewireRunning(true);
    // All is there and as it was at first, but for its place, shape and mirroring: it is shown.
    for (const auto& one : {camera.get(), second_.get()}) {
        one->tell("unplug");
        one->tell("offer BGRx:320x180@30");
        one->tell("plug");
    }
    setShown(true);
    strikeWithAlt('b');
    for (int step = 0; step < 2; ++step)
        strike(leftKey);
    desktop->movePointer(pixels(farAway));
    const auto isOneOfBoth = [](const QColor& color) { return color == firstColor || color == secondColor; };
    EXPECT_TRUE(waitUntil(
        [&] {
            // The center of the circle, too, whose box is a square.
            const QRect box = storedBox();
            const int radius = std::min(box.width(), box.height()) / 2;
            const QPoint center = box.topLeft() + QPoint(radius, radius);
            return isOneOfBoth(shared(center)) && shared(center) == onScreen(center);
        },
        Milliseconds{20'000}))
        << picture() << application->process().output();
    std::cout << "[ FIGURE   ] " << count << " changes; hidden " << timesHidden_
              << " times, the camera was closed after " << longest_.count() << " ms at the most\n";
    EXPECT_EQ(application->quit(), 0) << application->process().output();
}

} // namespace
} // namespace nimbrale::test
