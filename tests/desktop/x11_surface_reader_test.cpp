// Captured surfaces read into the process, on a thread of the reader's own, against what the server holds.

#include "tests/desktop/layers_test.h"
#include "tests/support/image_compare.h"

#include "platform/x11/surfaces/x11_surface_reader.h"

#include <algorithm>
#include <chrono>

namespace nimbrale::test {
namespace {

QImage imageOf(const SurfaceReader::Picture& picture)
{
    const PixelBuffer& pixels = *picture.pixels;
    QImage image(pixels.width(), pixels.height(), QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y)
        std::memcpy(image.scanLine(y), pixels.row(y), pixels.stride());
    return image;
}

class X11SurfaceReaderTest : public PanelTest {
protected:
    void start(const PrivateDesktop::Options& options = {})
    {
        startDesktop(options);
        reader = std::move(*x11::X11SurfaceReader::create(desktop->displayName()));
    }
    void TearDown() override
    {
        reader.reset();
        pixmap.reset();
        PanelTest::TearDown();
    }

    /// Begins a producer with this picture.
    void begin(const QImage& image)
    {
        content = image;
        changes = {};
        changes.advance({});
        pixmap = host->makePixmap(content);
        host->connection->synchronize();
    }
    void paint(const QRect& rect, const QColor& color)
    {
        QPainter(&content).fillRect(rect, color);
        const xcb_render_picture_t picture = host->connection->newId();
        xcb_render_create_picture(host->connection->get(), picture, pixmap->pixmap(), host->connection->rootFormat(), 0,
                                  nullptr);
        const auto channel = [](int value) { return static_cast<std::uint16_t>(value * 257); };
        const xcb_rectangle_t area{static_cast<std::int16_t>(rect.x()), static_cast<std::int16_t>(rect.y()),
                                   static_cast<std::uint16_t>(rect.width()), static_cast<std::uint16_t>(rect.height())};
        xcb_render_fill_rectangles(host->connection->get(), XCB_RENDER_PICT_OP_SRC, picture,
                                   {channel(color.red()), channel(color.green()), channel(color.blue()), 0xffff}, 1,
                                   &area);
        xcb_render_free_picture(host->connection->get(), picture);
        host->connection->synchronize();
        changes.advance({{rect.x(), rect.y(), rect.width(), rect.height()}});
    }
    [[nodiscard]] x11::X11Surface surface() const { return {pixmap, changes}; }
    [[nodiscard]] QImage expected() const { return desktop->screen().root_depth == 16 ? in16Bits(content) : content; }

