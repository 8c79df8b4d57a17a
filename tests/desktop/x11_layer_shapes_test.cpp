// Shapes, clipping, gravity, mirroring and groups of layers against real X servers, compared with the toolkit's own
// drawing. Where nothing is blended or scaled, pictures are exact.

#include "platform/x11/surfaces/image_uploader.h"
#include "platform/x11/surfaces/surface_pictures.h"
#include "tests/desktop/layers_test.h"
#include "tests/support/image_compare.h"

#include <QPainterPath>

#include <array>
#include <xcb/res.h>

namespace nimbrale::test {
namespace {

using Compositor = PrivateDesktop::Compositor;
using Options = PrivateDesktop::Options;

/// Two ways of blending may round differently, once for the mask and once for the blending.
constexpr ImageTolerance blending{2, 0};

/// The compositing manager rounds once more.
constexpr ImageTolerance composited{3, 0};

/// An image cut to a rounded rectangle with smooth edges.
QImage rounded(const QImage& image, double radius)
{
    QImage cut(image.size(), QImage::Format_ARGB32_Premultiplied);
    cut.fill(Qt::transparent);
    QPainter painter(&cut);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QBrush(image));
    painter.drawRoundedRect(QRectF(image.rect()), radius, radius);
    return cut;
}

int distance(const QColor& left, const QColor& right)
{
    return std::max({std::abs(left.red() - right.red()), std::abs(left.green() - right.green()),
                     std::abs(left.blue() - right.blue())});
}

class X11LayerShapesTest : public LayersTest {
protected:
    /// What the panels' connection has in the server.
    [[nodiscard]] std::uint32_t countOf(const std::string& type)
    {
        xcb_connection_t* const raw = host->connection->get();
        const x11::Reply<xcb_res_query_client_resources_reply_t> reply(xcb_res_query_client_resources_reply(
            raw, xcb_res_query_client_resources(raw, xcb_get_setup(raw)->resource_id_base), nullptr));
        for (auto entry = xcb_res_query_client_resources_types_iterator(reply.get()); entry.rem;
             xcb_res_type_next(&entry)) {
            if (entry.data->resource_type == host->connection->atom(type))
                return entry.data->count;
        }
        return 0;
    }
};

class X11LayerScalesTest : public X11LayerShapesTest, public testing::WithParamInterface<int> {
protected:
    void start()
    {
        Options options;
        options.dotsPerInch = GetParam();
        startDesktop(options);
        scale = GetParam() / 96.0;
    }
    [[nodiscard]] QImage blank(const QColor& colour) const
    {
        return filled(pixelsOf({0, 0, 64, 48}, scale).size(), colour);
    }

