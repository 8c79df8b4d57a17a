// A camera of the kernel's that is open: its pictures, and how it is lost.

#include "tests/support/camera_watcher.h"
#include "tests/unit/platform/v4l2/v4l2_cameras_fixture.h"

#include <QBuffer>
#include <QImage>

#include <filesystem>
#include <gmock/gmock.h>
#include <mutex>
#include <thread>

namespace nimbrale::v4l2 {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::CameraWatcher;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<std::uint8_t> jpegOf(int width, int height, QRgb color)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(color);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    EXPECT_TRUE(image.save(&buffer, "JPG", 95));
    return {bytes.begin(), bytes.end()};
}

using V4l2CameraTest = V4l2CamerasTest;

TEST_F(V4l2CameraTest, PicturesComeInTheCamerasSizeAndRate)
{
    // Red in the television's colors.
    std::vector<std::uint8_t> red(std::size_t{1280} * 720 * 2);
    for (std::size_t place = 0; place < red.size(); place += 4) {
        red[place] = red[place + 2] = 81;
        red[place + 1] = 90;
        red[place + 3] = 240;
    }
    const auto camera = plugIn(0, {.picture = red});
    ASSERT_TRUE(lists({{"video0", "Test camera"}}));
    const CameraWatcher watcher(*cameras, "video0");
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(eventually([&] { return watcher.count() >= 30; }));
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GT(took, 900ms);
    EXPECT_LT(took, 2s);
    const auto picture = watcher.newest();
    EXPECT_EQ(picture->width(), 1280);
    EXPECT_EQ(picture->height(), 720);
    const std::byte* const pixel = picture->pixels().row(719);
    EXPECT_NEAR(std::to_integer<int>(pixel[2]), 255, 3);
    EXPECT_NEAR(std::to_integer<int>(pixel[1]), 0, 3);
    EXPECT_NEAR(std::to_integer<int>(pixel[0]), 0, 3);
    EXPECT_THAT(watcher.losses, IsEmpty());
}

struct Choice {
    const char* what;
    std::vector<VideoDriver::Format> formats;
    VideoDriver::Format chosen;
};

class V4l2FormatTest : public V4l2CamerasTest, public testing::WithParamInterface<Choice> {};

TEST_P(V4l2FormatTest, IsTheOneMostWanted)
{
    const auto& [what, formats, chosen] = GetParam();
    const bool isJpeg = chosen.encoding == V4L2_PIX_FMT_MJPEG;
    const auto picture = isJpeg ? jpegOf(static_cast<int>(chosen.width), static_cast<int>(chosen.height), 0xff2060a0)
                                : std::vector<std::uint8_t>(std::size_t{chosen.width} * chosen.height * 2, gray);
    const auto camera = plugIn(0, {.formats = formats, .picture = picture});
    ASSERT_TRUE(lists({{"video0", "Test camera"}}));
    const CameraWatcher watcher(*cameras, "video0");
    ASSERT_TRUE(eventually([&] { return watcher.count() >= 1; }));
    EXPECT_EQ(camera->current().encoding, chosen.encoding);
    EXPECT_EQ(camera->current().rate, chosen.rate);
    EXPECT_EQ(watcher.newest()->width(), static_cast<int>(chosen.width));
    EXPECT_EQ(watcher.newest()->height(), static_cast<int>(chosen.height));
}

INSTANTIATE_TEST_SUITE_P(
    Formats, V4l2FormatTest,
    testing::Values(Choice{"RawAtFullRate",
                           {{V4L2_PIX_FMT_MJPEG, 1280, 720, 30}, {V4L2_PIX_FMT_YUYV, 1280, 720, 30}},
                           {V4L2_PIX_FMT_YUYV, 1280, 720, 30}},
                    Choice{"JpegWhereRawIsSlow",
                           {{V4L2_PIX_FMT_YUYV, 1280, 720, 10}, {V4L2_PIX_FMT_MJPEG, 1280, 720, 30}},
                           {V4L2_PIX_FMT_MJPEG, 1280, 720, 30}},
                    Choice{"SmallerWhereAllElseIsSlow",
                           {{V4L2_PIX_FMT_YUYV, 1280, 720, 10}, {V4L2_PIX_FMT_YUYV, 640, 480, 30}},
                           {V4L2_PIX_FMT_YUYV, 640, 480, 30}},
                    Choice{"WhatThereIs", {{V4L2_PIX_FMT_YUYV, 320, 240, 5}}, {V4L2_PIX_FMT_YUYV, 320, 240, 5}},
                    Choice{"OnlyJpeg", {{V4L2_PIX_FMT_MJPEG, 800, 600, 30}}, {V4L2_PIX_FMT_MJPEG, 800, 600, 30}},
                    Choice{
                        "AnotherEncoding", {{V4L2_PIX_FMT_UYVY, 1280, 720, 30}}, {V4L2_PIX_FMT_UYVY, 1280, 720, 30}}),
    [](const auto& choice) { return choice.param.what; });

