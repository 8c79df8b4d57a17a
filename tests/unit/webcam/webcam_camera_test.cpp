// Which camera is open and when, and what becomes of its pictures.

#include "webcam/webcam_camera.h"

#include "tests/fakes/fake_cameras.h"
#include "tests/fakes/fake_main_queue.h"
#include "webcam/webcam_picture_layer.h"

#include <QLoggingCategory>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <gmock/gmock.h>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using Background = WebcamCamera::Background;
using testing::ElementsAre;

QStringList loggedErrors;

void noteErrors(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (type == QtCriticalMsg && QByteArray(context.category) == "Nimbrale.webcam")
        loggedErrors << text;
}

std::shared_ptr<const BufferSurface> pictureOf(int width, int height)
{
    return std::make_shared<BufferSurface>(std::make_shared<PixelBuffer>(width, height), SurfaceAlpha::opaque);
}

class WebcamCameraTest : public testing::Test {
public:
    WebcamCameraTest(const WebcamCameraTest&) = delete;
    WebcamCameraTest& operator=(const WebcamCameraTest&) = delete;

protected:
    WebcamCameraTest()
    {
        loggedErrors.clear();
        handlerBefore_ = qInstallMessageHandler(noteErrors);
        cameras.list = {{"front", "Front camera"}, {"desk", "Desk camera"}};
    }
    ~WebcamCameraTest() override { qInstallMessageHandler(handlerBefore_); }

    [[nodiscard]] FakeOpenCamera& opened() { return *cameras.opened.back(); }
    [[nodiscard]] WebcamPictures& pictures() { return *camera.pictures(); }
    [[nodiscard]] const Layer& preview() { return *layer.layer()->sublayersInOrder().at(0); }
    [[nodiscard]] const Layer& processed() { return *layer.layer()->sublayersInOrder().at(1); }
    void showPicture(int width = 64)
    {
        opened().show(width, 36);
        queue.runPosted();
    }
    /// Waits, while the main queue stands still.
    [[nodiscard]] static bool eventually(const std::function<bool()>& condition)
    {
        for (int i = 0; i < 500 && !condition(); ++i)
            std::this_thread::sleep_for(2ms);
        return condition();
    }
    /// Runs the main queue until the effects' thread has brought a picture. False when none comes.
    [[nodiscard]] bool waitForProcessed()
    {
        for (int i = 0; i < 500 && !processed().contents(); ++i) {
            std::this_thread::sleep_for(2ms);
            queue.runPosted();
        }
        return processed().contents() != nullptr;
    }

    FakeCameras cameras;
    FakeMainQueue queue;
    std::function<std::shared_ptr<const BufferSurface>(const std::shared_ptr<const BufferSurface>&, Background)>
        effect = [](const std::shared_ptr<const BufferSurface>& picture, Background) { return picture; };
    WebcamCamera camera{
        cameras, queue,
        [this](const std::shared_ptr<const BufferSurface>& picture, Background background, int halvings) {
            const auto made = effect(picture, background);
            return made && halvings > 0 ? halved(*made, halvings) : made;
        }};
    WebcamPictureLayer layer{camera.pictures()};

private:
    QtMessageHandler handlerBefore_;
};

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
    EXPECT_THAT(loggedErrors, ElementsAre("Couldn't use camera none"));
    cameras.notify();
    queue.advance(10s);
    EXPECT_EQ(loggedErrors.size(), 1);
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
    EXPECT_TRUE(loggedErrors.isEmpty()) << loggedErrors.join("; ").toStdString();
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

TEST_F(WebcamCameraTest, LivePicturesReachTheLayers)
{
    camera.selectDevice("front");
    showPicture(64);
    ASSERT_TRUE(preview().contents());
    EXPECT_EQ(preview().contents()->width(), 64);
    showPicture(80);
    EXPECT_EQ(preview().contents()->width(), 80);
}

TEST_F(WebcamCameraTest, OfPicturesThatWaitOnlyTheNewestIsShown)
{
    camera.selectDevice("front");
    opened().show(10, 10);
    opened().show(20, 20);
    opened().show(30, 30);
    queue.runPosted();
    EXPECT_EQ(preview().contents()->width(), 30);
}

TEST_F(WebcamCameraTest, PicturesThatAreShownSmallAreHandedOnSmall)
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

TEST_F(WebcamCameraTest, EffectsOfALargeCameraAreMadeInABoundedSize)
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

TEST_F(WebcamCameraTest, NoEffectIsMadeOfAPictureThatWasMadeSmallBeforeTheEffectWasWanted)
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

TEST_F(WebcamCameraTest, APictureOnItsWayIsDroppedWhenTheCameraIsStopped)
{
    camera.selectDevice("front");
    opened().show(10, 10);
    camera.stop();
    queue.runPosted();
    EXPECT_FALSE(pictures().live());
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
    EXPECT_THAT(loggedErrors, ElementsAre("Couldn't use camera Front camera: It is not there any more."));
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
        EXPECT_EQ(loggedErrors.size(), times) << loggedErrors.join("; ").toStdString();
        cameras.plugIn({"front", "Front camera"});
    }
    EXPECT_THAT(loggedErrors.front().toStdString(), testing::HasSubstr("Front camera"));
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
    EXPECT_THAT(loggedErrors, ElementsAre("Couldn't use camera Front camera: The camera was unplugged."));
}

TEST_F(WebcamCameraTest, WhenAllCamerasWentWhileItWasStoppedOneLineIsLogged)
{
    camera.selectDevice("front");
    camera.stop();
    cameras.list.clear();
    camera.selectDevice("front");
    queue.advance(10s);
    EXPECT_THAT(loggedErrors, ElementsAre("Couldn't use camera none"));
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
    EXPECT_THAT(loggedErrors, ElementsAre("Couldn't use camera Front camera: Another program uses it."));
    showPicture();
    opened().lose({ErrorCode::temporary, "Another program uses it."});
    EXPECT_EQ(loggedErrors.size(), 2) << "it had worked meanwhile";
}

TEST_F(WebcamCameraTest, OtherCamerasThatComeOrGoLeaveTheOpenOneAlone)
{
    camera.selectDevice("front");
    cameras.plugIn({"new", "New camera"});
    cameras.unplug("desk");
    EXPECT_EQ(cameras.opened.size(), 1U);
}

TEST_F(WebcamCameraTest, ProcessedPicturesTakeTheLiveOnesPlaceWhenTheFirstIsThere)
{
    camera.selectDevice("front");
    showPicture();
    camera.setBackground(Background::blurred);
    EXPECT_FALSE(preview().isHidden());
    showPicture();
    ASSERT_TRUE(waitForProcessed());
    EXPECT_TRUE(preview().isHidden());
}

TEST_F(WebcamCameraTest, OriginalPicturesAreNotProcessed)
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

TEST_F(WebcamCameraTest, APictureMadeForAnotherBackgroundIsDropped)
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

TEST_F(WebcamCameraTest, TheSameBackgroundAgainDropsNothing)
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

TEST_F(WebcamCameraTest, WhileOnePictureIsProcessedOnlyTheNewestWaits)
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

TEST_F(WebcamCameraTest, ProcessedPicturesDoNotPileUpWhileTheMainThreadIsBusy)
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

TEST_F(WebcamCameraTest, APictureWhoseEffectEndsAfterTheCameraIsStoppedIsDropped)
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

TEST_F(WebcamCameraTest, AnEffectThatFailsLeavesThePictureBefore)
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

TEST_F(WebcamCameraTest, EndsWhileAnEffectIsAtWork)
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