    double scale = 1;
};

INSTANTIATE_TEST_SUITE_P(, X11LayerScalesTest, testing::Values(96, 120, 144, 192, 288),
                         [](const auto& parameter) { return "scale" + std::to_string(parameter.param * 100 / 96); });

TEST_P(X11LayerScalesTest, cornersAreSmooth)
{
    start();
    if (IsSkipped())
        return;
    const QColor blue(0, 0, 250);
    const QColor orange(250, 150, 0);
    const auto panel = showOpaque();
    panel->rootLayer().setBackgroundColor(Color{0, 0, blue.blueF(), 1});
    const Rect frame{5, 6, 40, 30};
    const auto layer = addLayer(panel->rootLayer(), frame);
    layer->setBackgroundColor(Color{orange.redF(), orange.greenF(), 0, 1});
    layer->setCornerRadius(9);

    const QRect pixels = pixelsOf(frame, scale);
    QImage expected = blank(blue);
    QPainter(&expected).drawImage(pixels.topLeft(), rounded(filled(pixels.size(), orange), 9 * scale));
    const QImage shown = pictureOf(expected.rect());
    EXPECT_TRUE(imagesMatch(shown, expected, blending));
    int mixed = 0;
    for (int y = 0; y < shown.height(); ++y) {
        for (int x = 0; x < shown.width(); ++x) {
            const QColor pixel = shown.pixelColor(x, y);
            mixed += distance(pixel, blue) > 20 && distance(pixel, orange) > 20 ? 1 : 0;
        }
    }
    EXPECT_GT(mixed, 8) << "the edge is not smooth";
}

TEST_P(X11LayerScalesTest, aCircleShowsAPictureThatFillsIt)
{
    start();
    if (IsSkipped())
        return;
    const auto panel = showOpaque();
    panel->rootLayer().setBackgroundColor(Color{1, 1, 1, 1});
    const Rect frame{4, 4, 40, 40};
    const auto layer = addLayer(panel->rootLayer(), frame);
    layer->setCornerRadius(20);
    layer->setContentsGravity(ContentsGravity::resizeAspectFill);
    layer->setMirrored(true);
    const QRect pixels = pixelsOf(frame, scale);
    // Of the right height, so that nothing is scaled; what sticks out on both sides is cut off.
    const QImage picture = noise({pixels.width() + 20, pixels.height()}, 7);
    for (const bool isCaptured : {true, false}) {
        if (isCaptured)
            layer->setContents(surfaceOf(picture));
        else
            layer->setContents(bufferSurfaceOf(picture));
        QImage expected = blank(Qt::white);
        QPainter(&expected).drawImage(
            pixels.topLeft(),
            rounded(picture.mirrored(true, false).copy(10, 0, pixels.width(), pixels.height()), pixels.width() / 2.0));
        EXPECT_TRUE(imagesMatch(pictureOf(expected.rect()), expected, blending)) << isCaptured;
    }
}

TEST_P(X11LayerScalesTest, clippingToBoundsIsExact)
{
    start();
    if (IsSkipped())
        return;
    const auto panel = showOpaque();
    const Rect frame{10, 8, 30, 20};
    const auto layer = addLayer(panel->rootLayer(), frame);
    layer->setMasksToBounds(true);
    const auto inner = addLayer(*layer, {-5, 10, 20, 30});
    inner->setBackgroundColor(Color{1, 0, 0, 1});

    QImage expected = blank(Qt::black);
    const QRect visible = pixelsOf(frame, scale) & pixelsOf({5, 18, 20, 30}, scale);
    QPainter(&expected).fillRect(visible, Qt::red);
    EXPECT_TRUE(imagesMatch(pictureOf(expected.rect()), expected));

    layer->setMasksToBounds(false);
    QPainter(&expected).fillRect(pixelsOf({5, 18, 20, 30}, scale), Qt::red);
    EXPECT_TRUE(imagesMatch(pictureOf(expected.rect()), expected));
}

TEST_F(X11LayerShapesTest, mirroringIsExactForBothKindsOfSurface)
{
    startDesktop({});
    if (IsSkipped())
        return;
    const auto panel = showOpaque();
    const auto layer = addLayer(panel->rootLayer(), {0, 0, 64, 48});
    const QImage picture = noise({64, 48}, 5);
    layer->setMirrored(true);
    layer->setContents(surfaceOf(picture));
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), picture.mirrored(true, false)));
    layer->setContents(bufferSurfaceOf(picture));
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), picture.mirrored(true, false)));
    layer->setMirrored(false);
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), picture));
}

TEST_F(X11LayerShapesTest, aFadedGroupIsBlendedOnce)
{
    startDesktop({});
    if (IsSkipped())
        return;
    const QColor behind(200, 220, 240);
    const auto panel = showOpaque();
    const auto desktopLayer = addLayer(panel->rootLayer(), {0, 0, 64, 48});
    desktopLayer->setContents(surfaceOf(filled({64, 48}, behind)));
    const auto group = addLayer(panel->rootLayer(), {8, 8, 40, 30});
    group->setBackgroundColor(Color{0, 0, 0, 1});
    group->setOpacity(0.2);
    const QImage picture = filled({20, 30}, QColor(250, 100, 0));
    addLayer(*group, {0, 0, 20, 30})->setContents(bufferSurfaceOf(picture));

    QImage inner = filled({40, 30}, Qt::black);
    QPainter(&inner).drawImage(0, 0, picture);
    QImage expected = filled({64, 48}, behind);
    QPainter painter(&expected);
    painter.setOpacity(0.2);
    painter.drawImage(8, 8, inner);
    painter.end();
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), expected, {1, 0}));

    // Fading each for itself would be seen here.
    QImage twice = filled({64, 48}, behind);
    QPainter wrong(&twice);
    wrong.setOpacity(0.2);
    wrong.fillRect(8, 8, 40, 30, Qt::black);
    wrong.drawImage(8, 8, picture);
    wrong.end();
    EXPECT_FALSE(imagesAreAlike(twice, expected, {10, 0}));
}

