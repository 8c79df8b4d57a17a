#include "tests/fakes/region_capture_fixture.h"

#include "share/virtual_display.h"

#include <chrono>
#include <limits>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class RegionCaptureDeathTest : public RegionCaptureTest {
protected:
    // The capture has a thread, which a mere fork would leave behind.
    RegionCaptureDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(RegionCaptureTest, FirstStartWithoutPermissionOnlyAsksForIt)
{
    begin(std::nullopt);
    queue.advance(1min);

    EXPECT_EQ(screenCapture.accessRequests, 1);
    EXPECT_TRUE(settings.hasRequestedScreenCaptureAccess());
    EXPECT_THAT(results, IsEmpty());
    EXPECT_FALSE(capture->hasStream());
    EXPECT_EQ(capture->geometry(), std::nullopt);
}

TEST_F(RegionCaptureTest, LaterStartWithoutPermissionCompletesAsDeclined)
{
    settings.setHasRequestedScreenCaptureAccess(true);

    begin(std::nullopt);
    EXPECT_THAT(results, IsEmpty()) << "must complete on the main queue";
    queue.runPosted();

    EXPECT_EQ(screenCapture.accessRequests, 0);
    ASSERT_THAT(results, SizeIs(1));
    ASSERT_TRUE(results[0]);
    EXPECT_EQ(results[0]->code, ErrorCode::captureDeclined);
    EXPECT_EQ(static_cast<int>(results[0]->code), -3801);
}

TEST_F(RegionCaptureTest, ErrorInsteadOfContentIsPassedOn)
{
    begin(tl::make_unexpected(someError));

    EXPECT_THAT(results, ElementsAre(someError));
    EXPECT_THAT(screenCapture.streams, IsEmpty());
}

TEST_F(RegionCaptureTest, CapturesTheDisplayInTheSettings)
{
    settings.setDisplayID(sideDisplay);

    startRunning();

    ASSERT_TRUE(capture->display());
    EXPECT_EQ(capture->display()->displayID, sideDisplay);
    EXPECT_EQ(capture->pixelScale(), 1);
    EXPECT_EQ(capture->geometry(), (DisplayGeometry{{1280, 1024}, {1440, 0, 1280, 1024}, 0}));
    EXPECT_EQ(stream().filter.displayID, sideDisplay);
}

TEST_F(RegionCaptureTest, SizeIsThatOfWhatCanBeCaptured)
{
    ShareableContent content = makeContent();
    content.displays.back() = {mainDisplay, 1439.6, 899.5};

    startRunning(content);

    ASSERT_TRUE(capture->geometry());
    EXPECT_EQ(capture->geometry()->size, (Size{1439, 899}));
    EXPECT_EQ(capture->geometry()->screenFrame, (Rect{0, 0, 1440, 900}));
}

TEST_F(RegionCaptureTest, MainDisplayStandsInForOneThatIsNotConnected)
{
    settings.setDisplayID(99);

    startRunning();

    EXPECT_EQ(capture->display()->displayID, mainDisplay);
    EXPECT_EQ(capture->pixelScale(), 2);
    EXPECT_EQ(capture->geometry(), (DisplayGeometry{{1440, 900}, {0, 0, 1440, 900}, 24}));
}

TEST_F(RegionCaptureTest, FirstDisplayStandsInForTheMainOneToo)
{
    settings.setDisplayID(99);
    screens.main = 98;

    startRunning();

    EXPECT_EQ(capture->display()->displayID, sideDisplay);
}

TEST_F(RegionCaptureTest, NegativeDisplaySettingNamesNoDisplay)
{
    settings.setDisplayID(static_cast<std::int64_t>(sideDisplay) - (std::int64_t{1} << 32));

    startRunning();

    EXPECT_EQ(capture->display()->displayID, mainDisplay);
}

TEST_F(RegionCaptureTest, NeverCapturesTheVirtualDisplay)
{
    platform.virtualDisplays().nextDisplayID = sideDisplay;
    const auto virtualDisplay = VirtualDisplay::create(platform.virtualDisplays(), screens, queue);
    ASSERT_TRUE(virtualDisplay.has_value());
    settings.setDisplayID(sideDisplay);

    startRunning();

    EXPECT_EQ(capture->display()->displayID, mainDisplay);
}

TEST_F(RegionCaptureTest, StartFailsWithoutADisplay)
{
    ShareableContent content = makeContent();
    content.displays.clear();

    begin(content);

    ASSERT_THAT(results, SizeIs(1));
    ASSERT_TRUE(results[0]);
    EXPECT_EQ(static_cast<int>(results[0]->code), -3814);
    EXPECT_THAT(screenCapture.streams, IsEmpty());
    EXPECT_EQ(capture->geometry(), std::nullopt);
}

TEST_F(RegionCaptureTest, StartFailsWithoutTheScreenOfTheDisplay)
{
    screens.remove(mainDisplay);

    begin(makeContent());

    ASSERT_THAT(results, SizeIs(1));
    ASSERT_TRUE(results[0]);
    EXPECT_EQ(results[0]->code, ErrorCode::captureNoDisplayList);
    EXPECT_EQ(capture->display().has_value(), false);
}

TEST_F(RegionCaptureTest, StoredTopCountsFromOnePointBelowTheMenuBar)
{
    EXPECT_EQ(startedRegion(), (Rect{100, 75, 400, 300}));
}

TEST_F(RegionCaptureTest, TinyStoredRegionBecomesTheSmallestOne)
{
    storeRegion(100, 100, 10, 10);

    EXPECT_EQ(startedRegion(), (Rect{100, 125, 50, 50}));
}

