// Layer trees against real X servers: surfaces, paintings and colors, drawn exactly and no more than is needed.

#include "tests/desktop/layers_test.h"
#include "tests/support/image_compare.h"
#include "tests/support/scene.h"

#include <array>
#include <xcb/xcbext.h>

namespace nimbrale::test {
namespace {

using Options = PrivateDesktop::Options;

class X11LayersTest : public LayersTest {};

TEST_F(X11LayersTest, aSurfaceOfTheSameSizeIsShownPixelByPixelAndTheRestIsBlack)
{
    startDesktop({});
    const QImage picture = noise({40, 30}, 1);
    const auto panel = showOpaque();
    const auto layer = addLayer(panel->rootLayer(), {-10, 5, 40, 30});
    layer->setContents(surfaceOf(picture));

    QImage expected = filled({64, 48}, Qt::black);
    QPainter(&expected).drawImage(-10, 5, picture);
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), expected));

    layer->setFrame({20, 10, 40, 30});
    expected.fill(Qt::black);
    QPainter(&expected).drawImage(20, 10, picture);
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), expected));
}

TEST_F(X11LayersTest, aSurfaceOfTwoPixelsAPointIsExactAtScaleTwo)
{
    Options options;
    options.dotsPerInch = 192;
    startDesktop(options);
    const QImage picture = noise({128, 96}, 2);
    const auto panel = showOpaque();
    addLayer(panel->rootLayer(), {0, 0, 64, 48})->setContents(surfaceOf(picture));
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 128, 96}), picture));
}

TEST_F(X11LayersTest, aSurfaceIsStretchedToTheLayerUpToItsEdges)
{
    startDesktop({});
    QImage halves = filled({16, 12}, Qt::red);
    QPainter(&halves).fillRect(8, 0, 8, 12, Qt::blue);
    const auto panel = showOpaque();
    addLayer(panel->rootLayer(), {0, 0, 64, 48})->setContents(surfaceOf(halves));
    const QImage shown = pictureOf({0, 0, 64, 48});
    for (const auto& [x, y, color] : std::array<std::tuple<int, int, QColor>, 6>{{{0, 0, Qt::red},
                                                                                  {0, 47, Qt::red},
                                                                                  {28, 20, Qt::red},
                                                                                  {35, 20, Qt::blue},
                                                                                  {63, 0, Qt::blue},
                                                                                  {63, 47, Qt::blue}}})
        EXPECT_EQ(shown.pixelColor(x, y), color) << x << ", " << y;
    // In between the two are mixed.
    EXPECT_GT(shown.pixelColor(31, 20).blue(), 0);
    EXPECT_GT(shown.pixelColor(32, 20).red(), 0);
}

TEST_F(X11LayersTest, onlyWhatTheNextPictureCallsChangedIsDrawn)
{
    startDesktop({});
    const auto panel = showOpaque();
    const auto layer = addLayer(panel->rootLayer(), {0, 0, 64, 48});
    const auto storage = host->makePixmap(filled({64, 48}, Qt::red));
    SurfaceChanges changes;
    changes.advance({});
    layer->setContents(std::make_shared<x11::X11Surface>(storage, changes));
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), filled({64, 48}, Qt::red)));

    host->paintPixmap(storage->pixmap(), filled({64, 48}, Qt::green));
    changes.advance({{10, 10, 5, 5}, {40, 20, 8, 1}});
    layer->setContents(std::make_shared<x11::X11Surface>(storage, changes));
    QImage expected = filled({64, 48}, Qt::red);
    QPainter painter(&expected);
    painter.fillRect(10, 10, 5, 5, Qt::green);
    painter.fillRect(40, 20, 8, 1, Qt::green);
    painter.end();
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), expected));
}