TEST_F(X11LayerShapesTest, opaquePicturesHideAndPremultipliedOnesBlend)
{
    startDesktop({});
    if (IsSkipped())
        return;
    const QColor behind(200, 220, 240);
    const auto panel = showOpaque();
    panel->rootLayer().setBackgroundColor(Color{behind.redF(), behind.greenF(), behind.blueF(), 1});
    const auto layer = addLayer(panel->rootLayer(), {0, 0, 64, 48});
    QImage picture(64, 48, QImage::Format_ARGB32_Premultiplied);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    painter.fillRect(0, 0, 20, 48, QColor(255, 0, 0));
    painter.fillRect(20, 0, 20, 48, QColor(0, 0, 255, 100));
    painter.end();
    layer->setContents(bufferSurfaceOf(picture));
    QImage expected = filled({64, 48}, behind);
    QPainter(&expected).drawImage(0, 0, picture);
    const QImage shown = pictureOf({0, 0, 64, 48});
    EXPECT_TRUE(imagesMatch(shown, expected, {1, 0}));
    EXPECT_EQ(shown.pixelColor(10, 10), QColor(255, 0, 0));
    EXPECT_EQ(shown.pixelColor(50, 10), behind);

    // The fourth channel of an opaque picture says nothing.
    QImage opaque = noise({64, 48}, 9);
    for (int y = 0; y < 48; ++y) {
        for (int x = 0; x < 64; ++x)
            reinterpret_cast<QRgb*>(opaque.scanLine(y))[x] &= 0x00ffffff;
    }
    layer->setContents(bufferSurfaceOf(opaque));
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), noise({64, 48}, 9)));
}

TEST_F(X11LayerShapesTest, aPictureMadeMuchSmallerPassesOverNoPixel)
{
    startDesktop({});
    if (IsSkipped())
        return;
    // One column in four is white: taking some pixels only would show black, white or stripes.
    QImage columns(512, 384, QImage::Format_RGB32);
    for (int y = 0; y < columns.height(); ++y) {
        for (int x = 0; x < columns.width(); ++x)
            columns.setPixel(x, y, x % 8 < 2 ? 0xffffffff : 0xff000000);
    }
    const auto panel = showOpaque();
    const auto layer = addLayer(panel->rootLayer(), {0, 0, 64, 48});
    layer->setContents(bufferSurfaceOf(columns));
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), filled({64, 48}, QColor(64, 64, 64)), {2, 0}));
    QImage half(64, 48, QImage::Format_RGB32);
    for (int y = 0; y < half.height(); ++y) {
        for (int x = 0; x < half.width(); ++x)
            half.setPixelColor(x, y, x % 2 == 0 ? QColor(128, 128, 128) : QColor(0, 0, 0));
    }
    const auto storage = host->makePixmap(columns.copy(0, 0, 256, 192));
    SurfaceChanges changes;
    changes.advance({});
    layer->setContents(std::make_shared<x11::X11Surface>(storage, changes, x11::SyncPoint{}));
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), half, {1, 0}));
    host->paintPixmap(storage->pixmap(), columns.copy(4, 0, 256, 192));
    changes.advance({{0, 0, 256, 192}});
    layer->setContents(std::make_shared<x11::X11Surface>(storage, changes, x11::SyncPoint{}));
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), half.mirrored(true, false), {1, 0}))
        << "the next picture in the same storage";
    layer->setMirrored(true);
    layer->setContents(bufferSurfaceOf(columns));
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), filled({64, 48}, QColor(64, 64, 64)), {2, 0}));
}

