// The captured pictures on their way to the product, and what area each is said to show.

#include "tests/fakes/folder_events.h"
#include "tests/fakes/region_capture_fixture.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <memory>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(RegionCaptureTest, CompletePicturesArriveOnTheMainQueue)
{
    startRunning();

    stream().deliverPicture(800, 600);
    EXPECT_THAT(frames, IsEmpty());
    queue.runPosted();

    EXPECT_THAT(frames, ElementsAre(Rect{100, 75, 400, 300}));
}

TEST_F(RegionCaptureTest, PictureOfThePreviousRegionCarriesItsOrigin)
{
    startRunning();
    changeRegion({10, 20, 200, 100});

    deliverPicture(800, 600);
    deliverPicture(400, 200);

    EXPECT_THAT(frames, ElementsAre(Rect{100, 75, 400, 300}, Rect{10, 20, 200, 100}));
}

TEST_F(RegionCaptureTest, PreviousRegionIsTheOneOfTheUpdateBefore)
{
    startRunning();
    for (const Rect& region : {Rect{10, 20, 200, 100}, Rect{30, 40, 220, 120}})
        changeRegion(region);

    deliverPicture(400, 200);
    deliverPicture(440, 240);

    EXPECT_THAT(frames, ElementsAre(Rect{10, 20, 200, 100}, Rect{30, 40, 220, 120}));
}

TEST_F(RegionCaptureTest, PictureThatFitsBothRegionsCarriesTheNewestOrigin)
{
    startRunning();
    changeRegion({10, 20, 400, 300});

    deliverPicture(800, 600);

    EXPECT_THAT(frames, ElementsAre(Rect{10, 20, 400, 300}));
}

TEST_F(RegionCaptureTest, PictureOfAnUnknownSizeKeepsItsSizeAtTheNewestOrigin)
{
    startRunning();
    deliverPicture(333, 100);
    changeRegion({10, 20, 200, 100});

    deliverPicture(333, 100);

    EXPECT_THAT(frames, ElementsAre(Rect{100, 75, 166.5, 50}, Rect{10, 20, 166.5, 50}));
}

TEST_F(RegionCaptureTest, OnlyCompleteScreenPicturesCount)
{
    startRunning();
    const auto surface = std::make_shared<FakeSurface>(800, 600);

    stream().deliver({OutputType::audio, FrameStatus::complete, surface});
    stream().deliver({OutputType::screen, std::nullopt, surface});
    stream().deliver({OutputType::screen, FrameStatus::complete, nullptr});
    for (const FrameStatus status :
         {FrameStatus::idle, FrameStatus::blank, FrameStatus::suspended, FrameStatus::started, FrameStatus::stopped})
        stream().deliver({OutputType::screen, status, surface});
    queue.runPosted();

    EXPECT_THAT(frames, IsEmpty());
}

TEST_F(RegionCaptureTest, SurfaceIsPassedOnAndReleasedAfterTheDelivery)
{
    startRunning();
    const auto surface = std::make_shared<FakeSurface>(800, 600);
    const Surface* delivered = nullptr;
    capture->onFrame = [&delivered](const Frame& frame) { delivered = frame.surface.get(); };

    stream().deliver({OutputType::screen, FrameStatus::complete, surface});
    queue.runPosted();

    EXPECT_EQ(delivered, surface.get());
    EXPECT_EQ(surface.use_count(), 1);
}

TEST_F(RegionCaptureTest, PictureUnderWayToAReleasedCaptureIsReleasedToo)
{
    startRunning();
    const auto surface = std::make_shared<FakeSurface>(800, 600);
    stream().deliver({OutputType::screen, FrameStatus::complete, surface});

    capture.reset();
    queue.runPosted();

    EXPECT_THAT(frames, IsEmpty());
    EXPECT_EQ(surface.use_count(), 1);
    EXPECT_FALSE(stream().isAlive);
}

TEST_F(RegionCaptureTest, MayBeStoppedFromWithinADelivery)
{
    startRunning();
    capture->onFrame = [this](const Frame& frame) {
        frames.push_back(frame.region);
        capture->stop([] {});
    };

    deliverPicture(800, 600);
    deliverPicture(800, 600);

    EXPECT_THAT(frames, SizeIs(1));
    stream().completeStop();
}

TEST_F(RegionCaptureTest, APictureCostsOneCallOnTheMainQueue)
{
    startRunning();
    queue.runPosted();
    for (std::size_t picture = 1; picture <= 3; ++picture) {
        stream().deliverPicture(800, 600);
        EXPECT_EQ(queue.pendingPosts(), picture);
    }
    queue.runPosted();
    EXPECT_EQ(frames.size(), 3u);
}

TEST_F(RegionCaptureTest, PicturesGoToNoDisk)
{
    FolderEvents folderEvents(folder.path().toStdString());
    ASSERT_TRUE(folderEvents.isWatching());
    startRunning();
    // As if another program had written the file: whoever asks for a value now has to read it.
    const std::filesystem::path file = folder.filePath("settings.conf").toStdString();
    const auto touch = [&file] {
        std::filesystem::last_write_time(file, std::filesystem::file_time_type::clock::now());
    };
    (void)folderEvents.take("settings.conf");
    for (int picture = 0; picture < 100; ++picture) {
        touch();
        deliverPicture(800, 600);
    }
    EXPECT_THAT(frames, SizeIs(100));
    EXPECT_FALSE(folderEvents.take("settings.conf").wasOpened);
    touch();
    (void)capture->settingsChanged();
    EXPECT_TRUE(folderEvents.take("settings.conf").wasOpened) << "the control: a value that is asked for is read";
}

} // namespace
} // namespace nimbrale