TEST_F(X11LayersTest, layersStandByTheirPositionAndBlendByTheirOpacity)
{
    startDesktop({});
    const auto panel = showOpaque();
    const auto front = addLayer(panel->rootLayer(), {10, 10, 20, 20});
    front->setZPosition(1);
    front->setContents(surfaceOf(filled({20, 20}, QColor(200, 100, 50))));
    front->setOpacity(0.2);
    const auto back = addLayer(panel->rootLayer(), {0, 0, 64, 48});
    back->setContents(surfaceOf(filled({64, 48}, QColor(0, 0, 250))));
    const auto painted = addLayer(panel->rootLayer(), {40, 30, 10, 10});
    painted->setZPosition(2);
    PaintedRects{{{{0, 0, 4, 4}, Qt::white}, {{4, 4, 4, 4}, QColor(255, 0, 0, 128)}}}.applyTo(*painted);

    QImage expected = filled({64, 48}, QColor(0, 0, 250));
    QPainter painter(&expected);
    painter.setOpacity(0.2);
    painter.fillRect(10, 10, 20, 20, QColor(200, 100, 50));
    painter.setOpacity(1);
    painter.fillRect(40, 30, 4, 4, Qt::white);
    painter.fillRect(44, 34, 4, 4, QColor(255, 0, 0, 128));
    painter.end();
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), expected, {1, 0})) << "but for the rounding of the blending";

    front->setOpacity(1);
    front->setZPosition(-1);
    painted->removeFromSuperlayer();
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), filled({64, 48}, QColor(0, 0, 250))));
    back->setHidden(true);
    expected.fill(Qt::black);
    QPainter(&expected).fillRect(10, 10, 20, 20, QColor(200, 100, 50));
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), expected));
}

TEST_F(X11LayersTest, aTransactionDrawsWhenItEnds)
{
    startDesktop({});
    const auto panel = showOpaque();
    {
        const LayerTransaction transaction(panel->rootLayer());
        panel->rootLayer().setBackgroundColor(Color{1, 0, 0, 1});
        panel->rootLayer().setBackgroundColor(Color{0, 0, 1, 1});
    }
    host->connection->synchronize();
    EXPECT_EQ(desktop->pixel(30, 30), QColor(Qt::blue));
}

TEST_F(X11LayersTest, onlyCoveredRectanglesArePaintedAndWhatIsGivenUpIsOpenAgain)
{
    startDesktop({});
    const auto panel = host->makePanel({0, 0, 1280, 720});
    Layer& layer = panel->rootLayer();
    std::vector<Rect> painted;
    layer.setPainter([&](QPainter& painter, const Rect& dirty) {
        painted.push_back(dirty);
        painter.fillRect(QRectF(dirty.x, dirty.y, dirty.width, dirty.height), Qt::green);
    });
    layer.setCoverage({{10, 10, 100, 5}, {300, 300, 20, 20}});
    panel->orderFront();
    EXPECT_EQ(painted, (std::vector<Rect>{{10, 10, 100, 5}, {300, 300, 20, 20}}));
    painted.clear();

    layer.setCoverage({{14, 10, 100, 5}, {300, 300, 20, 20}});
    layer.setNeedsDisplay({10, 10, 100, 5});
    layer.setNeedsDisplay({14, 10, 100, 5});
    QImage expected = filled({400, 400}, background);
    QPainter painter(&expected);
    painter.fillRect(14, 10, 100, 5, Qt::green);
    painter.fillRect(300, 300, 20, 20, Qt::green);
    painter.end();
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 400, 400}), expected));
    EXPECT_EQ(painted, (std::vector<Rect>{{14, 10, 100, 5}}));
}

/// Dots per inch: 96 is scale 1.
class X11LayersAtScalesTest : public X11LayersTest, public testing::WithParamInterface<int> {
protected:
    void start()
    {
        Options options;
        options.dotsPerInch = GetParam();
        startDesktop(options);
    }

    const double scale = GetParam() / 96.0;
};

INSTANTIATE_TEST_SUITE_P(, X11LayersAtScalesTest, testing::Values(96, 120, 144, 168),
                         [](const auto& parameter) { return "scale" + std::to_string(parameter.param * 100 / 96); });

TEST_P(X11LayersAtScalesTest, aSurfaceOfTheDisplaysPixelsIsExact)
{
    start();
    const QRect pixels = pixelsOf({0, 0, 64, 48}, scale);
    const QImage picture = noise(pixels.size(), 4);
    const auto panel = showOpaque();
    EXPECT_EQ(panel->backingScaleFactor(), scale);
    const auto layer = addLayer(panel->rootLayer(), {0, 0, 64, 48});
    layer->setContents(surfaceOf(picture));
    EXPECT_TRUE(imagesMatch(pictureOf(pixels), picture));
    layer->setContents(bufferSurfaceOf(picture.mirrored()));
    EXPECT_TRUE(imagesMatch(pictureOf(pixels), picture.mirrored()));
}