TEST_F(X11LayerShapesTest, whatIsDrawnPieceByPieceIsWhatIsDrawnAtOnce)
{
    startDesktop({});
    if (IsSkipped())
        return;
    const auto panel = showOpaque();
    panel->rootLayer().setBackgroundColor(Color{0.2, 0.4, 0.6, 1});
    const auto group = addLayer(panel->rootLayer(), {3, 2, 55, 44});
    group->setMasksToBounds(true);
    group->setCornerRadius(14);
    group->setOpacity(0.7);
    group->setBackgroundColor(Color{0, 0, 0, 1});
    const auto layer = addLayer(*group, {-3, -2, 61, 47});
    layer->setContentsGravity(ContentsGravity::resizeAspectFill);
    QImage picture = noise({50, 37}, 1);
    const auto storage = host->makePixmap(picture);
    SurfaceChanges changes;
    changes.advance({});
    layer->setContents(std::make_shared<x11::X11Surface>(storage, changes, x11::SyncPoint{}));
    host->pump();
    unsigned random = 1;
    const auto next = [&random](unsigned below) {
        random = random * 1103515245 + 12345;
        return static_cast<int>((random >> 16) % below);
    };
    for (int step = 0; step < 60; ++step) {
        layer->setMirrored(step / 20 == 1);
        const QRect changed(next(45), next(32), 1 + next(5), 1 + next(5));
        QPainter(&picture).fillRect(changed, QColor(next(256), next(256), next(256)));
        host->paintPixmap(storage->pixmap(), picture);
        changes.advance({{changed.x(), changed.y(), changed.width(), changed.height()}});
        layer->setContents(std::make_shared<x11::X11Surface>(storage, changes, x11::SyncPoint{}));
        host->pump();
    }
    const QImage pieceByPiece = pictureOf({0, 0, 64, 48});
    panel->rootLayer().setNeedsDisplay({0, 0, 64, 48});
    EXPECT_TRUE(imagesMatch(pieceByPiece, pictureOf({0, 0, 64, 48})));
}

TEST_F(X11LayerShapesTest, anOpaquePictureIsCopiedAndNothingElse)
{
    startDesktop({});
    if (IsSkipped())
        return;
    const auto panel = showOpaque();
    panel->rootLayer().setBackgroundColor(Color{0, 0, 0, 1});
    const auto layer = addLayer(panel->rootLayer(), {0, 0, 64, 48});
    const auto storage = host->makePixmap(noise({64, 48}, 1));
    SurfaceChanges changes;
    changes.advance({});
    layer->setContents(std::make_shared<x11::X11Surface>(storage, changes, x11::SyncPoint{}));
    host->pump();
    const auto requestsFor = [&](const PixelRect& changed) {
        changes.advance({changed});
        const unsigned before = xcb_no_operation(host->connection->get()).sequence;
        {
            const LayerTransaction transaction(*layer);
            layer->setContents(std::make_shared<x11::X11Surface>(storage, changes, x11::SyncPoint{}));
        }
        return xcb_no_operation(host->connection->get()).sequence - before - 1;
    };
    EXPECT_EQ(requestsFor({0, 0, 64, 48}), 2) << "the copy, and a mark for exposures";
    EXPECT_EQ(requestsFor({10, 10, 5, 5}), 2);
    layer->setCornerRadius(3);
    host->pump();
    EXPECT_GT(requestsFor({10, 10, 5, 5}), 2);
}

TEST_F(X11LayerShapesTest, aPictureIsBroughtOnceForAsLongAsItIsShown)
{
    startDesktop({});
    if (IsSkipped())
        return;
    x11::ImageUploader uploader(*host->connection);
    x11::SurfacePictures pictures(*host->connection, uploader);
    const auto requestsFor = [&](const Surface& surface) {
        const unsigned before = xcb_no_operation(host->connection->get()).sequence;
        EXPECT_NE(pictures.pixmap(surface).id, XCB_NONE);
        return xcb_no_operation(host->connection->get()).sequence - before - 1;
    };
    const auto surface = bufferSurfaceOf(noise({64, 48}, 1));
    const int user = 0;
    const int otherUser = 0;
    pictures.setShown(&user, {surface->storage()});
    pictures.setShown(&otherUser, {surface->storage()});
    EXPECT_GT(requestsFor(*surface), 0);
    EXPECT_EQ(requestsFor(*surface), 0);
    pictures.setShown(&user, {});
    EXPECT_EQ(requestsFor(*surface), 0) << "the other one still shows it";
    const auto another = bufferSurfaceOf(noise({64, 48}, 2));
    EXPECT_GT(requestsFor(*another), 0) << "no other surface is taken for it";
}

