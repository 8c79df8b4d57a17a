// What cameras on a PipeWire of the test's own show, in every format, and what is made of those that write nonsense.

#include "tests/desktop/pipewire_fixture.h"

#include <QImage>

#include <atomic>
#include <gmock/gmock.h>
#include <ostream>

namespace nimbrale::test {
namespace {

using testing::IsEmpty;

constexpr int width = 320;
constexpr int height = 192;
constexpr int square = 16;

/// Squares whose colors tell where they are, so that nothing can be turned, moved or swapped unseen.
QRgb colorAt(int column, int row)
{
    return qRgb(column * 37 % 256, row * 53 % 256, (column + 2 * row) * 29 % 256);
}

QImage squares()
{
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, colorAt(x / square, y / square));
    }
    return image;
}

/// The greatest difference in any channel of any pixel.
int farthest(const BufferSurface& picture)
{
    int worst = 0;
    for (int y = 0; y < height; ++y) {
        const std::byte* pixel = picture.pixels().row(y);
        for (int x = 0; x < width; ++x, pixel += PixelBuffer::bytesPerPixel) {
            const QRgb expected = colorAt(x / square, y / square);
            worst = std::max({worst, std::abs(std::to_integer<int>(pixel[0]) - qBlue(expected)),
                              std::abs(std::to_integer<int>(pixel[1]) - qGreen(expected)),
                              std::abs(std::to_integer<int>(pixel[2]) - qRed(expected))});
        }
    }
    return worst;
}

class PipewirePicturesTest : public PipewireTest {
protected:
    void SetUp() override
    {
        PipewireTest::SetUp();
        if (IsSkipped() || HasFatalFailure())
            return;
        picture_ = folder_.filePath("squares.png");
        ASSERT_TRUE(squares().save(picture_));
    }
    [[nodiscard]] std::unique_ptr<VirtualCamera> show(const std::string& format, const std::string& fault = "")
    {
        auto camera = plugIn({.id = "squares",
                              .formats = {format + ":" + std::to_string(width) + "x" + std::to_string(height) + "@30"},
                              .picture = picture_.toStdString(),
                              .more = {"--fault", fault}});
        if (!eventually([this] { return isListed("squares"); }))
            failTest("the camera is not listed");
        return camera;
    }

private:
    QTemporaryDir folder_;
    QString picture_;
};

struct FormatCase {
    friend void PrintTo(const FormatCase& format, std::ostream* stream) { *stream << format.format; }

    const char* format;
    int tolerance; ///< what the format itself loses
};

class PipewireFormatsTest : public PipewirePicturesTest, public testing::WithParamInterface<FormatCase> {};

TEST_P(PipewireFormatsTest, EveryPixelHasItsColor)
{
    const auto camera = show(GetParam().format);
    CameraWatcher watcher(*cameras, "squares");
    ASSERT_TRUE(waitForPictures(watcher, 2));
    const auto picture = watcher.newest();
    ASSERT_EQ(picture->width(), width);
    ASSERT_EQ(picture->height(), height);
    EXPECT_EQ(picture->alpha(), SurfaceAlpha::opaque);
    EXPECT_LE(farthest(*picture), GetParam().tolerance);
}

TEST_P(PipewireFormatsTest, GapsBetweenRowsAreLeftOut)
{
    const auto camera = show(GetParam().format, "gap");
    CameraWatcher watcher(*cameras, "squares");
    ASSERT_TRUE(waitForPictures(watcher));
    EXPECT_LE(farthest(*watcher.newest()), GetParam().tolerance);
}

TEST_P(PipewireFormatsTest, RowsOfNoStatedLengthFollowEachOther)
{
    const auto camera = show(GetParam().format, "no-stride");
    CameraWatcher watcher(*cameras, "squares");
    ASSERT_TRUE(waitForPictures(watcher));
    EXPECT_LE(farthest(*watcher.newest()), GetParam().tolerance);
}

TEST_P(PipewireFormatsTest, PicturesWithoutATimeAreShown)
{
    const auto camera = show(GetParam().format, "no-time");
    CameraWatcher watcher(*cameras, "squares");
    EXPECT_TRUE(waitForPictures(watcher, 3));
}

