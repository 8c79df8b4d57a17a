// A recording on a disk that fills up. A program of its own: the test takes file systems of its own.

#include "tests/meeting/recording_journey.h"
#include "tests/support/small_disk.h"

#include <fstream>

namespace nimbrale::test {
namespace {

/// Its folder for videos is a small disk.
class RecordingDiskTest : public RecordingJourney {
protected:
    /// Root needs no other user for it.
    static bool ownFileSystems()
    {
        if (geteuid() != 0)
            return leaveSharedFileSystems();
        return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    }

    void SetUp() override
    {
        static const bool hasOwnFileSystems = ownFileSystems();
        if (!hasOwnFileSystems)
            skipTest(noSmallDisk);
        prepare();
        std::filesystem::create_directories(videos);
        ASSERT_EQ(mount("tmpfs", videos.c_str(), "tmpfs", 0, "size=72m"), 0);
    }
    void TearDown() override
    {
        application.reset();
        umount(videos.c_str());
    }

    void fill(std::size_t megabytes) const { std::ofstream(videos / "other") << std::string(megabytes << 20, 'x'); }
};

TEST_F(RecordingDiskTest, WhenItIsAlmostFullTheRecordingEndsInOrder)
{
    start();
    pressRecord();
    ASSERT_TRUE(isRecording()) << application->process().output();
    sleepFor(Milliseconds{2000});
    fill(10);
    ASSERT_TRUE(waitUntil([&] { return moviesIn(videos).size() == 1; }, Milliseconds{8000}))
        << application->process().output();
    EXPECT_EQ(movie().problems(), "");
    EXPECT_EQ(movie().boxes(), "ftyp mdat moov");
    EXPECT_GE(movie().video()->duration, 1.5);
    EXPECT_TRUE(application->process().isRunning());
}

TEST_F(RecordingDiskTest, WhenItIsFullAllOfASuddenWhatWasRecordedIsKept)
{
    start();
    scene->add("moving", {.geometry = {601, 301, 120, 120}, .seed = 1});
    pressRecord();
    ASSERT_TRUE(isRecording()) << application->process().output();
    sleepFor(Milliseconds{4000});
    std::ofstream(videos / "other") << std::string(std::size_t{80} << 20, 'x');
    for (std::uint32_t seed = 2; seed < 60; ++seed) {
        scene->repaint("moving", seed);
        sleepFor(Milliseconds{50});
    }
    ASSERT_TRUE(waitUntil([&] { return moviesIn(videos).size() == 1; }, Milliseconds{8000}))
        << application->process().output();
    EXPECT_EQ(movie().problems(), "");
    EXPECT_GE(movie().video()->duration, 2.5) << application->process().output();
}

TEST_F(RecordingDiskTest, WhenItHasNoRoomNothingIsBegun)
{
    fill(20);
    start();
    EXPECT_FALSE(isAlertShown());
    pressRecord();
    EXPECT_TRUE(waitUntil([&] { return isAlertShown(); }, Milliseconds{8000}));
    EXPECT_EQ(otherFilesIn(videos).size(), 1U) << "the other program's alone";
    EXPECT_TRUE(moviesIn(videos).empty());
}

TEST_F(RecordingDiskTest, WhenItCanOnlyBeReadNothingIsBegunAndTheProgramGoesOn)
{
    ASSERT_EQ(mount(nullptr, videos.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    start();
    EXPECT_FALSE(isAlertShown());
    pressRecord();
    EXPECT_TRUE(dismissAlert());
    EXPECT_TRUE(std::filesystem::is_empty(videos));

    ASSERT_EQ(mount(nullptr, videos.c_str(), nullptr, MS_REMOUNT, nullptr), 0);
    record(Milliseconds{2000});
    EXPECT_TRUE(isSaved()) << application->process().output();
}

} // namespace
} // namespace nimbrale::test