TEST_F(X11LayerShapesTest, twoPanelsShowAPictureThatIsBroughtOnce)
{
    startDesktop({});
    if (IsSkipped())
        return;
    const auto first = host->makePanel({0, 0, 64, 48}, PanelStyle::fullScreen);
    const auto second = host->makePanel({100, 0, 64, 48}, PanelStyle::fullScreen);
    std::array layers{addLayer(first->rootLayer(), {0, 0, 64, 48}), addLayer(second->rootLayer(), {0, 0, 64, 48})};
    first->orderFront();
    second->orderFront();
    host->pump();
    const std::uint32_t before = countOf("PIXMAP");

    BufferSurfacePool pool;
    for (int frame = 0; frame < 6; ++frame) {
        const QImage picture = noise({64, 48}, frame);
        auto canvas = pool.take(64, 48);
        for (int y = 0; y < 48; ++y)
            std::memcpy(canvas.pixels().row(y), picture.constScanLine(y), canvas.pixels().stride());
        const auto surface = BufferSurfacePool::finish(std::move(canvas), SurfaceAlpha::opaque);
        for (const auto& layer : layers)
            layer->setContents(surface);
        EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), picture));
        EXPECT_TRUE(imagesMatch(pictureOf({100, 0, 64, 48}), picture));
        EXPECT_LE(countOf("PIXMAP"), before + 2) << "the one that is shown, and the one for the next picture";
        EXPECT_GE(countOf("PIXMAP"), before + 1);
    }
    for (const auto& layer : layers)
        layer->setContents(nullptr);
    EXPECT_TRUE(host->pumpUntil([&] { return countOf("PIXMAP") == before; }, Milliseconds{8000}));
}

TEST_F(X11LayerShapesTest, whatDrawingTookIsGivenBackAWhileAfter)
{
    startDesktop({});
    if (IsSkipped())
        return;
    const auto panel = showOpaque();
    host->pump();
    const std::uint32_t pixmaps = countOf("PIXMAP");
    const std::uint32_t pictures = countOf("PICTURE");
    const auto layer = addLayer(panel->rootLayer(), {0, 0, 64, 48});
    layer->setBackgroundColor(Color{1, 0, 0, 1});
    const auto inner = addLayer(*layer, {0, 0, 30, 30});
    inner->setBackgroundColor(Color{0, 1, 0, 1});
    inner->setCornerRadius(4);
    for (int step = 0; step < 40; ++step) {
        layer->setOpacity(0.2 + step * 0.01);
        layer->setCornerRadius(step / 4.0);
        layer->setMasksToBounds(true);
        host->pump();
    }
    EXPECT_GT(countOf("PIXMAP"), pixmaps);
    EXPECT_LE(countOf("PIXMAP"), pixmaps + 12) << "masks and scratch pixmaps pile up";
    EXPECT_TRUE(host->pumpUntil([&] { return countOf("PIXMAP") == pixmaps; }, Milliseconds{8000}));
    EXPECT_EQ(countOf("PICTURE"), pictures);
}

/// The application's queue, with a count of what is posted.
class CountingQueue final : public MainQueue {
public:
    void post(std::function<void()> work) override
    {
        ++posts;
        queue_.post(std::move(work));
    }
    void postAfter(std::chrono::nanoseconds delay, std::function<void()> work) override
    {
        queue_.postAfter(delay, std::move(work));
    }
    [[nodiscard]] std::unique_ptr<Timer> schedule(std::chrono::nanoseconds delay, std::function<void()> work) override
    {
        return queue_.schedule(delay, std::move(work));
    }
    [[nodiscard]] std::unique_ptr<Timer> scheduleRepeating(std::chrono::nanoseconds interval,
                                                           std::function<void()> work) override
    {
        return queue_.scheduleRepeating(interval, std::move(work));
    }

    int posts = 0;

private:
    QtMainQueue queue_;
};

TEST_F(X11LayerShapesTest, aTransactionPostsNothing)
{
    startDesktop({});
    if (IsSkipped())
        return;
    CountingQueue queue;
    x11::X11Panels panels(*host->connection, *host->events, *host->screens, queue);
    PanelOptions options;
    options.style = PanelStyle::fullScreen;
    options.frame = host->onScreen({0, 0, 64, 48});
    const auto panel = panels.create(options);
    panel->orderFront();
    host->pump();
    const auto layer = addLayer(panel->rootLayer(), {0, 0, 64, 48});
    int layouts = 0;
    layer->onLayout = [&] {
        ++layouts;
        layer->setBackgroundColor(Color{0, 1, 0, 1});
    };
    host->pump();
    queue.posts = 0;
    layouts = 0;

    for (int frame = 0; frame < 10; ++frame) {
        const LayerTransaction transaction(*layer);
        layer->setContents(bufferSurfaceOf(noise({64, 48}, frame)));
        layer->setNeedsLayout();
    }
    EXPECT_EQ(queue.posts, 0);
    EXPECT_EQ(layouts, 10);
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), noise({64, 48}, 9)));

    // Outside of one, several changes share a post.
    layer->setContents(nullptr);
    layer->setNeedsLayout();
    EXPECT_EQ(queue.posts, 1);
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), filled({64, 48}, Qt::green)));
    EXPECT_EQ(queue.posts, 1) << "the layout in the commit needs no further one";
}