/// What is no whole picture is not shown, and what comes after it is.
TEST_P(PipewireFormatsTest, NonsenseIsLeftOutAndTheNextPictureShown)
{
    const auto camera = show(GetParam().format);
    CameraWatcher watcher(*cameras, "squares");
    ASSERT_TRUE(waitForPictures(watcher));
    for (const std::string fault : {"half", "wide-stride", "narrow-stride", "negative-stride", "far-offset", "empty",
                                    "marked", "too-long", "scrambled"}) {
        // JPEG has no rows of its own, and other formats tell nothing of what was written wrongly.
        const bool isJpeg = GetParam().format == std::string("MJPG");
        const bool isHarmless =
            fault == "too-long" || (isJpeg && fault.ends_with("stride")) || (!isJpeg && fault == "scrambled");
        camera->tell("fault " + fault);
        sleepFor(Milliseconds{150}); // What was on its way before has arrived.
        const int before = watcher.count();
        EXPECT_EQ(eventually([&] { return watcher.count() > before; }, Milliseconds{300}), isHarmless) << fault;
        camera->tell("fault none");
        EXPECT_TRUE(waitForPictures(watcher, 3)) << "after " << fault;
        EXPECT_LE(farthest(*watcher.newest()), GetParam().tolerance) << "after " << fault;
    }
    EXPECT_THAT(watcher.losses, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, PipewireFormatsTest,
                         testing::Values(FormatCase{"YUY2", 4}, FormatCase{"UYVY", 4}, FormatCase{"NV12", 4},
                                         FormatCase{"I420", 4}, FormatCase{"BGRx", 0}, FormatCase{"MJPG", 12}),
                         [](const auto& test) { return test.param.format; });

struct ChoiceCase {
    const char* name;
    std::vector<std::string> formats; ///< in the camera's order
    const char* chosen;
};

class PipewireChoiceTest : public PipewireTest, public testing::WithParamInterface<ChoiceCase> {};

TEST_P(PipewireChoiceTest, NearTo720LinesAndFluentIsPreferred)
{
    const auto camera = plugIn({.id = "choice", .formats = GetParam().formats});
    ASSERT_TRUE(eventually([&] { return isListed("choice"); }));
    CameraWatcher watcher(*cameras, "choice");
    EXPECT_TRUE(camera->waitFor(std::string("streaming ") + GetParam().chosen));
    EXPECT_TRUE(waitForPictures(watcher));
}

INSTANTIATE_TEST_SUITE_P(
    All, PipewireChoiceTest,
    testing::Values(
        ChoiceCase{"ExactSize", {"YUY2:1920x1080@30", "YUY2:640x480@30", "YUY2:1280x720@30"}, "YUY2:1280x720"},
        ChoiceCase{
            "FluentJpegBeforeSlowRaw", {"YUY2:640x480@30", "YUY2:1280x720@10", "MJPG:1280x720@30"}, "MJPG:1280x720"},
        ChoiceCase{"RawBeforeJpeg", {"MJPG:1280x720@30", "NV12:1280x720@30"}, "NV12:1280x720"},
        ChoiceCase{"NearbyBeforeTiny", {"YUY2:160x120@30", "YUY2:800x600@30"}, "YUY2:800x600"},
        ChoiceCase{"FluentBeforeLarge", {"YUY2:1280x720@5", "YUY2:640x480@30"}, "YUY2:640x480"},
        ChoiceCase{"WhateverThereIs", {"BGRx:160x120@5"}, "BGRx:160x120"}),
    [](const auto& test) { return test.param.name; });

class PipewireOddCamerasTest : public PipewirePicturesTest {};

TEST_F(PipewireOddCamerasTest, AFormatThatChangesWhileItIsWatchedIsFollowed)
{
    const auto camera = show("YUY2");
    CameraWatcher watcher(*cameras, "squares");
    ASSERT_TRUE(waitForPictures(watcher));
    const std::vector<std::pair<std::string, int>> offers{
        {"MJPG:640x384@30", 640}, {"NV12:1280x768@30", 1280}, {"BGRx:320x192@30", 320}};
    for (const auto& offer : offers) {
        camera->tell("offer " + offer.first);
        EXPECT_TRUE(eventually([&] { return watcher.newest()->width() == offer.second; })) << offer.first;
    }
    EXPECT_EQ(farthest(*watcher.newest()), 0);
    EXPECT_THAT(watcher.losses, IsEmpty());
}

TEST_F(PipewireOddCamerasTest, TheSmallestAndTheLongestPicturesAreShown)
{
    const auto camera = plugIn({.id = "odd", .formats = {"BGRx:1x1@30"}});
    ASSERT_TRUE(eventually([&] { return isListed("odd"); }));
    CameraWatcher watcher(*cameras, "odd");
    ASSERT_TRUE(waitForPictures(watcher));
    struct Offer {
        std::string format;
        int width;
        int height;
    };
    for (const Offer& offer :
         {Offer{"MJPG", 1, 1}, Offer{"BGRx", 8192, 1}, Offer{"MJPG", 1, 8192}, Offer{"BGRx", 1, 1}}) {
        const std::string size = std::to_string(offer.width) + "x" + std::to_string(offer.height);
        camera->tell("offer " + offer.format + ":" + size + "@30");
        EXPECT_TRUE(eventually([&] {
            const auto picture = watcher.newest();
            return picture->width() == offer.width && picture->height() == offer.height;
        })) << offer.format
            << size;
        EXPECT_TRUE(waitForPictures(watcher, 3));
    }
    EXPECT_THAT(watcher.losses, IsEmpty());
}

TEST_F(PipewireOddCamerasTest, ACameraWhosePicturesCannotBeReadIsLostAfterAWhile)
{
    cameras = makeCameras(std::chrono::seconds{2});
    const auto camera = show("MJPG", "scrambled");
    CameraWatcher watcher(*cameras, "squares");
    ASSERT_TRUE(eventually([&] { return !watcher.losses.empty(); }));
    EXPECT_THAT(watcher.losses.front().message, testing::HasSubstr("cannot be read"));
    EXPECT_EQ(watcher.count(), 0);
}

TEST_F(PipewireOddCamerasTest, PicturesFarTooOftenAndWithoutATimeAreShown)
{
    const auto camera = plugIn({.id = "hasty", .formats = {"YUY2:320x192@250"}, .more = {"--fault", "no-time"}});
    ASSERT_TRUE(eventually([&] { return isListed("hasty"); }));
    CameraWatcher watcher(*cameras, "hasty");
    EXPECT_TRUE(camera->waitFor("streaming YUY2:320x192"));
    EXPECT_TRUE(waitForPictures(watcher, 250));
    EXPECT_THAT(watcher.losses, IsEmpty());
}

/// A consumer that is too slow gets the newest picture next, and each only once.
TEST_F(PipewireOddCamerasTest, WhoIsLateGetsTheNewestPicture)
{
    const auto camera = plugIn({.id = "quick", .formats = {"YUY2:320x180@60"}});
    ASSERT_TRUE(eventually([&] { return isListed("quick"); }));
    std::atomic<int> count{0};
    const auto open = cameras->open("quick", {[&count](const auto&) {
                                                  ++count;
                                                  sleepFor(Milliseconds{200});
                                              },
                                              nullptr});
    ASSERT_TRUE(eventually([&] { return count >= 2; }));
    const int before = count;
    sleepFor(Milliseconds{1000});
    EXPECT_LE(count - before, 6) << "pictures were queued";
    EXPECT_GE(count - before, 3);
}

TEST_F(PipewireOddCamerasTest, WhoIsLateDoesNotHoldUpTheEnd)
{
    const auto camera = plugIn({.id = "ending", .formats = {"YUY2:320x180@60"}});
    ASSERT_TRUE(eventually([&] { return isListed("ending"); }));
    std::atomic<int> count{0};
    auto open = cameras->open("ending", {[&count](const auto&) {
                                             ++count;
                                             sleepFor(Milliseconds{200});
                                         },
                                         nullptr});
    ASSERT_TRUE(eventually([&] { return count >= 2; }));
    const auto start = std::chrono::steady_clock::now();
    open.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, Milliseconds{800});
}

} // namespace
} // namespace nimbrale::test