TEST_F(RegionCaptureTest, RegionWiderThanTheDisplayIsCutAndMovedToTheLeftEdge)
{
    storeRegion(100, 0, 5000, 300);

    EXPECT_EQ(startedRegion(), (Rect{0, 25, 1440, 300}));
}

TEST_F(RegionCaptureTest, RegionBelowTheDisplayIsMovedUpToItsBottom)
{
    storeRegion(100, 800, 400, 300);

    EXPECT_EQ(startedRegion(), (Rect{100, 600, 400, 300}));
}

TEST_F(RegionCaptureTest, ConfigurationFollowsFromRegionScaleAndFrameRate)
{
    storeRegion(0, 0, 800, 600);

    startRunning();

    EXPECT_EQ(stream().configuration, (StreamConfiguration{.sourceRect = Rect{0, 25, 800, 600},
                                                           .width = 1600,
                                                           .height = 1200,
                                                           .preservesAspectRatio = false,
                                                           .pixelFormat = PixelFormat::bgra,
                                                           .minimumFrameInterval = {1, 30},
                                                           .showsCursor = true}));
}

TEST_F(RegionCaptureTest, PixelsAreTruncated)
{
    screens.list[1].backingScaleFactor = 1.5;
    storeRegion(0, 0, 401, 301);

    startRunning();

    EXPECT_EQ(stream().configuration.width, 601);
    EXPECT_EQ(stream().configuration.height, 451);
}

TEST_F(RegionCaptureDeathTest, PixelsThatAreNoNumberAreAProgrammingError)
{
    startRunning();
    capture->setRegion({0, 0, std::numeric_limits<double>::quiet_NaN(), 300});
    EXPECT_DEATH(capture->applyRegion(), "programming error");

    capture->setRegion({0, 0, 400, 1e19});
    EXPECT_DEATH(capture->applyRegion(), "programming error");
}

TEST_F(RegionCaptureTest, FrameRateThatNoIntervalHoldsIsBoundedAtTheStart)
{
    settings.setFramerate(std::int64_t{1} << 31);
    startRunning();
    EXPECT_EQ(stream().configuration.minimumFrameInterval, (FrameInterval{1, 2147483647}));
}

TEST_F(RegionCaptureTest, StartCompletesOnceTheStreamRuns)
{
    begin(makeContent());
    EXPECT_TRUE(capture->hasStream());
    EXPECT_THAT(stream().outputs, ElementsAre(OutputType::screen));
    EXPECT_EQ(stream().queueLabel, "Nimbrale.frames");
    EXPECT_EQ(stream().starts, 1);
    EXPECT_THAT(results, IsEmpty());

    stream().completeStart();

    EXPECT_THAT(results, ElementsAre(std::nullopt));
}

TEST_F(RegionCaptureTest, FailedOutputIsPassedOnAndTheStreamIsNotKept)
{
    screenCapture.addOutputResult = tl::make_unexpected(someError);

    begin(makeContent());

    EXPECT_THAT(results, ElementsAre(someError));
    EXPECT_FALSE(capture->hasStream());
    EXPECT_FALSE(stream().isAlive);
    EXPECT_EQ(stream().starts, 0);
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(RegionCaptureTest, FailedStartIsPassedOn)
{
    ShareableContent content = makeContent();
    content.applications.clear();
    begin(content);

    stream().completeStart(tl::make_unexpected(someError));

    EXPECT_THAT(results, ElementsAre(someError));
    EXPECT_EQ(screenCapture.contentRequests, 0);
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(RegionCaptureTest, StartThatEndsAfterAStopIsNotReported)
{
    begin(makeContent());
    capture->stop([] {});

    stream().completeStart();

    EXPECT_THAT(results, IsEmpty());
    stream().completeStop();
}

TEST_F(RegionCaptureTest, StopWithoutAStreamGoesOnAtOnce)
{
    int continued = 0;

    capture->stop([&continued] { ++continued; });

    EXPECT_EQ(continued, 1);
}

TEST_F(RegionCaptureTest, StopGoesOnWhenTheStreamHasStoppedThoughTheCaptureIsReleased)
{
    startRunning();
    int continued = 0;

    capture->stop([&continued] { ++continued; });
    EXPECT_FALSE(capture->hasStream());
    capture.reset();
    EXPECT_EQ(continued, 0);
    EXPECT_TRUE(stream().isAlive);
    deliverPicture(800, 600);
    stream().completeStop();

    EXPECT_EQ(continued, 1);
    EXPECT_THAT(frames, IsEmpty());
    EXPECT_FALSE(stream().isAlive);
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(RegionCaptureTest, FailedStopIsLoggedAndGoesOn)
{
    startRunning();
    int continued = 0;
    capture->stop([&continued] { ++continued; });

    stream().completeStop(tl::make_unexpected(someError));

    EXPECT_EQ(continued, 1);
    EXPECT_THAT(log.errors(), ElementsAre(errorLine(captureCategory, "Stopping capture failed: it went wrong")));
}

TEST_F(RegionCaptureTest, StreamThatStopsByItselfIsLoggedAndNotRestarted)
{
    startRunning();

    stream().stopByItself(someError);
    queue.advance(1min);

    EXPECT_THAT(log.errors(), ElementsAre(errorLine(captureCategory, "Capture stopped: it went wrong")));
    EXPECT_THAT(screenCapture.streams, SizeIs(1));
}

} // namespace
} // namespace nimbrale
