#include "tests/fakes/folder_events.h"
#include "tests/fakes/region_capture_fixture.h"

#include <chrono>
#include <limits>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(RegionCaptureTest, OwnApplicationIsExcluded)
{
    startRunning();

    EXPECT_EQ(stream().filter, (ContentFilter{mainDisplay, {ownApplication}}));
    EXPECT_EQ(screenCapture.contentRequests, 0);
}

TEST_F(RegionCaptureTest, NotificationsAreExcludedUnlessShared)
{
    settings.setShareNotifications(false);

    startRunning();

    EXPECT_EQ(stream().filter, (ContentFilter{mainDisplay, {ownApplication, notifications}}));
}

TEST_F(RegionCaptureTest, TogglingNotificationsRebuildsTheFilterWithoutARestart)
{
    startRunning();

    settings.setShareNotifications(false);
    EXPECT_FALSE(capture->settingsChanged());
    screenCapture.answerContent(makeContent());
    settings.setShareNotifications(true);
    EXPECT_FALSE(capture->settingsChanged());
    screenCapture.answerContent(makeContent());

    EXPECT_THAT(stream().filterUpdates, ElementsAre(ContentFilter{mainDisplay, {ownApplication, notifications}},
                                                    ContentFilter{mainDisplay, {ownApplication}}));
    EXPECT_THAT(screenCapture.streams, SizeIs(1));
    EXPECT_EQ(stream().starts, 1);
}

TEST_F(RegionCaptureTest, SharingNotificationsAgainAfterAStartWithoutThemRebuildsTheFilter)
{
    settings.setShareNotifications(false);
    startRunning();

    settings.setShareNotifications(true);
    (void)capture->settingsChanged();
    screenCapture.answerContent(makeContent());

    EXPECT_THAT(stream().filterUpdates, ElementsAre(ContentFilter{mainDisplay, {ownApplication}}));
}

TEST_F(RegionCaptureTest, FilterIsRefreshedWhenTheOwnApplicationWasNotListedAtTheStart)
{
    ShareableContent content = makeContent();
    content.applications = {editor};
    begin(content);
    EXPECT_EQ(stream().filter, (ContentFilter{mainDisplay, {}}));
    EXPECT_EQ(screenCapture.contentRequests, 0);

    stream().completeStart();
    EXPECT_EQ(screenCapture.contentRequests, 1);
    screenCapture.answerContent(makeContent());

    EXPECT_THAT(stream().filterUpdates, ElementsAre(ContentFilter{mainDisplay, {ownApplication}}));
}

TEST_F(RegionCaptureTest, FilterRefreshTriesTenTimesOverAboutThreeSeconds)
{
    startRunning();
    ShareableContent content = makeContent();
    content.windows = {{::getpid(), false}, {1, true}, {std::nullopt, true}};

    capture->refreshFilter();
    for (int attempt = 1; attempt <= 10; ++attempt) {
        EXPECT_EQ(screenCapture.contentRequests, attempt);
        EXPECT_THAT(log.errors(), IsEmpty());
        screenCapture.answerContent(content);
        queue.advance(299ms);
        EXPECT_EQ(screenCapture.contentRequests, attempt);
        queue.advance(1ms);
    }
    queue.advance(1min);

    EXPECT_EQ(screenCapture.contentRequests, 10);
    EXPECT_THAT(stream().filterUpdates, IsEmpty());
    EXPECT_THAT(log.errors(),
                ElementsAre(errorLine(captureCategory, "Own windows never listed; the capture filter may be off")));
}