TEST_P(X11LayersAtScalesTest, guidesAtFractionalPlacesAreSmoothAndLeaveNothingBehindWhenTheyMove)
{
    start();
    const auto panel = showOpaque();
    const auto guide = addLayer(panel->rootLayer(), {0, 0, 64, 48});
    Rect line;
    const auto paint = [&line](QPainter& painter) {
        painter.setRenderHint(QPainter::Antialiasing);
        painter.fillRect(QRectF(line.x, line.y, line.width, line.height), Qt::green);
    };
    guide->setPainter([&paint](QPainter& painter, const Rect&) { paint(painter); });
    for (const double x : {10.0, 10.4, 21.3, 33.333, 5.1}) {
        host->pump();
        // Only the old place and the new one are drawn anew.
        guide->setNeedsDisplay(line);
        line = {x, 3.2, 1, 40.5};
        guide->setCoverage({line});
        guide->setNeedsDisplay(line);

        QImage expected = filled(pixelsOf({0, 0, 64, 48}, scale).size(), Qt::black);
        QPainter painter(&expected);
        painter.scale(scale, scale);
        paint(painter);
        painter.end();
        EXPECT_TRUE(imagesMatch(pictureOf(expected.rect()), expected, {1, 0}))
            << x << ", but for the blending's rounding";
    }
}

/// Root windows of fewer and of more bits than the usual, and servers without shared memory or large requests.
class X11LayersOnServersTest : public X11LayersTest, public testing::WithParamInterface<ServerCase> {};

TEST_P(X11LayersOnServersTest, surfacesAndPaintingsAreShown)
{
    startDesktop(GetParam().options());
    const auto panel = host->makePanel({0, 0, 400, 300}, PanelStyle::fullScreen);
    panel->orderFront();
    const QImage picture = noise({40, 30}, 3);
    const auto surface = surfaceOf(picture);
    addLayer(panel->rootLayer(), {20, 10, 40, 30})->setContents(surface);
    const QImage made = noise({40, 30}, 8);
    addLayer(panel->rootLayer(), {60, 10, 40, 30})->setContents(bufferSurfaceOf(made));
    const auto painting = addLayer(panel->rootLayer(), {0, 100, 400, 200});
    PaintedRects{{{{0, 0, 400, 200}, QColor(250, 20, 10)}}}.applyTo(*painting);

    const auto kept = [this](const QImage& image) {
        return desktop->screen().root_depth == 16 ? in16Bits(image) : image;
    };
    const QImage whole = pictureOf({0, 0, 400, 300});
    EXPECT_TRUE(imagesMatch(whole.copy(20, 10, 40, 30), kept(picture)));
    EXPECT_TRUE(imagesMatch(whole.copy(60, 10, 40, 30), kept(made)));
    EXPECT_TRUE(imagesMatch(whole.copy(0, 100, 400, 200), kept(filled({400, 200}, QColor(250, 20, 10)))));
    EXPECT_EQ(whole.pixelColor(5, 5), QColor(Qt::black));

    const auto overlay = host->makePanel({0, 320, 1200, 400});
    const PaintedRects large{{{{0, 0, 1200, 400}, QColor(9, 90, 255)}}};
    large.applyTo(overlay->rootLayer());
    overlay->orderFront();
    EXPECT_TRUE(imagesMatch(pictureOf({0, 320, 1200, 400}), kept(filled({1200, 400}, QColor(9, 90, 255)))));
}

INSTANTIATE_TEST_SUITE_P(
    , X11LayersOnServersTest,
    testing::Values(ServerCase{"depth16", 16}, ServerCase{"depth30", 30},
                    ServerCase{"withoutSharedMemory", 24, {"-extension", "MIT-SHM"}},
                    ServerCase{"withoutLargeRequests", 24, {"-extension", "MIT-SHM", "-extension", "BIG-REQUESTS"}}),
    serverName);

} // namespace
} // namespace nimbrale::test