    std::unique_ptr<SurfaceReader> reader;
    std::shared_ptr<x11::SharedPixmap> pixmap;
    SurfaceChanges changes;
    QImage content;
};

class X11SurfaceReaderOnServersTest : public X11SurfaceReaderTest, public testing::WithParamInterface<ServerCase> {};

INSTANTIATE_TEST_SUITE_P(, X11SurfaceReaderOnServersTest,
                         testing::Values(ServerCase{"depth24"}, ServerCase{"depth16", 16}, ServerCase{"depth30", 30},
                                         ServerCase{"withoutSharedMemory", 24, {"-extension", "MIT-SHM"}}),
                         serverName);

TEST_P(X11SurfaceReaderOnServersTest, randomChangesAreReadExactlyWhetherPicturesAreSkippedOrNot)
{
    start(GetParam().options());
    begin(noise({97, 61}, 1));
    unsigned random = 7;
    const auto next = [&random](int below) {
        random = random * 1103515245 + 12345;
        return static_cast<int>((random >> 16) % static_cast<unsigned>(below));
    };
    auto first = reader->read(surface());
    ASSERT_TRUE(first);
    EXPECT_TRUE(imagesMatch(imageOf(*first), expected()));
    for (int step = 0; step < 60; ++step) {
        // Up to more pictures at once than their changes are remembered for.
        const int pictures = step % 10 == 9 ? 20 : next(4);
        x11::PixelRegion painted;
        for (int picture = 0; picture < pictures; ++picture) {
            const bool isWide = next(3) == 0;
            const QRect rect = isWide ? QRect(next(10), next(50), 80, 1 + next(10))
                                      : QRect(next(90), next(50), 1 + next(7), 1 + next(10));
            paint(rect, QColor(next(256), next(256), next(256)));
            painted.add(rect.x(), rect.y(), rect.width(), rect.height());
        }
        const auto read = reader->read(surface());
        ASSERT_TRUE(read);
        ASSERT_TRUE(imagesMatch(imageOf(*read), expected())) << "step " << step;
        x11::PixelRegion brought(read->changed);
        if (pictures == 20)
            EXPECT_EQ(brought.bounds(), (PixelRect{0, 0, 97, 61}));
        else
            EXPECT_EQ(brought.rects(), painted.rects());
    }
}

TEST_F(X11SurfaceReaderTest, thePictureReadBeforeBringsNothing)
{
    start();
    begin(noise({40, 30}, 1));
    ASSERT_TRUE(reader->read(surface()));
    const auto again = reader->read(surface());
    ASSERT_TRUE(again);
    EXPECT_TRUE(again->changed.empty());
    EXPECT_TRUE(imagesMatch(imageOf(*again), expected()));
}

TEST_F(X11SurfaceReaderTest, anotherSizeAndAnotherProducerBringEverything)
{
    start();
    for (const QSize& size : {QSize(40, 30), QSize(400, 300), QSize(400, 300), QSize(1, 1), QSize(41, 30)}) {
        begin(noise(size, size.width()));
        const auto read = reader->read(surface());
        ASSERT_TRUE(read);
        EXPECT_EQ(x11::PixelRegion(read->changed).bounds(), (PixelRect{0, 0, size.width(), size.height()}));
        EXPECT_TRUE(imagesMatch(imageOf(*read), expected()));
    }
}

TEST_F(X11SurfaceReaderTest, aPictureThatIsGoneIsAnErrorAndTheNextOneIsReadWhole)
{
    start();
    begin(noise({40, 30}, 1));
    ASSERT_TRUE(reader->read(surface()));
    SurfaceChanges lost = changes;
    lost.advance({{0, 0, 40, 30}});
    const auto nothing = std::make_shared<x11::SharedPixmap>(host->connection->newId(), 40, 30, [](xcb_pixmap_t) {});
    const auto failed = reader->read(x11::X11Surface(nothing, lost));
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.error().code, ErrorCode::temporary);

    paint({1, 1, 2, 2}, Qt::red);
    const auto read = reader->read(surface());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->changed, (std::vector<PixelRect>{{0, 0, 40, 30}}));
    EXPECT_TRUE(imagesMatch(imageOf(*read), expected()));
}

TEST_F(X11SurfaceReaderTest, aServerThatIsGoneIsAnError)
{
    start();
    begin(noise({40, 30}, 1));
    ASSERT_TRUE(reader->read(surface()));
    paint({1, 1, 2, 2}, Qt::red);
    desktop->server().terminate();
    const auto read = reader->read(surface());
    ASSERT_FALSE(read);
    EXPECT_EQ(read.error().code, ErrorCode::permanent);
}

TEST_F(X11SurfaceReaderTest, aChangedBandIsFarCheaperThanTheWholePicture)
{
    start();
    begin(filled({16, 16}, Qt::blue));
    const xcb_pixmap_t large = host->connection->newId();
    xcb_create_pixmap(host->connection->get(), host->connection->screen().root_depth, large, host->connection->root(),
                      1920, 1080);
    pixmap = std::make_shared<x11::SharedPixmap>(
        large, 1920, 1080, [this](xcb_pixmap_t unused) { xcb_free_pixmap(host->connection->get(), unused); });
    paint({0, 0, 1920, 1080}, Qt::green);
    const auto medianOf = [this](const QRect& rect) {
        std::vector<std::chrono::steady_clock::duration> times;
        for (int run = 0; run < 31; ++run) {
            paint(rect, QColor(run, 0, 0));
            const auto begin = std::chrono::steady_clock::now();
            EXPECT_TRUE(reader->read(surface()));
            times.push_back(std::chrono::steady_clock::now() - begin);
        }
        std::nth_element(times.begin(), times.begin() + 15, times.end());
        return std::chrono::duration<double, std::milli>(times[15]).count();
    };
    const double whole = medianOf({0, 0, 1920, 1080});
    const double band = medianOf({0, 500, 1920, 40});
    const double spot = medianOf({100, 500, 200, 40});
    std::printf("1080p whole %.2f ms, band of 40 rows %.2f ms, 200 × 40 pixels %.2f ms\n", whole, band, spot);
    EXPECT_LT(band, whole / 4);
    EXPECT_LT(spot, whole / 4);
}

} // namespace
} // namespace nimbrale::test
