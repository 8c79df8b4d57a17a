// Cameras as the kernel has them: which there are.

#include "tests/unit/platform/v4l2/v4l2_cameras_fixture.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <thread>

namespace nimbrale::v4l2 {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(V4l2CamerasTest, CamerasAreListedByTheirSocketsAndCalledAsTheirDriversCallThem)
{
    const auto first = plugIn(0, {.card = " Desk camera "});
    const auto second = plugIn(10, {.card = "Rear camera"});
    const auto third = plugIn(2, {.card = ""});
    nameSocket("pci-0000:00:14.0-usb-0:5:1.0-video-index0", 10);
    nameSocket("pci-0000:00:14.0-usbv2-0:5:1.0-video-index0", 10);
    EXPECT_TRUE(lists(
        {{"video0", "Desk camera"}, {"video2", "video2"}, {"v4l2_input.pci-0000_00_14.0-usb-0_5_1.0", "Rear camera"}}));
    EXPECT_EQ(cameras->preferredDevice(), std::nullopt);
}

TEST_F(V4l2CamerasTest, SeveralOfOneSocketAreToldApart)
{
    const auto colors = plugIn(0, {.card = "Colors"});
    const auto heat = plugIn(2, {.card = "Heat"});
    nameSocket("pci-0000:00:14.0-usb-0:5:1.0-video-index0", 0);
    nameSocket("pci-0000:00:14.0-usb-0:5:1.0-video-index2", 2);
    EXPECT_TRUE(lists({{"v4l2_input.pci-0000_00_14.0-usb-0_5_1.0", "Colors"},
                       {"v4l2_input.pci-0000_00_14.0-usb-0_5_1.0.2", "Heat"}}));
}

TEST_F(V4l2CamerasTest, WhatGivesNoPicturesIsNoCamera)
{
    const auto facts = plugIn(1, {.card = "Facts", .capabilities = V4L2_CAP_META_CAPTURE | V4L2_CAP_STREAMING});
    const auto output = plugIn(2, {.card = "Output", .capabilities = V4L2_CAP_VIDEO_OUTPUT | V4L2_CAP_STREAMING});
    std::ofstream(folder() / "video3") << "an ordinary file";
    std::ofstream(folder() / "video4x") << "another one";
    const auto camera = plugIn(5);
    EXPECT_TRUE(lists({{"video5", "Test camera"}}));
    EXPECT_GT(facts->questions(), 0);
    EXPECT_GT(output->questions(), 0);
}

TEST_F(V4l2CamerasTest, ComingAndGoingIsToldAndTheNameOfTheSocketToo)
{
    EXPECT_THAT(cameras->devices(), IsEmpty());
    int changes = 0;
    const Subscription observer = cameras->observeDevices([&changes] { ++changes; });
    for (int round = 0; round < 2; ++round) {
        changes = 0;
        auto camera = plugIn(0);
        ASSERT_TRUE(lists({{"video0", "Test camera"}}));
        EXPECT_EQ(changes, 1);
        nameSocket("socket", 0);
        ASSERT_TRUE(lists({{"v4l2_input.socket", "Test camera"}}));
        EXPECT_EQ(changes, 2);
        camera->unplug();
        fs::remove(folder() / "v4l" / "by-path" / "socket");
        ASSERT_TRUE(lists({}));
        EXPECT_EQ(changes, 3);
    }
}

TEST_F(V4l2CamerasTest, OneThatMayBeOpenedOnlyLaterIsListedThen)
{
    const auto camera = plugIn(0);
    camera->fail(VIDIOC_QUERYCAP, EACCES);
    const auto other = plugIn(1);
    ASSERT_TRUE(lists({{"video1", "Test camera"}}));
    camera->fail(VIDIOC_QUERYCAP, 0);
    // The system says so by the file's rights.
    fs::permissions(folder() / "video0", fs::perms::owner_all);
    EXPECT_TRUE(lists({{"video0", "Test camera"}, {"video1", "Test camera"}}));
}

TEST_F(V4l2CamerasTest, NothingIsAskedBeforeTheFirstQuestionAndWhileNothingHappens)
{
    const auto camera = plugIn(0);
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(camera->questions(), 0);
    ASSERT_TRUE(lists({{"video0", "Test camera"}}));
    const int questions = camera->questions();
    EXPECT_GT(questions, 0);
    std::ofstream(folder() / "tty7") << "something else";
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(camera->questions(), questions);
}

TEST_F(V4l2CamerasTest, AccessIsGrantedLater)
{
    std::vector<bool> answers;
    cameras->requestAccess([&answers](bool isGranted) { answers.push_back(isGranted); });
    EXPECT_THAT(answers, IsEmpty());
    queue.runPosted();
    EXPECT_THAT(answers, ElementsAre(true));
}

} // namespace
} // namespace nimbrale::v4l2
