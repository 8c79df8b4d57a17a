// Cameras whose pictures are as large as any may be: a quarter of a gigabyte each, in each of the stream's buffers and
// once more when it is made.

#include "platform/camera_pictures/camera_format.h"
#include "tests/desktop/pipewire_fixture.h"
#include "tests/support/resident_memory.h"

#include <QImage>

#include <cstdlib>
#include <gmock/gmock.h>
#include <unistd.h>

namespace nimbrale::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr long megabyte = 1024L * 1024;
constexpr Milliseconds hugePatience{60'000};

class PipewireHugePicturesTest : public PipewireTest {
protected:
    void SetUp() override
    {
        if (areHugePicturesTooSlow)
            skipTest("too slow under the thread sanitizer");
        PipewireTest::SetUp();
    }
    [[nodiscard]] std::unique_ptr<VirtualCamera> plugInHuge(const std::string& format)
    {
        QImage image(16, 16, QImage::Format_RGB32);
        image.fill(color);
        const QString file = folder_.filePath("huge.png");
        EXPECT_TRUE(image.save(file));
        auto camera = plugIn({.id = "huge", .formats = {format + ":8192x8192@1"}, .picture = file.toStdString()});
        if (!eventually([this] { return isListed("huge"); }))
            failTest("the camera is not listed");
        return camera;
    }

    static inline const QRgb color = qRgb(200, 40, 90);

private:
    QTemporaryDir folder_;
};

TEST_F(PipewireHugePicturesTest, AreShownAndTheirMemoryIsGivenBack)
{
    std::vector<std::string> formats{"BGRx"};
    // The camera of these tests takes ten seconds for its first picture of this format.
    if (std::getenv("NIMBRALE_LONG"))
        formats.emplace_back("NV12");
    for (const std::string& format : formats) {
        SCOPED_TRACE(format);
        const long before = residentMemory(getpid());
        // It takes longer for the first than a real one may.
        cameras = makeCameras(std::chrono::duration_cast<std::chrono::seconds>(hugePatience));
        const auto camera = plugInHuge(format);
        {
            CameraWatcher watcher(*cameras, "huge");
            ASSERT_TRUE(eventually([&] { return watcher.count() >= 2; }, hugePatience));
            const auto picture = watcher.newest();
            ASSERT_EQ(picture->width(), largestPictureSide);
            ASSERT_EQ(picture->height(), largestPictureSide);
            for (const int place : {0, largestPictureSide - 1}) {
                const std::byte* const pixel = picture->pixels().row(place) + 4L * place;
                EXPECT_NEAR(std::to_integer<int>(pixel[2]), qRed(color), 4);
                EXPECT_NEAR(std::to_integer<int>(pixel[1]), qGreen(color), 4);
                EXPECT_NEAR(std::to_integer<int>(pixel[0]), qBlue(color), 4);
            }
            EXPECT_GT(residentMemory(getpid()), before + 256 * megabyte);
            EXPECT_THAT(watcher.losses, IsEmpty());
        }
        EXPECT_LT(residentMemory(getpid()), before + 32 * megabyte);
    }
}

/// Half of that is the most that a JPEG may have.
TEST_F(PipewireHugePicturesTest, AsJpegsTheyAreLostWithOneReasonAndTheirMemoryIsGivenBack)
{
    const long before = residentMemory(getpid());
    const auto camera = plugInHuge("MJPG");
    {
        CameraWatcher watcher(*cameras, "huge");
        ASSERT_TRUE(eventually([&] { return !watcher.losses.empty(); }, hugePatience));
        EXPECT_EQ(watcher.losses.size(), 1U);
        EXPECT_THAT(watcher.losses.front().message, HasSubstr("cannot be read"));
        EXPECT_EQ(watcher.count(), 0);
    }
    EXPECT_LT(residentMemory(getpid()), before + 32 * megabyte);
}

} // namespace
} // namespace nimbrale::test
