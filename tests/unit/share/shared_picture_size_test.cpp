#include "geometry/region_snapper.h"
#include "share/shared_screen.h"
#include "tests/fakes/region_capture_fixture.h"

#include <cmath>

namespace nimbrale {
namespace {

/// A capture and the screen that shows it, at one scale of the display.
class SharedPictureSizeTest : public RegionCaptureTest, public testing::WithParamInterface<double> {
protected:
    static constexpr int displayWidth = 1366;
    static constexpr int displayHeight = 768;

    SharedPictureSizeTest()
    {
        Screen& main = screens.list.back();
        main.frame = {0, 0, displayWidth / scale(), displayHeight / scale()};
        main.visibleFrame = main.frame;
        main.backingScaleFactor = scale();
    }

    [[nodiscard]] static double scale() { return GetParam(); }
    void start()
    {
        startRunning(
            {{{mainDisplay, displayWidth / scale(), displayHeight / scale()}}, {ownApplication}, {{::getpid(), true}}});
    }
    /// As in a drag's step.
    void drag(const Rect& region)
    {
        changeRegion(region);
        sharedScreen.setRegion(region);
    }
    /// As at the end of a drag.
    void drop(const Rect& region)
    {
        drag(capture->geometry()->clamp(region, PreserveSize::no));
        capture->storeRegionInSettings();
        static_cast<void>(capture->settingsChanged());
        sharedScreen.setRegion(capture->region());
        sharedScreen.regionChangeEnded();
    }

    SharedScreen sharedScreen{platform.virtualDisplays(), platform.panels(), screens, queue};
};

INSTANTIATE_TEST_SUITE_P(Scales, SharedPictureSizeTest, testing::Values(1, 110.0 / 96, 1.25, 1.5, 1.75, 2, 3));

TEST_P(SharedPictureSizeTest, EveryPictureIsAsLargeAsTheVirtualDisplay)
{
    start();
    sharedScreen.activate(capture->region(), *capture->geometry(), capture->pixelScale());
    for (int side = 50; side <= 400; ++side) {
        drag({3, 5, static_cast<double>(side), static_cast<double>(450 - side)});
        sharedScreen.regionChangeEnded();
        const StreamConfiguration& picture = stream().configuration;
        const VirtualDisplayMode& mode = platform.virtualDisplays().device().appliedSettings.back().modes.at(0);
        EXPECT_EQ(mode.width, picture.width) << side;
        EXPECT_EQ(mode.height, picture.height) << side;
        // Never more than was framed, and no less than its whole pixels.
        EXPECT_LE(static_cast<double>(picture.width), side * scale() + 1e-6);
        EXPECT_GT(static_cast<double>(picture.width), side * scale() - 1);
    }
}

TEST_P(SharedPictureSizeTest, APictureFillsTheVirtualDisplayToItsEdges)
{
    platform.screens().list.push_back(makeScreen(platform.virtualDisplays().nextDisplayID, {2000, -500, 100, 100}));
    start();
    sharedScreen.activate(capture->region(), *capture->geometry(), capture->pixelScale());
    capture->onFrame = [this](const Frame& frame) { sharedScreen.show(frame); };
    for (int side = 50; side <= 400; side += 7) {
        drag({3, 5, static_cast<double>(side), side + 1.0});
        sharedScreen.regionChangeEnded();
        const VirtualDisplayMode& mode = platform.virtualDisplays().device().appliedSettings.back().modes.at(0);
        deliverPicture(static_cast<int>(stream().configuration.width), static_cast<int>(stream().configuration.height));
        const Rect shown = platform.panels().last().rootLayer().sublayersInOrder().at(0)->frame();
        EXPECT_EQ(shown.origin(), (Point{0, 0})) << side;
        EXPECT_NEAR(shown.width, mode.width, 1e-6) << side;
        EXPECT_NEAR(shown.height, mode.height, 1e-6) << side;
    }
}

TEST_P(SharedPictureSizeTest, TheMirrorWindowIsAsLargeAsThePicture)
{
    platform.virtualDisplays().createResult = fail(ErrorCode::unsupported, "none");
    start();
    sharedScreen.activate(capture->region(), *capture->geometry(), capture->pixelScale());
    for (int side = 50; side <= 400; side += 7) {
        drag({3, 5, static_cast<double>(side), side + 1.0});
        sharedScreen.regionChangeEnded();
        const Rect window = platform.panels().last().frame();
        const StreamConfiguration& picture = stream().configuration;
        EXPECT_NEAR(window.width * scale(), static_cast<double>(picture.width), 1e-6) << side;
        EXPECT_NEAR(window.height * scale(), static_cast<double>(picture.height), 1e-6) << side;
        EXPECT_EQ(window.minX(), capture->region().minX());
        EXPECT_NEAR(window.maxY(), capture->geometry()->screenFrame.maxY() - capture->region().minY(), 1e-6);
    }
}

// A picture that was made before the newest size took effect tells so by its size.
TEST_P(SharedPictureSizeTest, AnOlderPictureIsToldByItsPixels)
{
    start();
    drop({3, 5, 101, 103});
    const StreamConfiguration older = stream().configuration;
    drop({30, 50, 151, 153});
    deliverPicture(static_cast<int>(older.width), static_cast<int>(older.height));
    deliverPicture(static_cast<int>(stream().configuration.width), static_cast<int>(stream().configuration.height));
    ASSERT_THAT(frames, testing::SizeIs(2));
    EXPECT_EQ(frames[0].origin(), (Point{3, 5}));
    EXPECT_EQ(frames[1].origin(), (Point{30, 50}));
}

TEST_P(SharedPictureSizeTest, ADropAtTheFarEdgesKeepsTheFrameWhereItIs)
{
    start();
    const Size display = capture->geometry()->size;
    drop({display.width - 300, display.height - 200, 1000, 1000});
    const Rect dropped = capture->region();
    EXPECT_EQ(dropped.maxX(), display.width);
    EXPECT_EQ(dropped.maxY(), display.height);
    EXPECT_EQ(dropped, dropped.integral());
    for (int again = 0; again < 3; ++again)
        drop(dropped);
    EXPECT_EQ(capture->region(), dropped);
}

TEST_P(SharedPictureSizeTest, TheWholeDisplayCanBeFramed)
{
    start();
    const Rect everything = capture->geometry()->clamp({0, 0, 5000, 5000}, PreserveSize::no);
    drop({0, 0, 5000, 5000});
    EXPECT_EQ(capture->region(), everything);
    EXPECT_EQ(capture->region(),
              (Rect{0, 0, std::floor(displayWidth / scale() + 1e-6), std::floor(displayHeight / scale() + 1e-6)}));
    const RegionSnapper snapper{capture->geometry()->snapArea()};
    EXPECT_THAT(snapper.label(capture->region()), testing::HasSubstr("full × full"));
}

} // namespace
} // namespace nimbrale
