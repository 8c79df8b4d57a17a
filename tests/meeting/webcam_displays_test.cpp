// The webcam on a computer with two displays: it goes with the frame, and the camera is opened by one stream at a time.

#include "tests/meeting/webcam_journey.h"
#include "tests/support/camera_streams.h"

namespace nimbrale::test {
namespace {

const QColor webcamColor(200, 40, 40);
constexpr QRect secondDisplay(1280, 0, 1024, 576);
/// The frame's corner there, as far from the display's as the first one is from its own.
constexpr QPoint onSecond = secondDisplay.topLeft() + QPoint(160, 120);
/// Where a webcam comes that was never placed, from the region's corner.
constexpr QRect firstBox(264, 204, 320, 180);

class WebcamDisplays : public WebcamJourney, public testing::WithParamInterface<WebcamSurroundings> {
protected:
    void SetUp() override
    {
        requireProgram("pw-dump");
        QImage picture(320, 180, QImage::Format_RGB32);
        picture.fill(webcamColor);
        prepare(GetParam(), picture);
        ASSERT_TRUE(desktop->arrangeOutputs({QRect({}, displaySize), secondDisplay})) << desktop->run("xrandr");
        addWall("second-wall", secondDisplay);
        start();
        ASSERT_TRUE(bothShow(firstBox.center(), webcamColor));
    }

    void dragFrameTo(QPoint corner)
    {
        const QPoint handle = Application::handleOf(QRect(frame, region.size()));
        desktop->drag(handle, handle + corner - frame, 40);
        desktop->movePointer(farAway);
        frame = corner;
    }
    [[nodiscard]] testing::AssertionResult isShownByOneStream()
    {
        if (!bothShow(firstBox.center(), webcamColor))
            return testing::AssertionFailure() << "it is not shown: " << picture();
        if (!bothShow(firstBox.topLeft() - QPoint(3, 3), wall))
            return testing::AssertionFailure() << "it is elsewhere: " << picture();
        if (!waitUntil([&] { return openCameraStreams(*pipewire) == 1; }, Milliseconds{3000}))
            return testing::AssertionFailure() << "it is open " << openCameraStreams(*pipewire) << " times";
        return testing::AssertionSuccess();
    }
};

INSTANTIATE_TEST_SUITE_P(, WebcamDisplays,
                         testing::Values(WebcamSurroundings{.name = "Xvnc"},
                                         WebcamSurroundings{.name = "XorgDummy",
                                                            .server = PrivateDesktop::Server::xorgDummy}),
                         testing::PrintToStringParamName());

TEST_P(WebcamDisplays, GoesWithTheFrameToTheOtherDisplayAndComesBackWhenThatIsUnplugged)
{
    const CameraStreamWatch watch(*pipewire);
    EXPECT_TRUE(isShownByOneStream());

    dragFrameTo(onSecond);
    EXPECT_TRUE(isShownByOneStream());

    const std::string output = desktop->outputName(1);
    desktop->unplug(output);
    frame -= secondDisplay.topLeft();
    EXPECT_TRUE(isShownByOneStream());

    desktop->plug(output, secondDisplay);
    EXPECT_TRUE(isShownByOneStream());
    dragFrameTo(onSecond);
    EXPECT_TRUE(isShownByOneStream());

    EXPECT_EQ(watch.most(), 1) << "of " << watch.looks() << " looks";
    EXPECT_EQ(application->quit(), 0) << application->process().output();
    EXPECT_TRUE(waitUntil([&] { return openCameraStreams(*pipewire) == 0; }, Milliseconds{3000}));
}

// The control: a stream that was left open would have been counted.
TEST_P(WebcamDisplays, ACameraThatTwoProgramsShowIsCountedTwice)
{
    const CameraStreamWatch watch(*pipewire);
    const auto otherDesktop = requireDesktop({.width = 1280, .height = 720});
    const auto another = requireApplication(*otherDesktop, {.region = region, .others = {{"webcamEnabled", "true"}}},
                                            {{"PIPEWIRE_RUNTIME_DIR", pipewire->runtimeFolder()}});
    EXPECT_TRUE(waitUntil([&] { return watch.most() == 2; }, Milliseconds{8000}))
        << watch.most() << "; " << another->process().output();
}

} // namespace
} // namespace nimbrale::test
