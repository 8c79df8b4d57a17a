// The webcam when what brings its pictures goes, and comes back.

#include "tests/meeting/webcam_journey.h"
#include "tests/support/resident_memory.h"

namespace nimbrale::test {
namespace {

const QColor webcamColor(200, 40, 40);
/// A place in the webcam, which is at the bottom right at first, from the framed area's corner.
constexpr QPoint inWebcam(400, 290);

QImage plainPicture()
{
    QImage picture(320, 180, QImage::Format_RGB32);
    picture.fill(webcamColor);
    return picture;
}

using WebcamFaultsTest = WebcamJourney;

TEST_F(WebcamFaultsTest, WithPipewireItGoesBlackAndComesBack)
{
    prepare({.name = "Openbox"}, plainPicture());
    start();
    ASSERT_TRUE(bothShow(inWebcam, webcamColor)) << picture();
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        pipewire->crash();
        camera->crash();
        EXPECT_TRUE(bothShow(inWebcam, Qt::black)) << picture();
        std::string reason;
        ASSERT_TRUE(pipewire->startAgain(reason)) << reason;
        camera = plugIn("test-camera", "Test camera", plainPicture());
        EXPECT_TRUE(bothShow(inWebcam, webcamColor, Milliseconds{15'000})) << picture();
    }
    EXPECT_EQ(application->quit(), 0) << application->process().output();
}

/// Each of its pictures is a quarter of a gigabyte.
TEST_F(WebcamFaultsTest, AHugeCameraIsShownAndItsMemoryGivenBack)
{
    if (areHugePicturesTooSlow)
        skipTest("too slow under the thread sanitizer");
    prepare({.name = "Openbox"}, plainPicture());
    start();
    ASSERT_TRUE(bothShow(inWebcam, webcamColor)) << picture();
    const pid_t process = application->process().pid();
    constexpr long megabyte = 1024L * 1024;
    const long before = residentMemory(process);

    camera->tell("offer BGRx:8192x8192@2");
    camera->tell("show #2840c8");
    EXPECT_TRUE(bothShow(inWebcam, QColor("#2840c8"), Milliseconds{20'000})) << picture();
    EXPECT_GT(residentMemory(process), before + 256 * megabyte);
    camera->tell("unplug");
    EXPECT_TRUE(bothShow(inWebcam, Qt::black)) << picture();
    EXPECT_TRUE(waitUntil([&] { return residentMemory(process) < before + 32 * megabyte; }, Milliseconds{5000}))
        << residentMemory(process) / megabyte << " MB instead of " << before / megabyte;
    EXPECT_EQ(application->quit(), 0) << application->process().output();
}

} // namespace
} // namespace nimbrale::test
