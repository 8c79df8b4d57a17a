// The stand-in keeps the promises that the cameras make, so that what is tested with it holds with real ones.

#include "tests/fakes/fake_cameras.h"

#include <gmock/gmock.h>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

TEST(FakeCamerasTest, PicturesReachAnOpenCameraOnly)
{
    FakeCameras cameras;
    int pictures = 0;
    auto camera = cameras.open("front", {[&pictures](const auto& picture) {
                                             EXPECT_EQ(picture->width(), 4);
                                             EXPECT_EQ(picture->alpha(), SurfaceAlpha::opaque);
                                             ++pictures;
                                         },
                                         nullptr});
    ASSERT_THAT(cameras.opened, SizeIs(1));
    cameras.opened.front()->show(4, 3);
    EXPECT_EQ(pictures, 1);
    EXPECT_EQ(cameras.openCount(), 1U);
    camera.reset();
    cameras.opened.front()->show(4, 3);
    EXPECT_EQ(pictures, 1);
    EXPECT_EQ(cameras.openCount(), 0U);
}

TEST(FakeCamerasTest, ALossIsToldOnceAndMayDestroyTheCamera)
{
    FakeCameras cameras;
    int changes = 0;
    const Subscription changed = cameras.observeDevices([&changes] { ++changes; });
    cameras.plugIn({"front", "Front camera"});
    int losses = 0;
    std::unique_ptr<OpenCamera> camera;
    camera = cameras.open("front", {nullptr, [&](const Error& error) {
                                        EXPECT_FALSE(error.message.empty());
                                        ++losses;
                                        camera.reset();
                                    }});
    cameras.unplug("front");
    cameras.opened.front()->lose();
    EXPECT_EQ(losses, 1);
    EXPECT_EQ(changes, 2);
    EXPECT_EQ(camera, nullptr);
    EXPECT_THAT(cameras.devices(), ElementsAre());
}

TEST(FakeCamerasTest, AccessIsAnsweredWhenTheTestSaysSo)
{
    FakeCameras cameras;
    std::vector<bool> answers;
    cameras.requestAccess([&answers](bool isGranted) { answers.push_back(isGranted); });
    cameras.requestAccess([&answers](bool isGranted) { answers.push_back(isGranted); });
    EXPECT_THAT(answers, ElementsAre());
    cameras.answerAccess(true);
    cameras.answerAccess(false);
    EXPECT_THAT(answers, ElementsAre(true, false));
}

} // namespace
} // namespace nimbrale
