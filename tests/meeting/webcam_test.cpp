// The webcam by a camera on the session's PipeWire, in the real application: in the frame on the screen, in the picture
// that others get, moved, closed and unplugged by a user.

#include "tests/meeting/webcam_journey.h"

#include <cmath>

namespace nimbrale::test {
namespace {

using Compositor = PrivateDesktop::Compositor;
using WindowManager = PrivateDesktop::WindowManager;

const QColor leftOfPicture(200, 40, 40);
const QColor rightOfPicture(40, 60, 200);
/// Where a webcam comes that was never placed, from the region's corner.
constexpr QRect firstBox(264, 204, 320, 180);

class Webcam : public WebcamJourney, public testing::WithParamInterface<WebcamSurroundings> {
protected:
    void SetUp() override
    {
        // Half red and half blue, so that mirrored is told from not mirrored.
        QImage halves(320, 180, QImage::Format_RGB32);
        halves.fill(leftOfPicture);
        for (int y = 0; y < halves.height(); ++y) {
            for (int x = halves.width() / 2; x < halves.width(); ++x)
                halves.setPixelColor(x, y, rightOfPicture);
        }
        prepare(GetParam(), halves);
    }
};

INSTANTIATE_TEST_SUITE_P(
    , Webcam,
    testing::Values(
        WebcamSurroundings{.name = "Openbox"}, WebcamSurroundings{.name = "Picom", .compositor = Compositor::picom},
        WebcamSurroundings{
            .name = "Xfwm4Compositing", .manager = WindowManager::xfwm4, .compositor = Compositor::windowManagersOwn},
        WebcamSurroundings{
            .name = "KwinCompositing", .manager = WindowManager::kwin, .compositor = Compositor::windowManagersOwn},
        WebcamSurroundings{
            .name = "MarcoCompositing", .manager = WindowManager::marco, .compositor = Compositor::windowManagersOwn},
        WebcamSurroundings{
            .name = "Mutter", .manager = WindowManager::mutter, .compositor = Compositor::windowManagersOwn},
        WebcamSurroundings{.name = "AtScale1_5", .compositor = Compositor::picom, .scale = 1.5},
        WebcamSurroundings{.name = "AtScale2", .compositor = Compositor::picom, .scale = 2}),
    testing::PrintToStringParamName());

TEST_P(Webcam, IsInTheFrameAndInTheShareAtTheSamePlaceAndMirrored)
{
    start();
    EXPECT_TRUE(bothShow(firstBox.topLeft() + QPoint(80, 90), rightOfPicture)) << picture();
    EXPECT_TRUE(bothShow(firstBox.topLeft() + QPoint(240, 90), leftOfPicture)) << picture();
    EXPECT_TRUE(bothShow(firstBox.topLeft() + QPoint(2, 2), wall)) << "a rounded corner: " << picture();
    EXPECT_TRUE(bothShow(firstBox.topLeft() + QPoint(40, 1), rightOfPicture)) << "its edge: " << picture();
    EXPECT_TRUE(bothShow(firstBox.topLeft() - QPoint(3, 3), wall)) << "beside it: " << picture();
}

TEST_P(Webcam, OtherShapesAndNotMirrored)
{
    start({{"webcamShape", "circle"},
           {"webcamMirrored", "false"},
           {"webcamX", "20"},
           {"webcamY", "30"},
           {"webcamWidth", "200"},
           {"webcamHeight", "200"}});
    EXPECT_TRUE(bothShow({20 + 50, 30 + 100}, leftOfPicture)) << picture();
    EXPECT_TRUE(bothShow({20 + 150, 30 + 100}, rightOfPicture)) << picture();
    EXPECT_TRUE(bothShow({20 + 20, 30 + 20}, wall)) << "outside of the circle: " << picture();
    EXPECT_TRUE(bothShow({20 + 40, 30 + 40}, leftOfPicture)) << "inside: " << picture();
}

TEST_P(Webcam, IsDraggedByItsHandleAndStoredAtTheEnd)
{
    start();
    ASSERT_TRUE(bothShow(firstBox.center() - QPoint(40, 0), rightOfPicture)) << picture();
    pointAt(firstBox, {160, 17});
    sleepFor(Milliseconds{100});
    const QPoint handle = region.topLeft() + firstBox.topLeft() + QPoint(160, 17);
    desktop->drag(pixels(handle), pixels(handle - QPoint(150, 120)));
    desktop->movePointer(pixels(farAway));
    const QRect box = firstBox.translated(-150, -120);
    EXPECT_TRUE(bothShow(box.topLeft() + QPoint(80, 90), rightOfPicture)) << picture();
    EXPECT_TRUE(bothShow(firstBox.bottomRight() - QPoint(10, 60), wall)) << "where it was: " << picture();
    EXPECT_EQ(application->storedValue("webcamX"), std::to_string(box.x()));
    EXPECT_EQ(application->storedValue("webcamY"), std::to_string(box.y()));
}

TEST_P(Webcam, IsResizedAtItsCorner)
{
    start({{"webcamX", "20"}, {"webcamY", "30"}, {"webcamShape", "rectangle"}});
    const QRect box(20, 30, 320, 180);
    ASSERT_TRUE(bothShow(box.center() - QPoint(40, 0), rightOfPicture)) << picture();
    pointAt(box, {303, 163});
    sleepFor(Milliseconds{100});
    const QPoint corner = region.topLeft() + box.topLeft() + QPoint(303, 163);
    desktop->drag(pixels(corner), pixels(corner + QPoint(80, 46)));
    desktop->movePointer(pixels(farAway));
    EXPECT_TRUE(bothShow({20 + 396, 30 + 221}, leftOfPicture)) << picture();
    EXPECT_EQ(application->storedValue("webcamWidth"), "400");
    EXPECT_EQ(application->storedValue("webcamHeight"), "226");
}

TEST_P(Webcam, MovesWithTheFrame)
{
    start();
    ASSERT_TRUE(bothShow(firstBox.center() - QPoint(40, 0), rightOfPicture)) << picture();
    const QPoint handle = pixels(Application::handleOf(region));
    desktop->drag(handle, handle + pixels({100, 60}));
    desktop->movePointer(pixels(farAway));
    frame += QPoint(100, 60);
    EXPECT_TRUE(bothShow(firstBox.center() - QPoint(40, 0), rightOfPicture, Milliseconds{3000})) << picture();
}

TEST_P(Webcam, ClosedByItsButtonItIsGoneAndTheCameraIsReleased)
{
    start();
    ASSERT_TRUE(bothShow(firstBox.center() - QPoint(40, 0), rightOfPicture)) << picture();
    pointAt(firstBox, {303, 17});
    sleepFor(Milliseconds{100});
    desktop->click(pixels(region.topLeft() + firstBox.topLeft() + QPoint(303, 17)));
    desktop->movePointer(pixels(farAway));
    EXPECT_TRUE(bothShow(firstBox.center() - QPoint(40, 0), wall)) << picture();
    EXPECT_TRUE(camera->waitFor("paused"));
    EXPECT_EQ(application->storedValue("webcamEnabled"), "false");
}

TEST_P(Webcam, ItsSettingsButtonOpensSettings)
{
    start();
    ASSERT_TRUE(bothShow(firstBox.center() - QPoint(40, 0), rightOfPicture)) << picture();
    pointAt(firstBox, {303, 45});
    sleepFor(Milliseconds{100});
    desktop->click(pixels(region.topLeft() + firstBox.topLeft() + QPoint(303, 45)));
    EXPECT_TRUE(waitUntil([&] { return desktop->windowTitled("Settings").has_value(); }, Milliseconds{5000}))
        << application->process().output() << picture();
    EXPECT_EQ(application->storedValue("settingsTab"), "webcam");
}

TEST_P(Webcam, UnpluggedItIsBlackWithinASecondAndComesBack)
{
    start();
    const QPoint place = firstBox.center() - QPoint(40, 0);
    ASSERT_TRUE(bothShow(place, rightOfPicture)) << picture();
    camera->tell("unplug");
    EXPECT_TRUE(waitUntil([&] { return shared(place) == QColor(Qt::black) && onScreen(place) == QColor(Qt::black); },
                          Milliseconds{1000}))
        << picture();
    camera->tell("plug");
    EXPECT_TRUE(bothShow(place, rightOfPicture)) << picture();
    const std::string line = "Couldn't use camera Test camera";
    EXPECT_TRUE(application->process().waitForOutput(line, Milliseconds{1000}));
    const std::string output = application->process().output();
    EXPECT_EQ(output.find("Couldn't use camera", output.find(line) + 1), std::string::npos) << "once: " << output;
}

TEST_P(Webcam, UnderThePointerItIsFadedForBoth)
{
    start();
    const QPoint place = firstBox.center() - QPoint(40, 0);
    ASSERT_TRUE(bothShow(place, rightOfPicture)) << picture();
    desktop->movePointer(pixels(region.topLeft() + firstBox.center()));
    const auto isFaded = [](const QColor& color) {
        const auto mixed = [](int webcam, int behind) { return 0.2 * webcam + 0.8 * behind; };
        return std::abs(color.red() - mixed(rightOfPicture.red(), wall.red())) <= 2 &&
               std::abs(color.green() - mixed(rightOfPicture.green(), wall.green())) <= 2 &&
               std::abs(color.blue() - mixed(rightOfPicture.blue(), wall.blue())) <= 2;
    };
    // Without a compositing manager a panel cannot be translucent, and what is nearly transparent is not there.
    const auto isFadedOnScreen = [&](const QColor& color) {
        return GetParam().compositor == Compositor::none ? color == wall : isFaded(color);
    };
    EXPECT_TRUE(
        waitUntil([&] { return isFadedOnScreen(onScreen(place)) && isFaded(shared(place)); }, Milliseconds{3000}))
        << picture();
    EXPECT_EQ(shared(firstBox.topLeft() + QPoint(303, 12)), shared(firstBox.topLeft() + QPoint(290, 30)))
        << "its controls are the user's alone: " << picture();
    desktop->movePointer(pixels(farAway));
    EXPECT_TRUE(bothShow(place, rightOfPicture)) << picture();
}

} // namespace
} // namespace nimbrale::test
