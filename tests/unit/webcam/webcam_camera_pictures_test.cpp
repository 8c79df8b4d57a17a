// What becomes of a camera's pictures.

#include "tests/unit/webcam/webcam_camera_fixture.h"

#include <algorithm>
#include <atomic>
#include <future>
#include <gmock/gmock.h>
#include <mutex>
#include <vector>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

std::shared_ptr<const BufferSurface> pictureOf(int width, int height)
{
    return std::make_shared<BufferSurface>(std::make_shared<PixelBuffer>(width, height), SurfaceAlpha::opaque);
}

using WebcamCameraPicturesTest = WebcamCameraTest;

TEST_F(WebcamCameraPicturesTest, LivePicturesReachTheLayers)
{
    camera.selectDevice("front");
    showPicture(64);
    ASSERT_TRUE(preview().contents());
    EXPECT_EQ(preview().contents()->width(), 64);
    showPicture(80);
    EXPECT_EQ(preview().contents()->width(), 80);
}

TEST_F(WebcamCameraPicturesTest, OfPicturesThatWaitOnlyTheNewestIsShown)
{
    camera.selectDevice("front");
    opened().show(10, 10);
    opened().show(20, 20);
    opened().show(30, 30);
    queue.runPosted();
    EXPECT_EQ(preview().contents()->width(), 30);
}

TEST_F(WebcamCameraPicturesTest, PicturesThatAreShownSmallAreHandedOnSmall)
{
    camera.setShownSize({160, 90});
    camera.selectDevice("front");
    opened().show(640, 360);
    queue.runPosted();
    EXPECT_EQ(preview().contents()->width(), 160);
    camera.setShownSize({170, 90});
    opened().show(640, 360);
    queue.runPosted();
    EXPECT_EQ(preview().contents()->width(), 320) << "none shall be shown larger than it is";

    int widthOfEffects = 0;
    effect = [&](const std::shared_ptr<const BufferSurface>& picture, Background) {
        widthOfEffects = picture->width();
        return picture;
    };
    camera.setBackground(Background::blurred);
    opened().show(640, 360);
    ASSERT_TRUE(waitForProcessed());
    EXPECT_EQ(processed().contents()->width(), 320);
    camera.stop();
    EXPECT_EQ(widthOfEffects, 640) << "people are found in the camera's own picture";
}

TEST_F(WebcamCameraPicturesTest, EffectsOfALargeCameraAreMadeInABoundedSize)
{
    camera.setShownSize({1280, 720});
    int widthOfEffects = 0;
    effect = [&](const std::shared_ptr<const BufferSurface>& picture, Background) {
        widthOfEffects = picture->width();
        return picture;
    };
    camera.selectDevice("front");
    opened().show(3840, 2160);
    queue.runPosted();
    EXPECT_EQ(preview().contents()->width(), 1920) << "without an effect no detail is lost";

    camera.setBackground(Background::blurred);
    opened().show(3840, 2160);
    ASSERT_TRUE(waitForProcessed());
    camera.stop();
    EXPECT_EQ(widthOfEffects, 960);
}

TEST_F(WebcamCameraPicturesTest, NoEffectIsMadeOfAPictureThatWasMadeSmallBeforeTheEffectWasWanted)
{
    camera.setShownSize({160, 90});
    camera.selectDevice("front");
    std::vector<int> widths;
    effect = [&](const std::shared_ptr<const BufferSurface>& picture, Background) {
        widths.push_back(picture->width());
        return picture;
    };
    ASSERT_EQ(opened().handlers.wantedHalvings(640, 360), 2);
    camera.setBackground(Background::blurred);
    opened().handlers.onPicture(pictureOf(160, 90));
    queue.runPosted();
    EXPECT_EQ(preview().contents()->width(), 160) << "it is shown as it is until the next one";

    opened().show(640, 360);
    ASSERT_TRUE(waitForProcessed());
    camera.stop();
    EXPECT_EQ(widths, std::vector{640});
}

TEST_F(WebcamCameraPicturesTest, APictureOnItsWayIsDroppedWhenTheCameraIsStopped)
{
    camera.selectDevice("front");
    opened().show(10, 10);
    camera.stop();
    queue.runPosted();
    EXPECT_FALSE(pictures().live());
}

TEST_F(WebcamCameraPicturesTest, ProcessedPicturesTakeTheLiveOnesPlaceWhenTheFirstIsThere)
{
    camera.selectDevice("front");
    showPicture();
    camera.setBackground(Background::blurred);
    EXPECT_FALSE(preview().isHidden());
    showPicture();
    ASSERT_TRUE(waitForProcessed());
    EXPECT_TRUE(preview().isHidden());
}

TEST_F(WebcamCameraPicturesTest, OriginalPicturesAreNotProcessed)
{
    std::atomic<int> calls = 0;
    effect = [&](const std::shared_ptr<const BufferSurface>& picture, Background) {
        ++calls;
        return picture;
    };
    camera.selectDevice("front");
    showPicture();
    camera.setBackground(Background::blurred);
    showPicture();
    ASSERT_TRUE(waitForProcessed());
    camera.setBackground(Background::original);
    const int before = calls;
    for (int i = 0; i < 5; ++i)
        showPicture();
    EXPECT_EQ(calls, before);
    EXPECT_FALSE(processed().contents());
    EXPECT_FALSE(preview().isHidden());
}