TEST_F(RegionCaptureTest, MissingContentIsTriedAgain)
{
    startRunning();

    capture->refreshFilter();
    screenCapture.answerContent(tl::make_unexpected(someError));
    queue.advance(300ms);
    screenCapture.answerContent(makeContent());

    EXPECT_THAT(stream().filterUpdates, SizeIs(1));
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(RegionCaptureTest, FilterRefreshEndsWithTheStream)
{
    startRunning();
    capture->refreshFilter();
    capture->stop([] {});

    screenCapture.answerContent(makeContent());
    queue.advance(1min);

    EXPECT_THAT(stream().filterUpdates, IsEmpty());
    EXPECT_EQ(screenCapture.contentRequests, 1);
    stream().completeStop();
}

TEST_F(RegionCaptureTest, FailedFilterUpdateIsLogged)
{
    startRunning();
    capture->refreshFilter();
    screenCapture.answerContent(makeContent());

    stream().completeFilterUpdate(tl::make_unexpected(someError));

    EXPECT_THAT(log.errors(),
                ElementsAre(errorLine(captureCategory, "Updating the capture filter failed: it went wrong")));
}

TEST_F(RegionCaptureTest, BurstDuringAnUpdateEndsInExactlyOneMore)
{
    startRunning();
    capture->setRegion({10, 75, 400, 300});
    capture->applyRegion();
    for (const double x : {20.0, 30.0, 40.0}) {
        capture->setRegion({x, 75, 400, 300});
        capture->applyRegion();
    }
    EXPECT_THAT(stream().configurationUpdates, SizeIs(1));

    stream().completeConfigurationUpdate();
    ASSERT_THAT(stream().configurationUpdates, SizeIs(2));
    EXPECT_EQ(stream().configurationUpdates[1].sourceRect, (Rect{40, 75, 400, 300}));
    stream().completeConfigurationUpdate();

    EXPECT_THAT(stream().configurationUpdates, SizeIs(2));
}

TEST_F(RegionCaptureTest, FrameRateChangedDuringAnUpdateIsTakenUp)
{
    startRunning();
    capture->applyRegion();
    settings.setFramerate(60);

    stream().completeConfigurationUpdate();

    ASSERT_THAT(stream().configurationUpdates, SizeIs(2));
    EXPECT_EQ(stream().configurationUpdates[1].minimumFrameInterval, (FrameInterval{1, 60}));
}

TEST_F(RegionCaptureTest, FailedUpdateIsLoggedAndNotRetriedUnchanged)
{
    startRunning();
    capture->setRegion({10, 75, 200, 100});
    capture->applyRegion();

    stream().completeConfigurationUpdate(tl::make_unexpected(someError));

    EXPECT_THAT(log.errors(), ElementsAre(errorLine(captureCategory, "Updating the region failed: it went wrong")));
    EXPECT_THAT(stream().configurationUpdates, SizeIs(1));
    deliverPicture(800, 600);
    EXPECT_THAT(frames, ElementsAre(Rect{100, 75, 400, 300})) << "the applied region must stay";

    capture->applyRegion();
    EXPECT_THAT(stream().configurationUpdates, SizeIs(2)) << "a later request must not be held up";
}

TEST_F(RegionCaptureTest, FailedUpdateIsRepeatedWithWhatChangedMeanwhile)
{
    startRunning();
    capture->applyRegion();
    capture->setRegion({10, 75, 200, 100});

    stream().completeConfigurationUpdate(tl::make_unexpected(someError));

    ASSERT_THAT(stream().configurationUpdates, SizeIs(2));
    EXPECT_EQ(stream().configurationUpdates[1].sourceRect, (Rect{10, 75, 200, 100}));
}

TEST_F(RegionCaptureTest, NothingIsUpdatedWithoutAStream)
{
    capture->setRegion({10, 75, 200, 100});
    capture->applyRegion();
    capture->refreshFilter();
    screenCapture.answerContent(makeContent());

    EXPECT_THAT(screenCapture.streams, IsEmpty());
}

TEST_F(RegionCaptureTest, ChangedSettingsMoveTheRegion)
{
    startRunning();
    storeRegion(200, 60, 500, 350);

    EXPECT_TRUE(capture->settingsChanged());

    EXPECT_EQ(capture->region(), (Rect{200, 85, 500, 350}));
    ASSERT_THAT(stream().configurationUpdates, SizeIs(1));
    EXPECT_EQ(stream().configurationUpdates[0].sourceRect, (Rect{200, 85, 500, 350}));
    EXPECT_FALSE(capture->settingsChanged());
    EXPECT_THAT(stream().configurationUpdates, SizeIs(1));
}

TEST_F(RegionCaptureTest, UnchangedSettingsUpdateNothing)
{
    startRunning();
    EXPECT_FALSE(capture->settingsChanged());
    EXPECT_THAT(stream().configurationUpdates, IsEmpty());
    EXPECT_THAT(stream().filterUpdates, IsEmpty());
}

TEST_F(RegionCaptureTest, FrameRateAloneIsAppliedButMovesNothing)
{
    startRunning();
    settings.setFramerate(15);

    EXPECT_FALSE(capture->settingsChanged());

    ASSERT_THAT(stream().configurationUpdates, SizeIs(1));
    EXPECT_EQ(stream().configurationUpdates[0].minimumFrameInterval, (FrameInterval{1, 15}));
    stream().completeConfigurationUpdate();
    EXPECT_FALSE(capture->settingsChanged());
    EXPECT_THAT(stream().configurationUpdates, SizeIs(1));
}

TEST_F(RegionCaptureTest, FrameRateThatNoIntervalHoldsIsBounded)
{
    startRunning();
    settings.setFramerate(99'999'999'999);
    EXPECT_FALSE(capture->settingsChanged());
    settings.setFramerate(-99'999'999'999);
    stream().completeConfigurationUpdate();
    stream().completeConfigurationUpdate();

    ASSERT_THAT(stream().configurationUpdates, SizeIs(2)) << "what was applied counts as applied";
    EXPECT_EQ(stream().configurationUpdates[0].minimumFrameInterval, (FrameInterval{1, 2147483647}));
    EXPECT_EQ(stream().configurationUpdates[1].minimumFrameInterval, (FrameInterval{1, -2147483648}));
    EXPECT_FALSE(capture->settingsChanged());
}

TEST_F(RegionCaptureTest, ClampedRegionIsPutBackInTheSettings)
{
    startRunning();
    storeRegion(1400, 60, 10, 350);

    EXPECT_TRUE(capture->settingsChanged());

    EXPECT_EQ(settings.left(), 1390);
    EXPECT_EQ(settings.top(), 60);
    EXPECT_EQ(settings.width(), 50);
    EXPECT_EQ(settings.height(), 350);
}

TEST_F(RegionCaptureTest, SettingsMeanNothingBeforeADisplayIsChosen)
{
    storeRegion(1, 2, 3, 4);
    capture->setRegion({10, 75, 200, 100});

    EXPECT_FALSE(capture->settingsChanged());
    capture->storeRegionInSettings();

    EXPECT_EQ(settings.width(), 3);
    EXPECT_EQ(capture->region(), (Rect{10, 75, 200, 100}));
}

TEST_F(RegionCaptureTest, StoringTruncatesAndWritesOnlyWhatChanged)
{
    startRunning();
    capture->setRegion({99.9, 24.5, 400.7, 300});
    int changes = 0;
    const Subscription subscription = settings.observeChanges([&changes] { ++changes; });

    capture->storeRegionInSettings();

    EXPECT_EQ(settings.left(), 99);
    EXPECT_EQ(settings.top(), 0);
    EXPECT_EQ(settings.width(), 400);
    EXPECT_EQ(settings.height(), 300);
    EXPECT_EQ(changes, 2) << "left and top alone changed";
    capture->storeRegionInSettings();
    EXPECT_EQ(changes, 2);
}

TEST_F(RegionCaptureTest, TheRegionIsStoredWithOneWriteAndToldFourTimes)
{
    startRunning();
    capture->setRegion({11, 37, 413, 314});
    std::vector<std::int64_t> lefts;
    const Subscription subscription = settings.observeChanges([&] { lefts.push_back(settings.left()); });
    FolderEvents events(folder.path().toStdString());
    ASSERT_TRUE(events.isWatching());

    capture->storeRegionInSettings();

    EXPECT_EQ(events.take("settings.conf").replacements, 1);
    EXPECT_THAT(lefts, ElementsAre(100, 11, 11, 11)) << "told before each change, and each is in effect at once";
    EXPECT_EQ(settings.height(), 314);
}

TEST_F(RegionCaptureTest, AFrameRateBeyondWhatAnIntervalHoldsIsCutOff)
{
    startRunning();
    const auto intervalAt = [this](std::int64_t framerate) {
        settings.setFramerate(framerate);
        capture->settingsChanged();
        stream().completeConfigurationUpdate();
        return stream().configuration.minimumFrameInterval;
    };
    EXPECT_EQ(intervalAt(std::int64_t{1} << 40), (FrameInterval{1, std::numeric_limits<std::int32_t>::max()}));
    EXPECT_EQ(intervalAt(2147483647), (FrameInterval{1, 2147483647}));
    EXPECT_EQ(intervalAt(2147483646), (FrameInterval{1, 2147483646}));
    EXPECT_EQ(intervalAt(-(std::int64_t{1} << 40)), (FrameInterval{1, std::numeric_limits<std::int32_t>::min()}));
    EXPECT_EQ(intervalAt(-2147483647), (FrameInterval{1, -2147483647}));
    EXPECT_EQ(intervalAt(0), (FrameInterval{1, 0}));
}

} // namespace
} // namespace nimbrale
