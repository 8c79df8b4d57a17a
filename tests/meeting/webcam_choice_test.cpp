// The user chooses another camera in Settings, by the keyboard, while the webcam is shown.

#include "tests/meeting/webcam_journey.h"

namespace nimbrale::test {
namespace {

const QColor firstColor(200, 40, 40);
const QColor secondColor(40, 60, 200);
/// Where a webcam comes that was never placed, from the region's corner.
constexpr QRect firstBox(264, 204, 320, 180);
constexpr std::uint32_t altKey = 0xffe9;
constexpr std::uint32_t downKey = 0xff54;
constexpr std::uint32_t upKey = 0xff52;

class WebcamChoice : public WebcamJourney {
protected:
    void SetUp() override
    {
        prepare({.name = "Openbox"}, pictureOf(firstColor));
        otherCamera = plugIn("other-camera", "Zoomed camera", pictureOf(secondColor));
        start({{"webcamDeviceID", "test-camera"}});
        ASSERT_TRUE(waitUntil([&] { return showsShared(firstColor); }, Milliseconds{8000})) << picture();
    }

    [[nodiscard]] static QImage pictureOf(const QColor& color)
    {
        QImage image(320, 180, QImage::Format_RGB32);
        image.fill(color);
        return image;
    }
    [[nodiscard]] bool showsShared(const QColor& color) const { return shared(firstBox.center()) == color; }
    void strike(std::uint32_t key)
    {
        desktop->pressKey(key);
        desktop->releaseKey(key);
    }
    /// By the webcam's own button; the picker of cameras has the keyboard then.
    void openSettings()
    {
        pointAt(firstBox, {303, 45});
        sleepFor(Milliseconds{100});
        desktop->click(pixels(frame + firstBox.topLeft() + QPoint(303, 45)));
        desktop->movePointer(pixels(farAway));
        ASSERT_TRUE(waitUntil([&] { return desktop->activeWindowTitle() == "Nimbrale Settings"; }, Milliseconds{5000}))
            << picture();
        // The window manager gives the focus when it has placed the window.
        sleepFor(Milliseconds{300});
        desktop->pressKey(altKey);
        strike('c');
        desktop->releaseKey(altKey);
    }

    std::unique_ptr<VirtualCamera> otherCamera;
};

TEST_F(WebcamChoice, AnotherCameraChosenInSettingsIsShownAndTheFirstIsReleased)
{
    openSettings();
    strike(downKey);
    EXPECT_TRUE(waitUntil([&] { return showsShared(secondColor); }, Milliseconds{5000})) << picture();
    EXPECT_EQ(application->storedValue("webcamDeviceID"), "other-camera");
    EXPECT_TRUE(camera->waitFor("paused")) << "its light goes out";

    strike(upKey);
    EXPECT_TRUE(waitUntil([&] { return showsShared(firstColor); }, Milliseconds{5000})) << picture();
    EXPECT_EQ(application->storedValue("webcamDeviceID"), "test-camera");
    EXPECT_TRUE(otherCamera->waitFor("paused"));
}

TEST_F(WebcamChoice, TheChosenCameraUnpluggedGivesWayToTheOtherAndComesBack)
{
    openSettings();
    strike(downKey);
    ASSERT_TRUE(waitUntil([&] { return showsShared(secondColor); }, Milliseconds{5000})) << picture();
    otherCamera->tell("unplug");
    EXPECT_TRUE(waitUntil([&] { return showsShared(firstColor); }, Milliseconds{5000})) << picture();
    EXPECT_TRUE(application->process().waitForOutput("Couldn't use camera Zoomed camera", Milliseconds{1000}));
    otherCamera->tell("plug");
    EXPECT_TRUE(waitUntil([&] { return showsShared(secondColor); }, Milliseconds{5000})) << picture();
    EXPECT_EQ(application->storedValue("webcamDeviceID"), "other-camera") << "the choice is the user's";
}

} // namespace
} // namespace nimbrale::test
