// The webcam by a camera of the kernel (V4L2), in the real application and without PipeWire. A driver of the test's own
// stands for the camera's.

#include "tests/meeting/webcam_journey.h"
#include "tests/support/small_disk.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace nimbrale::test {
namespace {

/// Where a webcam comes that was never placed, from the region's corner.
constexpr QRect firstBox(264, 204, 320, 180);
constexpr QPoint left = firstBox.topLeft() + QPoint(80, 90);
constexpr QPoint right = firstBox.topLeft() + QPoint(240, 90);

/// As a camera writes it, in the limited range of BT.601, and about what that looks like.
struct Color {
    std::array<std::uint8_t, 4> bytes; ///< two pixels: luma, blue, luma, red
    QColor seen;
};
const Color red{{81, 90, 81, 240}, {255, 0, 0}};
const Color blue{{41, 240, 41, 110}, {0, 0, 255}};

class WebcamKernel : public WebcamJourney {
protected:
    void SetUp() override
    {
        if (runInChild([] { return leaveSharedFileSystems() ? 0 : couldNotPrepare; }) == couldNotPrepare)
            skipTest("this system lets the test put no folder in place of /dev");
        writePicture();
        prepareDesktop({.name = "Openbox"});
    }

    [[nodiscard]] std::filesystem::path devices() const { return folder_.path().toStdString(); }
    void plug() const { std::ofstream(devices() / "video0").flush(); }
    void unplug() const { std::filesystem::remove(devices() / "video0"); }
    void startOnTheKernel()
    {
        startWith({}, {{"LD_PRELOAD", (buildFolder() / "nimbrale_kernel_cameras.so").string()},
                       {"NIMBRALE_TEST_DEVICES", devices().string()},
                       {"PIPEWIRE_RUNTIME_DIR", (devices() / "nowhere").string()}});
    }
    [[nodiscard]] bool bothLookLike(QPoint place, const QColor& color) const
    {
        const auto looks = [&](const QColor& seen) {
            const std::array<int, 3> apart{seen.red() - color.red(), seen.green() - color.green(),
                                           seen.blue() - color.blue()};
            return seen.isValid() && std::ranges::all_of(apart, [](int channel) { return std::abs(channel) <= 12; });
        };
        return waitUntil([&] { return looks(onScreen(place)) && looks(shared(place)); }, Milliseconds{8000});
    }

private:
    /// Half red and half blue.
    void writePicture() const
    {
        std::ofstream file(devices() / "picture", std::ios::binary);
        for (int y = 0; y < 180; ++y) {
            for (int pair = 0; pair < 160; ++pair) {
                const auto& bytes = (pair < 80 ? red : blue).bytes;
                file.write(reinterpret_cast<const char*>(bytes.data()), std::ssize(bytes));
            }
        }
    }

    QTemporaryDir folder_;
};

TEST_F(WebcamKernel, IsInTheFrameAndInTheShareMirrored)
{
    plug();
    startOnTheKernel();
    EXPECT_TRUE(bothLookLike(left, blue.seen)) << picture();
    EXPECT_TRUE(bothLookLike(right, red.seen)) << picture();
    EXPECT_TRUE(bothShow(firstBox.topLeft() - QPoint(3, 3), wall)) << "beside it: " << picture();
}

TEST_F(WebcamKernel, ACameraUnpluggedLeavesItBlackAndComesBack)
{
    plug();
    startOnTheKernel();
    ASSERT_TRUE(bothLookLike(left, blue.seen)) << picture();
    for (int round = 0; round < 2; ++round) {
        unplug();
        EXPECT_TRUE(bothLookLike(left, Qt::black)) << picture();
        plug();
        EXPECT_TRUE(bothLookLike(left, blue.seen)) << picture();
        EXPECT_TRUE(bothLookLike(right, red.seen)) << picture();
    }
    EXPECT_EQ(application->quit(), 0);
}

TEST_F(WebcamKernel, ACameraThatComesAfterTheApplicationIsShown)
{
    startOnTheKernel();
    ASSERT_TRUE(bothLookLike(left, Qt::black)) << picture();
    plug();
    EXPECT_TRUE(bothLookLike(left, blue.seen)) << picture();
}

} // namespace
} // namespace nimbrale::test
