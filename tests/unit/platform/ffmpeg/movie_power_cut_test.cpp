// The power fails while a recording is written: the disk has what it was told to keep, and nothing of what was only on
// its way. A program of its own: it takes file systems of its own.

#include "tests/unit/platform/ffmpeg/paced_recording.h"

#include <QProcess>

#include <fstream>
#include <sched.h>
#include <sys/mount.h>

namespace nimbrale::ffmpeg {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using testing::ElementsAre;

class MoviePowerCutTest : public CutOffMovieTest {
protected:
    void SetUp() override
    {
#ifdef __SANITIZE_THREAD__
        GTEST_SKIP() << "The thread sanitizer loses track of threads that start programs.";
#endif
        if (geteuid() != 0)
            GTEST_SKIP() << "only root may mount a disk image";
        // Nobody else sees what is mounted, and it goes with this process.
        static const bool hasOwnFileSystems =
            unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        if (!hasOwnFileSystems || !run("mkfs.ext4", {"-V"}))
            GTEST_SKIP() << "this system lets the test make no file system";
        for (const auto& place : {disk, afterwards})
            std::filesystem::create_directory(place);
        std::ofstream(image).close();
        std::filesystem::resize_file(image, 64 << 20);
        ASSERT_TRUE(run("mkfs.ext4", {"-q", image.c_str()}));
        if (!run("mount", {"-o", "loop", image.c_str(), disk.c_str()}))
            GTEST_SKIP() << "this system has no loop devices";
    }
    void TearDown() override
    {
        umount(disk.c_str());
        umount(afterwards.c_str());
    }

    static bool run(const char* program, const QStringList& arguments)
    {
        QProcess process;
        process.setStandardErrorFile(QProcess::nullDevice());
        process.start(program, arguments);
        return process.waitForFinished() && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    }

    std::filesystem::path image = folder / "image";
    std::filesystem::path copy = folder / "copy";
    std::filesystem::path disk = folder / "disk";
    std::filesystem::path afterwards = folder / "afterwards";
};

TEST_F(MoviePowerCutTest, NoMoreThanTheLastSecondAndAHalfAreLost)
{
    constexpr int speed = 1;
    // A piece, and what the disk takes to keep it.
    constexpr nanoseconds mostLost = 1500ms;
    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    for (int number = 0; number < 6 && !HasFailure(); ++number) {
        const PacedRecording::Content content{.isMoving = number % 2 == 0, .hasSound = number % 4 < 2};
        const nanoseconds moment = std::uniform_int_distribution<std::int64_t>(3s / 1ns, 7s / 1ns)(random) * 1ns;
        const std::string unasked = "unasked " + std::to_string(number);
        SCOPED_TRACE("seed " + std::to_string(seed) + ", cut " + std::to_string(number) + " at " +
                     std::to_string(moment / 1ms) + " ms");
        const std::string name = "Movie " + std::to_string(number) + ".mov";
        const auto recording = record(speed, content, disk / name);
        // Written when the recording reaches what must be kept: should the system bring it to the disk unasked, it may
        // have done the same with the movie, and the cut would show nothing.
        recording->waitUntil(moment - mostLost);
        ASSERT_TRUE(std::ofstream(disk / unasked) << "not asked for" << std::flush);
        recording->waitUntil(moment);
        recording->freeze();
        const nanoseconds reached = recording->reached();
        std::filesystem::copy_file(image, copy, std::filesystem::copy_options::overwrite_existing);
        recording->kill();
        std::filesystem::remove(disk / (name + std::string(MoviePlace::suffix)));

        ASSERT_TRUE(run("mount", {"-o", "loop", copy.c_str(), afterwards.c_str()}));
        ASSERT_THAT(MovieRecovery().recover(afterwards), ElementsAre(RecoveredMovie{afterwards / name, std::nullopt}));
        expectPlays(afterwards / name, content, reached - mostLost);
        EXPECT_TRUE(!std::filesystem::exists(afterwards / unasked) || std::filesystem::is_empty(afterwards / unasked))
            << "the copy has what no disk was told to keep";
        ASSERT_EQ(umount(afterwards.c_str()), 0);
    }
}

} // namespace
} // namespace nimbrale::ffmpeg