/// The overlay of a desktop without compositing manager: its window has the layers' shape.
class X11CutOutTest : public X11LayerShapesTest {
protected:
    [[nodiscard]] std::unique_ptr<Panel> showOverlay()
    {
        auto panel = host->makePanel({0, 0, 64, 48});
        panel->orderFront();
        return panel;
    }
    /// What is there of a circle in a square: pixels farther than one from its edge are.
    static void expectCircle(const QImage& shown, const QRect& square, const QColor& inside, const QColor& outside)
    {
        const double radius = square.width() / 2.0;
        for (int y = 0; y < square.height(); ++y) {
            for (int x = 0; x < square.width(); ++x) {
                const double fromCentre = std::hypot(x + 0.5 - radius, y + 0.5 - radius);
                if (std::abs(fromCentre - radius) < 1)
                    continue;
                ASSERT_EQ(shown.pixelColor(square.x() + x, square.y() + y), fromCentre < radius ? inside : outside)
                    << x << ", " << y;
            }
        }
    }
};

TEST_F(X11CutOutTest, aCircleIsCutAsSpans)
{
    startDesktop({});
    if (IsSkipped())
        return;
    const auto panel = showOverlay();
    const auto layer = addLayer(panel->rootLayer(), {4, 4, 40, 40});
    layer->setCornerRadius(20);
    const QColor colour(250, 150, 0);
    layer->setBackgroundColor(Color{colour.redF(), colour.greenF(), 0, 1});
    expectCircle(pictureOf({0, 0, 64, 48}), {4, 4, 40, 40}, colour, background);

    layer->setBackgroundColor(std::nullopt);
    layer->setContents(bufferSurfaceOf(filled({80, 40}, Qt::cyan)));
    expectCircle(pictureOf({0, 0, 64, 48}), {4, 4, 40, 40}, Qt::cyan, background);

    layer->setContents(surfaceOf(filled({80, 40}, Qt::magenta)));
    expectCircle(pictureOf({0, 0, 64, 48}), {4, 4, 40, 40}, Qt::magenta, background);
}

TEST_F(X11CutOutTest, aWebcamLikeGroupIsCutAsOne)
{
    startDesktop({});
    if (IsSkipped())
        return;
    const auto panel = showOverlay();
    const auto layer = addLayer(panel->rootLayer(), {4, 4, 40, 40});
    layer->setCornerRadius(20);
    layer->setMasksToBounds(true);
    layer->setBackgroundColor(Color{0, 0, 0, 1});
    const auto picture = addLayer(*layer, {0, 0, 40, 40});
    picture->setContents(bufferSurfaceOf(filled({80, 40}, Qt::cyan)));
    expectCircle(pictureOf({0, 0, 64, 48}), {4, 4, 40, 40}, Qt::cyan, background);
    picture->setContents(surfaceOf(filled({80, 40}, Qt::magenta)));
    expectCircle(pictureOf({0, 0, 64, 48}), {4, 4, 40, 40}, Qt::magenta, background);
    picture->setContents(nullptr);
    expectCircle(pictureOf({0, 0, 64, 48}), {4, 4, 40, 40}, Qt::black, background);
}