TEST_F(WebcamCameraPicturesTest, APictureMadeForAnotherBackgroundIsDropped)
{
    std::promise<void> release;
    std::promise<void> begun;
    effect = [&](const std::shared_ptr<const BufferSurface>& picture, Background background) {
        if (background == Background::blurred) {
            begun.set_value();
            release.get_future().wait();
        }
        return picture;
    };
    camera.setBackground(Background::blurred);
    camera.selectDevice("front");
    showPicture(64);
    begun.get_future().wait();
    camera.setBackground(Background::transparent);
    showPicture(80);
    release.set_value();
    ASSERT_TRUE(waitForProcessed());
    EXPECT_EQ(processed().contents()->width(), 80);
}

TEST_F(WebcamCameraPicturesTest, TheSameBackgroundAgainDropsNothing)
{
    std::atomic<int> calls = 0;
    effect = [&](const std::shared_ptr<const BufferSurface>& picture, Background) {
        ++calls;
        return picture;
    };
    camera.setBackground(Background::blurred);
    camera.selectDevice("front");
    opened().show(64, 36);
    ASSERT_TRUE(eventually([&] { return calls == 1; }));
    // The next call begins when the picture of the one before is on its way.
    opened().show(80, 36);
    ASSERT_TRUE(eventually([&] { return calls == 2; }));
    camera.setBackground(Background::blurred);
    queue.runPosted();
    EXPECT_TRUE(processed().contents());
}

TEST_F(WebcamCameraPicturesTest, WhileOnePictureIsProcessedOnlyTheNewestWaits)
{
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::promise<void> begun;
    std::vector<int> widths;
    effect = [&](const std::shared_ptr<const BufferSurface>& picture, Background) {
        widths.push_back(picture->width());
        if (widths.size() == 1)
            begun.set_value();
        released.wait();
        return picture;
    };
    camera.setBackground(Background::blurred);
    camera.selectDevice("front");
    opened().show(10, 10);
    begun.get_future().wait();
    for (const int width : {20, 30, 40})
        opened().show(width, 10);
    release.set_value();
    for (int i = 0; i < 500 && (!processed().contents() || processed().contents()->width() != 40); ++i) {
        std::this_thread::sleep_for(2ms);
        queue.runPosted();
    }
    camera.stop();
    EXPECT_EQ(processed().contents(), nullptr);
    EXPECT_THAT(widths, ElementsAre(10, 40));
}

TEST_F(WebcamCameraPicturesTest, ProcessedPicturesDoNotPileUpWhileTheMainThreadIsBusy)
{
    std::mutex mutex;
    std::vector<std::weak_ptr<const Surface>> made;
    effect = [&](const std::shared_ptr<const BufferSurface>& picture, Background) {
        const auto result = std::make_shared<BufferSurface>(
            std::make_shared<PixelBuffer>(picture->width(), picture->height()), SurfaceAlpha::opaque);
        const std::lock_guard lock(mutex);
        made.push_back(result);
        return result;
    };
    const auto isMade = [&](std::size_t count, std::ptrdiff_t mostKept) {
        const std::lock_guard lock(mutex);
        const auto kept = std::ranges::count_if(made, [](const auto& picture) { return !picture.expired(); });
        return made.size() == count && kept <= mostKept;
    };
    camera.setBackground(Background::blurred);
    camera.selectDevice("front");
    constexpr int count = 5;
    for (int i = 1; i <= count; ++i) {
        opened().show(10 * i, 10);
        EXPECT_TRUE(eventually([&] { return isMade(static_cast<std::size_t>(i), 1); })) << "of " << i << " pictures";
    }
    ASSERT_TRUE(waitForProcessed());
    EXPECT_EQ(processed().contents()->width(), 10 * count);
    camera.stop();
}

TEST_F(WebcamCameraPicturesTest, APictureWhoseEffectEndsAfterTheCameraIsStoppedIsDropped)
{
    std::promise<void> begun;
    std::promise<void> release;
    auto one = std::make_unique<WebcamCamera>(
        cameras, queue, [&](const std::shared_ptr<const BufferSurface>& picture, Background, int) {
            begun.set_value();
            release.get_future().wait();
            return picture;
        });
    const std::shared_ptr<WebcamPictures> shownPictures = one->pictures();
    const WebcamPictureLayer shown(shownPictures);
    one->setBackground(Background::blurred);
    one->selectDevice("front");
    opened().show(64, 36);
    begun.get_future().wait();
    one->stop();
    release.set_value();
    one.reset(); // Finishes what the effects' thread has to do.
    queue.runPosted();
    EXPECT_EQ(shown.layer()->sublayersInOrder().at(1)->contents(), nullptr);
}

TEST_F(WebcamCameraPicturesTest, AnEffectThatFailsLeavesThePictureBefore)
{
    camera.setBackground(Background::blurred);
    camera.selectDevice("front");
    showPicture(64);
    ASSERT_TRUE(waitForProcessed());
    std::promise<void> failed;
    effect = [&](const std::shared_ptr<const BufferSurface>&, Background) {
        failed.set_value();
        return nullptr;
    };
    showPicture(80);
    failed.get_future().wait();
    std::this_thread::sleep_for(20ms);
    queue.runPosted();
    EXPECT_EQ(processed().contents()->width(), 64);
}

TEST_F(WebcamCameraPicturesTest, EndsWhileAnEffectIsAtWork)
{
    auto another = std::make_unique<WebcamCamera>(
        cameras, queue, [](const std::shared_ptr<const BufferSurface>& picture, Background, int) {
            std::this_thread::sleep_for(30ms);
            return picture;
        });
    another->setBackground(Background::transparent);
    another->selectDevice("desk");
    opened().show(10, 10);
    another.reset();
    queue.runPosted();
    EXPECT_EQ(cameras.openCount(), 0U);
}

} // namespace
} // namespace nimbrale