TEST_F(V4l2CameraTest, AnOpenCameraThatIsUnpluggedIsLostOnceAndCanBeOpenedWhenItIsBack)
{
    auto camera = plugIn(0, {.card = "Loose camera"});
    ASSERT_TRUE(lists({{"video0", "Loose camera"}}));
    const CameraWatcher watcher(*cameras, "video0");
    ASSERT_TRUE(eventually([&] { return watcher.count() >= 3; }));
    camera->unplug();
    ASSERT_TRUE(eventually([&] { return !watcher.losses.empty(); }));
    EXPECT_THAT(watcher.losses.front().message, HasSubstr("The camera \"Loose camera\" is not there any more."));
    const int count = watcher.count();
    ASSERT_TRUE(lists({}));
    const auto again = plugIn(0, {.card = "Loose camera"});
    ASSERT_TRUE(lists({{"video0", "Loose camera"}}));
    EXPECT_FALSE(eventually([&] { return watcher.count() > count || watcher.losses.size() > 1; }, 300ms));
    const CameraWatcher newWatcher(*cameras, "video0");
    EXPECT_TRUE(eventually([&] { return newWatcher.count() >= 1; }));
}

struct Fault {
    const char* what;
    unsigned long request;
    int error;
    const char* message;
};

class V4l2FaultTest : public V4l2CamerasTest, public testing::WithParamInterface<Fault> {};

TEST_P(V4l2FaultTest, IsToldOnceInOneLine)
{
    const auto camera = plugIn(0);
    ASSERT_TRUE(lists({{"video0", "Test camera"}}));
    camera->fail(GetParam().request, GetParam().error);
    // Nor does the library write lines of its own.
    testing::internal::CaptureStderr();
    const CameraWatcher watcher(*cameras, "video0");
    EXPECT_THAT(watcher.losses, IsEmpty()) << "told within the call";
    ASSERT_TRUE(eventually([&] { return !watcher.losses.empty(); }));
    EXPECT_FALSE(eventually([&] { return watcher.losses.size() > 1; }, 100ms));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_THAT(watcher.losses.front().message, HasSubstr(GetParam().message));
    EXPECT_EQ(watcher.count(), 0);
    EXPECT_FALSE(camera->isStreaming());
}

TEST_P(V4l2FaultTest, LeavesNoBuffersInMemoryOnceClosed)
{
    const auto camera = plugIn(0);
    ASSERT_TRUE(lists({{"video0", "Test camera"}}));
    {
        const CameraWatcher watcher(*cameras, "video0");
        ASSERT_TRUE(eventually([&] { return watcher.count() > 0; }));
        EXPECT_GT(mappedBuffers(0), 0) << "they would be seen";
    }
    EXPECT_EQ(mappedBuffers(0), 0);
    camera->fail(GetParam().request, GetParam().error);
    {
        const CameraWatcher watcher(*cameras, "video0");
        ASSERT_TRUE(eventually([&] { return !watcher.losses.empty(); }));
    }
    EXPECT_EQ(mappedBuffers(0), 0);
}

INSTANTIATE_TEST_SUITE_P(Faults, V4l2FaultTest,
                         testing::Values(Fault{"BusyFormat", VIDIOC_S_FMT, EBUSY, "Another program may be using it"},
                                         Fault{"BusyBuffers", VIDIOC_REQBUFS, EBUSY, "Another program may be using it"},
                                         Fault{"NoStart", VIDIOC_STREAMON, EIO, "could not be started"},
                                         Fault{"NoSpaceOnTheBus", VIDIOC_STREAMON, ENOSPC, "could not be started"},
                                         Fault{"Gone", VIDIOC_QUERYCAP, ENODEV, "is not there any more"},
                                         Fault{"Forbidden", VIDIOC_QUERYCAP, EACCES, "may not be used by you"},
                                         Fault{"NoPicture", VIDIOC_DQBUF, EAGAIN, "gives no picture"},
                                         Fault{"BrokenWhileReading", VIDIOC_DQBUF, EIO, "stopped giving pictures"}),
                         [](const auto& fault) { return fault.param.what; });

