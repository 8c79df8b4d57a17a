// A real PipeWire, with and without a session manager, beside the kernel's cameras, for which a driver of the test's
// own stands: each camera is listed once, and its identifier means the same camera in both.

#include "platform/combined_cameras.h"
#include "platform/v4l2/v4l2_cameras.h"
#include "tests/desktop/pipewire_fixture.h"
#include "tests/unit/platform/v4l2/video_driver.h"

#include <filesystem>
#include <gmock/gmock.h>

namespace nimbrale::test {
namespace {

namespace fs = std::filesystem;
using pipewire::KnownDevices;
using testing::IsEmpty;
using v4l2::VideoDriver;

/// What the session manager calls the camera of that socket.
constexpr const char* identifier = "v4l2_input.pci-0000_00_14.0-usb-0_5_1.0";
const CameraDevice asTheKernelHasIt{identifier, "Desk camera"};
const CameraDevice asPipewireHasIt{identifier, "Desk camera on PipeWire"};

class CombinedCamerasSessionTest : public PipewireTest {
protected:
    void SetUp() override
    {
        PipewireTest::SetUp();
        if (IsSkipped() || HasFatalFailure())
            return;
        fs::create_directories(folder() / "v4l" / "by-path");
        fs::create_symlink("../../video0", folder() / "v4l" / "by-path" / "pci-0000:00:14.0-usb-0:5:1.0-video-index0");
        driver.emplace(folder() / "video0",
                       VideoDriver::Options{.card = "Desk camera",
                                            .picture = std::vector<std::uint8_t>(std::size_t{1280} * 720 * 2, 0x80)});
        KnownDevices& devices = *known.back();
        cameras = combineCameras(
            std::move(cameras),
            {[&devices] { return devices.hasCameras(); },
             [&devices](std::function<void()> told) { return devices.observeWhetherItHasCameras(std::move(told)); }},
            v4l2::createV4l2Cameras(queue, folder()));
    }
    void TearDown() override
    {
        if (hasManager)
            return;
        // For the next test.
        EXPECT_TRUE(pipewire->startSessionManager(reason)) << reason;
    }
    void crashSessionManager()
    {
        pipewire->crashSessionManager();
        hasManager = false;
    }
    void startSessionManager()
    {
        ASSERT_TRUE(pipewire->startSessionManager(reason)) << reason;
        hasManager = true;
    }
    [[nodiscard]] fs::path folder() const { return fs::path(home_.path().toStdString()) / "dev"; }
    [[nodiscard]] bool lists(const std::vector<CameraDevice>& devices)
    {
        return eventually([&] { return cameras->devices() == devices; });
    }
    /// Whether the kernel's are listed as soon as no session manager is waited for any more, and not before.
    void expectTheKernelsAfterAWhile()
    {
        // The daemon tells of what it has, and of what went, within a moment; the clock stands still meanwhile.
        static_cast<void>(cameras->devices());
        EXPECT_FALSE(eventually([&] { return !cameras->devices().empty(); }, Milliseconds{500}));
        queue.advance(KnownDevices::longestWithoutManager - std::chrono::milliseconds(1));
        EXPECT_THAT(cameras->devices(), IsEmpty());
        queue.advance(std::chrono::milliseconds(1));
        EXPECT_TRUE(lists({asTheKernelHasIt}));
    }

    bool hasManager = true;
    std::optional<VideoDriver> driver;

private:
    QTemporaryDir home_;
};

TEST_F(CombinedCamerasSessionTest, WithoutASessionManagerThereAreTheKernels)
{
    crashSessionManager();
    expectTheKernelsAfterAWhile();
    CameraWatcher watcher(*cameras, identifier);
    EXPECT_TRUE(waitForPictures(watcher));
}

TEST_F(CombinedCamerasSessionTest, ASessionManagerWithoutCamerasIsBelieved)
{
    static_cast<void>(cameras->devices());
    ASSERT_TRUE(eventually([&] { return known.back()->hasCameras() == true; }));
    queue.advance(2 * KnownDevices::longestWithoutManager);
    EXPECT_FALSE(eventually([&] { return !cameras->devices().empty(); }, Milliseconds{500}));
    EXPECT_EQ(driver->questions(), 0) << "the kernel is not even asked";
}

TEST_F(CombinedCamerasSessionTest, OneThatComesLaterHasEachCameraOnceUnderTheSameIdentifier)
{
    crashSessionManager();
    expectTheKernelsAfterAWhile();
    CameraWatcher watcher(*cameras, identifier);
    ASSERT_TRUE(waitForPictures(watcher));

    startSessionManager();
    const auto camera = plugIn({.id = identifier, .name = asPipewireHasIt.name});
    EXPECT_TRUE(lists({asPipewireHasIt}));
    EXPECT_TRUE(waitForPictures(watcher)) << "what is open goes on";
    watcher.close();
    CameraWatcher again(*cameras, identifier);
    EXPECT_TRUE(waitForPictures(again));
    EXPECT_FALSE(driver->isStreaming());
}

TEST_F(CombinedCamerasSessionTest, OneThatIsBackSoonChangesNothing)
{
    static_cast<void>(cameras->devices());
    ASSERT_TRUE(eventually([&] { return known.back()->hasCameras() == true; }));
    int changes = 0;
    const Subscription changed = known.back()->observeWhetherItHasCameras([&changes] { ++changes; });
    crashSessionManager();
    ASSERT_TRUE(eventually([&] { return !known.back()->ask().hasManager; }));
    queue.advance(KnownDevices::longestWithoutManager / 2);
    startSessionManager();
    ASSERT_TRUE(eventually([&] { return known.back()->ask().hasManager; }));
    queue.advance(2 * KnownDevices::longestWithoutManager);
    EXPECT_EQ(changes, 0);
}

TEST_F(CombinedCamerasSessionTest, OneThatGoesGivesTheCamerasBackToTheKernel)
{
    auto camera = plugIn({.id = identifier, .name = asPipewireHasIt.name});
    ASSERT_TRUE(lists({asPipewireHasIt}));
    crashSessionManager();
    ASSERT_TRUE(eventually([&] { return !known.back()->ask().hasManager; }));
    queue.advance(2 * KnownDevices::longestWithoutManager);
    EXPECT_TRUE(lists({asPipewireHasIt})) << "it is there all the same";
    camera->tell("unplug");
    ASSERT_TRUE(lists({}));
    expectTheKernelsAfterAWhile();
}

} // namespace
} // namespace nimbrale::test
