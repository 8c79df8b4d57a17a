// The region of the frame in the settings file, whatever becomes of the process that stores it.

#include "tests/fakes/region_capture_fixture.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

namespace nimbrale {
namespace {

class RegionStoringTest : public RegionCaptureTest {
protected:
    RegionStoringTest() { startRunning(); }

    /// Stores regions as the end of a drag does, for ever: all four numbers grow together.
    [[noreturn]] void storeUntilKilled(int started)
    {
        const char ready = 1;
        if (write(started, &ready, 1) != 1)
            _exit(1);
        for (int step = 1;; step = step % 200 + 1) {
            capture->setRegion({100.0 + step, 75.0 + step, 400.0 + step, 300.0 + step});
            capture->storeRegionInSettings();
        }
    }

    void storeInAProcessThatIsKilledAfter(useconds_t time)
    {
        int started[2];
        ASSERT_EQ(pipe(started), 0);
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0)
            storeUntilKilled(started[1]);
        close(started[1]);
        char ready = 0;
        ASSERT_EQ(read(started[0], &ready, 1), 1);
        close(started[0]);
        usleep(time);
        ASSERT_EQ(kill(child, SIGKILL), 0);
        waitpid(child, nullptr, 0);
    }
};

TEST_F(RegionStoringTest, KillingBetweenAssignmentsNeverMixesTwoRegions)
{
    std::mt19937 random(4);
    std::uniform_int_distribution<useconds_t> time(0, 10000);
    int stored = 0;
    int mixed = 0;
    for (int round = 0; round < 200; ++round) {
        storeInAProcessThatIsKilledAfter(time(random));
        const AppSettings found(folder.filePath("settings.conf").toStdString());
        const std::int64_t step = found.left() - 100;
        stored += step > 0 ? 1 : 0;
        mixed += found.top() - 50 == step && found.width() - 400 == step && found.height() - 300 == step ? 0 : 1;
    }
    EXPECT_GT(stored, 100) << "the processes must have stored something";
    EXPECT_EQ(mixed, 0);
}

} // namespace
} // namespace nimbrale
