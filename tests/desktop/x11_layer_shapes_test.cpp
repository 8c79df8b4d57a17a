// Shapes, clipping, gravity, mirroring and groups of layers against real X servers, compared with the toolkit's own
// drawing. Where nothing is blended or scaled, pictures are exact.

#include "tests/desktop/layer_shapes_test.h"

namespace nimbrale::test {
namespace {

using Options = PrivateDesktop::Options;

int distance(const QColor& left, const QColor& right)
{
    return std::max({std::abs(left.red() - right.red()), std::abs(left.green() - right.green()),
                     std::abs(left.blue() - right.blue())});
}

class X11LayerScalesTest : public X11LayerShapesTest, public testing::WithParamInterface<int> {
protected:
    void start()
    {
        Options options;
        options.dotsPerInch = GetParam();
        startDesktop(options);
        scale = GetParam() / 96.0;
    }
    [[nodiscard]] QImage blank(const QColor& color) const
    {
        return filled(pixelsOf({0, 0, 64, 48}, scale).size(), color);
    }

    double scale = 1;
};

INSTANTIATE_TEST_SUITE_P(, X11LayerScalesTest, testing::Values(96, 120, 144, 192, 288),
                         [](const auto& parameter) { return "scale" + std::to_string(parameter.param * 100 / 96); });

TEST_P(X11LayerScalesTest, cornersAreSmooth)
{
    start();
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
    layer->setContents(std::make_shared<x11::X11Surface>(storage, changes));
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), half, {1, 0}));
    host->paintPixmap(storage->pixmap(), columns.copy(4, 0, 256, 192));
    changes.advance({{0, 0, 256, 192}});
    layer->setContents(std::make_shared<x11::X11Surface>(storage, changes));
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), half.mirrored(true, false), {1, 0}))
        << "the next picture in the same storage";
    layer->setMirrored(true);
    layer->setContents(bufferSurfaceOf(columns));
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), filled({64, 48}, QColor(64, 64, 64)), {2, 0}));
}

TEST_F(X11LayerShapesTest, whatIsDrawnPieceByPieceIsWhatIsDrawnAtOnce)
{
    startDesktop({});
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
    layer->setContents(std::make_shared<x11::X11Surface>(storage, changes));
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
        layer->setContents(std::make_shared<x11::X11Surface>(storage, changes));
        host->pump();
    }
    const QImage pieceByPiece = pictureOf({0, 0, 64, 48});
    panel->rootLayer().setNeedsDisplay({0, 0, 64, 48});
    EXPECT_TRUE(imagesMatch(pieceByPiece, pictureOf({0, 0, 64, 48})));
}

} // namespace
} // namespace nimbrale::test