TEST_F(V4l2CameraTest, PicturesThatCannotBeReadAreSoTold)
{
    const auto half = plugIn(0, {.card = "Half", .picture = {gray}});
    const auto torn = plugIn(
        1, {.card = "Torn", .formats = {{V4L2_PIX_FMT_MJPEG, 640, 480, 30}}, .picture = {0xff, 0xd8, 0xff, 0xd9}});
    const auto strange = plugIn(2, {.card = "Strange", .formats = {{V4L2_PIX_FMT_GREY, 640, 480, 30}}});
    ASSERT_TRUE(lists({{"video0", "Half"}, {"video1", "Torn"}, {"video2", "Strange"}}));
    for (const std::string id : {"video1", "video2"}) {
        const CameraWatcher watcher(*cameras, id);
        ASSERT_TRUE(eventually([&] { return !watcher.losses.empty(); })) << id;
        EXPECT_THAT(watcher.losses.front().message, HasSubstr("sends pictures that cannot be read")) << id;
        EXPECT_EQ(watcher.count(), 0) << id;
    }
    // Half a picture counts as none.
    const CameraWatcher watcher(*cameras, "video0");
    ASSERT_TRUE(eventually([&] { return !watcher.losses.empty(); }));
    EXPECT_THAT(watcher.losses.front().message, HasSubstr("gives no picture"));
    EXPECT_EQ(watcher.count(), 0);
}

TEST_F(V4l2CameraTest, ACameraThatFallsSilentIsLostAndClosed)
{
    const auto camera = plugIn(0);
    ASSERT_TRUE(lists({{"video0", "Test camera"}}));
    const CameraWatcher watcher(*cameras, "video0");
    ASSERT_TRUE(eventually([&] { return watcher.count() >= 3; }));
    EXPECT_TRUE(camera->isStreaming());
    camera->stopPictures();
    ASSERT_TRUE(eventually([&] { return !watcher.losses.empty(); }));
    EXPECT_THAT(watcher.losses.front().message, HasSubstr("gives no picture"));
    EXPECT_TRUE(eventually([&] { return !camera->isStreaming(); }));
}

TEST_F(V4l2CameraTest, OneThatIsNotThereIsLostAndNoOtherShownInItsPlace)
{
    const auto camera = plugIn(0);
    ASSERT_TRUE(lists({{"video0", "Test camera"}}));
    const CameraWatcher watcher(*cameras, "absent");
    ASSERT_TRUE(eventually([&] { return !watcher.losses.empty(); }));
    EXPECT_THAT(watcher.losses.front().message, HasSubstr("is not there any more"));
    EXPECT_EQ(watcher.count(), 0);
}

TEST_F(V4l2CameraTest, ACameraIsClosedAtOnceAndCanBeOpenedAgainAndAgain)
{
    const auto camera = plugIn(0);
    ASSERT_TRUE(lists({{"video0", "Test camera"}}));
    const auto openFiles = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = openFiles();
    for (int round = 0; round < 20; ++round) {
        CameraWatcher watcher(*cameras, "video0");
        ASSERT_TRUE(eventually([&] { return watcher.count() >= 1; })) << round;
        EXPECT_TRUE(camera->isStreaming());
        const auto start = std::chrono::steady_clock::now();
        watcher.close();
        EXPECT_LT(std::chrono::steady_clock::now() - start, 200ms);
        EXPECT_FALSE(camera->isStreaming());
        const int count = watcher.count();
        EXPECT_FALSE(eventually([&] { return watcher.count() > count; }, 5ms));
    }
    EXPECT_EQ(openFiles(), before);
}

TEST_F(V4l2CameraTest, WhoeverIsSlowGetsTheNewestPicture)
{
    const auto camera = plugIn(0, {.formats = {{V4L2_PIX_FMT_YUYV, 1280, 720, 100}}});
    ASSERT_TRUE(lists({{"video0", "Test camera"}}));
    std::mutex mutex;
    std::vector<int> brightness;
    const auto seen = [&] {
        const std::lock_guard lock(mutex);
        return brightness;
    };
    const auto open =
        cameras->open("video0", {[&](const auto& picture) {
                                     std::this_thread::sleep_for(100ms);
                                     const std::lock_guard lock(mutex);
                                     brightness.push_back(std::to_integer<int>(*picture->pixels().row(0)));
                                 },
                                 [](const Error& /*error*/) {}});
    ASSERT_TRUE(eventually([&] { return seen().size() >= 3; }));
    // What was written while nobody took it is not handed out any more: one may be on its way.
    camera->show(std::vector<std::uint8_t>(std::size_t{1280} * 720 * 2, std::uint8_t{0xc0}));
    const std::size_t before = seen().size();
    ASSERT_TRUE(eventually([&] { return seen().size() >= before + 3; }));
    EXPECT_GT(seen().at(before + 2), seen().front() + 30) << seen().front();
}

} // namespace
} // namespace nimbrale::v4l2
