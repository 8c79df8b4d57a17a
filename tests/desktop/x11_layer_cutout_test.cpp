// Shapes of layers over a desktop: cut out of the window as spans where nothing composites, blended where something
// does.

#include "tests/desktop/layer_shapes_test.h"

namespace nimbrale::test {
namespace {

/// The compositing manager rounds once more.
constexpr ImageTolerance composited{3, 0};

/// The overlay of a desktop without compositing manager: its window has the layers' shape.
class X11CutOutTest : public X11LayerShapesTest {
protected:
    static constexpr QRect square{4, 4, 40, 40};

    void SetUp() override
    {
        startDesktop({});
        panel = host->makePanel({0, 0, 64, 48});
        panel->orderFront();
        layer = addLayer(panel->rootLayer(), {4, 4, 40, 40});
    }
    void TearDown() override
    {
        layer.reset();
        panel.reset();
        X11LayerShapesTest::TearDown();
    }
    [[nodiscard]] QImage shown() { return pictureOf({0, 0, 64, 48}); }
    /// A circle fills the square: its pixels are there, but for those closer than one to its edge.
    void expectCircle(const QColor& inside)
    {
        const QImage image = shown();
        const double radius = square.width() / 2.0;
        for (int y = 0; y < square.height(); ++y) {
            for (int x = 0; x < square.width(); ++x) {
                const double fromCentre = std::hypot(x + 0.5 - radius, y + 0.5 - radius);
                if (std::abs(fromCentre - radius) < 1)
                    continue;
                ASSERT_EQ(image.pixelColor(square.x() + x, square.y() + y), fromCentre < radius ? inside : background)
                    << x << ", " << y;
            }
        }
    }

    std::unique_ptr<Panel> panel;
    std::shared_ptr<Layer> layer;
};

TEST_F(X11CutOutTest, aCircleIsCutAsSpans)
{
    layer->setCornerRadius(20);
    const QColor color(250, 150, 0);
    layer->setBackgroundColor(Color{color.redF(), color.greenF(), 0, 1});
    expectCircle(color);

    layer->setBackgroundColor(std::nullopt);
    layer->setContents(bufferSurfaceOf(filled({80, 40}, Qt::cyan)));
    expectCircle(Qt::cyan);

    layer->setContents(surfaceOf(filled({80, 40}, Qt::magenta)));
    expectCircle(Qt::magenta);
}

TEST_F(X11CutOutTest, aWebcamLikeGroupIsCutAsOne)
{
    layer->setCornerRadius(20);
    layer->setMasksToBounds(true);
    layer->setBackgroundColor(Color{0, 0, 0, 1});
    const auto picture = addLayer(*layer, {0, 0, 40, 40});
    picture->setContents(bufferSurfaceOf(filled({80, 40}, Qt::cyan)));
    expectCircle(Qt::cyan);
    picture->setContents(surfaceOf(filled({80, 40}, Qt::magenta)));
    expectCircle(Qt::magenta);
    picture->setContents(nullptr);
    expectCircle(Qt::black);
}

TEST_F(X11CutOutTest, whatIsFadedBelowHalfIsGoneAndComesBack)
{
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
        QPainter(&expected).fillRect(square, Qt::cyan);
        QPainter(&expected).fillRect(10, 10, 5, 5, Qt::red);
        EXPECT_TRUE(imagesMatch(shown(), expected));
        layer->setOpacity(0.2);
        expected.fill(background);
        QPainter(&expected).fillRect(10, 10, 5, 5, Qt::red);
        EXPECT_TRUE(imagesMatch(shown(), expected));
        layer->setOpacity(0.6);
        QPainter(&expected).fillRect(square, Qt::cyan);
        QPainter(&expected).fillRect(10, 10, 5, 5, Qt::red);
        EXPECT_TRUE(imagesMatch(shown(), expected, {2, 0}));
        picture->removeFromSuperlayer();
    }
}

TEST_F(X11CutOutTest, aPictureWithoutBackgroundIsCutAlongItsAlpha)
{
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
    EXPECT_TRUE(imagesMatch(shown(), expected));
}

TEST_F(X11LayerShapesTest, overACompositedDesktopAFadedCircleIsBlendedOnceAndSmoothly)
{
    PrivateDesktop::Options options;
    options.compositor = PrivateDesktop::Compositor::picom;
    startDesktop(options);
    // Compositing managers take a plain color of the root for no background at all.
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