TEST_F(X11CutOutTest, whatIsFadedBelowHalfIsGoneAndComesBack)
{
    startDesktop({});
    if (IsSkipped())
        return;
    const auto panel = showOverlay();
    const auto layer = addLayer(panel->rootLayer(), {4, 4, 40, 40});
    layer->setBackgroundColor(Color{0, 0, 0, 1});
    const auto controls = addLayer(panel->rootLayer(), {10, 10, 5, 5});
    controls->setBackgroundColor(Color{1, 0, 0, 1});
    for (const bool isCaptured : {false, true}) {
        const auto picture = addLayer(*layer, {0, 0, 40, 40});
        if (isCaptured)
            picture->setContents(surfaceOf(filled({40, 40}, Qt::cyan)));
        else
            picture->setContents(bufferSurfaceOf(filled({40, 40}, Qt::cyan)));
        layer->setOpacity(1);
        QImage expected = filled({64, 48}, background);
        QPainter(&expected).fillRect(4, 4, 40, 40, Qt::cyan);
        QPainter(&expected).fillRect(10, 10, 5, 5, Qt::red);
        EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), expected));
        layer->setOpacity(0.2);
        expected.fill(background);
        QPainter(&expected).fillRect(10, 10, 5, 5, Qt::red);
        EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), expected));
        layer->setOpacity(0.6);
        QPainter(&expected).fillRect(4, 4, 40, 40, Qt::cyan);
        QPainter(&expected).fillRect(10, 10, 5, 5, Qt::red);
        EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), expected, {2, 0}));
        picture->removeFromSuperlayer();
    }
}

TEST_F(X11CutOutTest, aPictureWithoutBackgroundIsCutAlongItsAlpha)
{
    startDesktop({});
    if (IsSkipped())
        return;
    const auto panel = showOverlay();
    const auto layer = addLayer(panel->rootLayer(), {4, 4, 40, 40});
    layer->setMirrored(true);
    QImage person(40, 40, QImage::Format_ARGB32_Premultiplied);
    person.fill(Qt::transparent);
    QPainter painter(&person);
    painter.fillRect(0, 10, 10, 30, Qt::green);
    painter.fillRect(10, 10, 5, 30, QColor(0, 255, 0, 100));
    painter.end();
    layer->setContents(bufferSurfaceOf(person));
    QImage expected = filled({64, 48}, background);
    QPainter(&expected).fillRect(34, 14, 10, 30, Qt::green);
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), expected));
}

TEST_F(X11LayerShapesTest, overACompositedDesktopAFadedCircleIsBlendedOnceAndSmoothly)
{
    Options options;
    options.compositor = Compositor::picom;
    startDesktop(options);
    if (IsSkipped())
        return;
    // Compositing managers take a plain colour of the root for no background at all.
    xcb_connection_t* const raw = desktop->connection();
    const xcb_window_t backdrop = xcb_generate_id(raw);
    const std::uint32_t values[] = {background.rgb() & 0xffffff, 1};
    xcb_create_window(raw, XCB_COPY_FROM_PARENT, backdrop, desktop->screen().root, 0, 0, 1280, 720, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT,
                      values);
    xcb_map_window(raw, backdrop);
    desktop->synchronize();
    const auto panel = host->makePanel({0, 0, 64, 48});
    panel->orderFront();
    const auto layer = addLayer(panel->rootLayer(), {4, 4, 40, 40});
    layer->setCornerRadius(20);
    layer->setMasksToBounds(true);
    layer->setBackgroundColor(Color{0, 0, 0, 1});
    const auto half = addLayer(*layer, {0, 0, 20, 40});
    const auto control = addLayer(panel->rootLayer(), {50, 2, 10, 10});
    control->setBackgroundColor(Color{1, 0, 0, 1});
    QImage inner = filled({40, 40}, Qt::black);
    QPainter(&inner).fillRect(0, 0, 20, 40, Qt::cyan);
    for (const bool isCaptured : {false, true}) {
        if (isCaptured)
            half->setContents(surfaceOf(filled({20, 40}, Qt::cyan)));
        else
            half->setContents(bufferSurfaceOf(filled({20, 40}, Qt::cyan)));
        for (const double opacity : {1.0, 0.2}) {
            layer->setOpacity(opacity);
            QImage expected = filled({64, 48}, background);
            QPainter painter(&expected);
            painter.fillRect(50, 2, 10, 10, Qt::red);
            painter.setOpacity(opacity);
            painter.drawImage(4, 4, rounded(inner, 20));
            painter.end();
            static_cast<void>(host->pumpUntil([&] {
                return imagesAreAlike(desktop->screenshot({0, 0, 64, 48}), expected, composited);
            }));
            EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), expected, composited))
                << opacity << (isCaptured ? " captured" : " made");
        }
    }
}

} // namespace
} // namespace nimbrale::test
