// Which camera is open and when.

#include "tests/unit/webcam/webcam_camera_fixture.h"

#include <gmock/gmock.h>
#include <utility>
#include <vector>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

TEST_F(WebcamCameraTest, NoCameraIsOpenBeforeOneIsSelected)
{
    EXPECT_TRUE(cameras.opened.empty());
}

TEST_F(WebcamCameraTest, OpensTheCameraWithThatIdentifier)
{
    camera.selectDevice("desk");
    EXPECT_EQ(opened().id, "desk");
}

TEST_F(WebcamCameraTest, TheSameSelectionTwiceOpensOnce)
{
    camera.selectDevice("desk");
    camera.selectDevice("desk");
    EXPECT_EQ(cameras.opened.size(), 1U);
}

TEST_F(WebcamCameraTest, WithoutSuchACameraThePreferredOneIsOpened)
{
    cameras.preferred = "desk";
    camera.selectDevice("gone");
    EXPECT_EQ(opened().id, "desk");
}

TEST_F(WebcamCameraTest, WithoutAPreferredOneTheFirstIsOpened)
{
    camera.selectDevice("");
    EXPECT_EQ(opened().id, "front");
    cameras.preferred = "gone";
    camera.selectDevice("gone");
    EXPECT_EQ(opened().id, "front");
}

TEST_F(WebcamCameraTest, AnotherSelectionClosesTheCameraBefore)
{
    camera.selectDevice("front");
    camera.selectDevice("desk");
    EXPECT_EQ(opened().id, "desk");
    EXPECT_EQ(cameras.openCount(), 1U);
}

TEST_F(WebcamCameraTest, WithoutAnyCameraOneLineIsLogged)
{
    cameras.list.clear();
    camera.selectDevice("front");
    EXPECT_TRUE(cameras.opened.empty());
    queue.advance(WebcamCamera::retryDelay);
    EXPECT_THAT(loggedErrors(), ElementsAre("Couldn't use camera none"));
    cameras.notify();
    queue.advance(10s);
    EXPECT_EQ(loggedErrors().size(), 1);
}

TEST_F(WebcamCameraTest, AListOfCamerasThatComesAMomentLaterIsWaitedFor)
{
    const std::vector<CameraDevice> list = std::exchange(cameras.list, {});
    camera.selectDevice("desk");
    queue.advance(1s);
    cameras.list = list;
    cameras.notify();
    EXPECT_EQ(opened().id, "desk");
    queue.advance(10s);
    EXPECT_TRUE(loggedErrors().isEmpty()) << loggedErrors().join("; ").toStdString();
}

TEST_F(WebcamCameraTest, StoppedItIsClosedAndEmptyAndOpensAgain)
{
    camera.selectDevice("front");
    showPicture();
    ASSERT_TRUE(pictures().live());
    camera.stop();
    EXPECT_EQ(cameras.openCount(), 0U);
    EXPECT_FALSE(pictures().live());
    cameras.notify();
    queue.advance(10s);
    EXPECT_EQ(cameras.openCount(), 0U);
    camera.selectDevice("front");
    EXPECT_EQ(cameras.openCount(), 1U);
}

TEST_F(WebcamCameraTest, AnUnpluggedCameraIsBlackAndLoggedOnceAndTheOtherTakesOver)
{
    camera.selectDevice("front");
    showPicture();
    cameras.unplug("front");
    EXPECT_FALSE(pictures().live());
    EXPECT_EQ(opened().id, "desk");
    cameras.plugIn({"front", "Front camera"});
    EXPECT_EQ(opened().id, "front") << "it resumes by itself";
    EXPECT_EQ(cameras.openCount(), 1U);
    EXPECT_THAT(loggedErrors(), ElementsAre("Couldn't use camera Front camera: It is not there any more."));
}

TEST_F(WebcamCameraTest, TheOnlyCameraUnpluggedAndPluggedInAgainResumes)
{
    cameras.list = {{"front", "Front camera"}};
    camera.selectDevice("front");
    for (int times = 1; times <= 2; ++times) {
        showPicture();
        ASSERT_TRUE(pictures().live());
        cameras.unplug("front");
        queue.advance(10s);
        EXPECT_FALSE(pictures().live());
        EXPECT_EQ(loggedErrors().size(), times) << loggedErrors().join("; ").toStdString();
        cameras.plugIn({"front", "Front camera"});
    }
    EXPECT_THAT(loggedErrors().front().toStdString(), testing::HasSubstr("Front camera"));
    showPicture();
    EXPECT_TRUE(pictures().live());
}

TEST_F(WebcamCameraTest, ACameraThatIsLostBeforeTheListTellsItIsLoggedOnceToo)
{
    cameras.list = {{"front", "Front camera"}};
    camera.selectDevice("front");
    showPicture();
    opened().lose();
    cameras.unplug("front");
    queue.advance(10s);
    cameras.notify(); // Of another device's change.
    queue.advance(10s);
    EXPECT_FALSE(pictures().live());
    EXPECT_THAT(loggedErrors(), ElementsAre("Couldn't use camera Front camera: The camera was unplugged."));
}

TEST_F(WebcamCameraTest, WhenAllCamerasWentWhileItWasStoppedOneLineIsLogged)
{
    camera.selectDevice("front");
    camera.stop();
    cameras.list.clear();
    camera.selectDevice("front");
    queue.advance(10s);
    EXPECT_THAT(loggedErrors(), ElementsAre("Couldn't use camera none"));
}

TEST_F(WebcamCameraTest, ABusyCameraIsTriedAgainAndLoggedOnce)
{
    camera.selectDevice("front");
    for (int attempt = 1; attempt <= 3; ++attempt) {
        ASSERT_EQ(cameras.opened.size(), static_cast<std::size_t>(attempt));
        opened().lose({ErrorCode::temporary, "Another program uses it."});
        EXPECT_EQ(cameras.openCount(), 0U);
        queue.advance(WebcamCamera::retryDelay);
    }
    EXPECT_THAT(loggedErrors(), ElementsAre("Couldn't use camera Front camera: Another program uses it."));
    showPicture();
    opened().lose({ErrorCode::temporary, "Another program uses it."});
    EXPECT_EQ(loggedErrors().size(), 2) << "it had worked meanwhile";
}

TEST_F(WebcamCameraTest, OtherCamerasThatComeOrGoLeaveTheOpenOneAlone)
{
    camera.selectDevice("front");
    cameras.plugIn({"new", "New camera"});
    cameras.unplug("desk");
    EXPECT_EQ(cameras.opened.size(), 1U);
}

} // namespace
} // namespace nimbrale
