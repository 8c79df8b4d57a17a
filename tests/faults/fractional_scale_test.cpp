// The real application where a point is no whole number of pixels: the picture fills the shared display to its edges,
// and the frame reaches the display's edges and stays there.

#include "tests/support/application.h"
#include "tests/support/image_compare.h"
#include "tests/support/requirements.h"
#include "tests/support/scene.h"

#include <QPainter>

#include <cmath>
#include <gtest/gtest.h>

namespace nimbrale::test {
namespace {

/// How the scale comes to be: from the desktop's dots per inch, from the toolkit's factor that the user set, and from
/// the factor by which the desktop scales windows.
struct Scale {
    std::string name;
    int dotsPerInch;
    std::string factor;
    double value;
    int windowScalingFactor = 0;

    friend std::ostream& operator<<(std::ostream& stream, const Scale& scale) { return stream << scale.name; }
};

class FractionalScaleTest : public testing::TestWithParam<Scale> {
protected:
    /// No multiple of any scale, so that the display's size in points is no whole number.
    static constexpr QSize display{1366, 767};
    static constexpr QPoint pointerRest{5, 5};
    static constexpr QRect pointerRoom{0, 0, 64, 64};

    void SetUp() override
    {
        desktop = requireDesktop({.width = display.width(),
                                  .height = display.height(),
                                  .dotsPerInch = GetParam().dotsPerInch,
                                  .windowScalingFactor = GetParam().windowScalingFactor,
                                  .windowManager = PrivateDesktop::WindowManager::openbox});
        scene = requireScene(*desktop);
        scene->add("wall", {.geometry = QRect({}, display), .seed = 3});
        desktop->movePointer(pointerRest);
        content = desktop->screenshot();
    }

    void startApplication(const QRect& region)
    {
        Environment environment;
        if (!GetParam().factor.empty())
            environment["QT_SCALE_FACTOR"] = GetParam().factor;
        application = requireApplication(*desktop, {.region = region}, environment);
        ASSERT_TRUE(application->waitForVirtualDisplay(pixelsOf(region).size())) << application->process().output();
    }

    /// The whole pixels of a region.
    [[nodiscard]] static QRect pixelsOf(const QRect& region)
    {
        const double scale = GetParam().value;
        return {pixelOf(region.topLeft()), QSize(static_cast<int>(std::floor(region.width() * scale)),
                                                 static_cast<int>(std::floor(region.height() * scale)))};
    }
    [[nodiscard]] static QPoint pixelOf(QPoint point)
    {
        const double scale = GetParam().value;
        return {static_cast<int>(std::lround(point.x() * scale)), static_cast<int>(std::lround(point.y() * scale))};
    }
    [[nodiscard]] static QSize displayInPoints()
    {
        return {static_cast<int>(display.width() / GetParam().value),
                static_cast<int>(display.height() / GetParam().value)};
    }

    /// Waits until the region is stored and shared to the pixel.
    void expectToShare(const QRect& region) const
    {
        EXPECT_TRUE(waitUntil([&] { return application->storedRegion() == region; }, Milliseconds{3000}))
            << describe(application->storedRegion()) << " instead of " << describe(region);
        const QRect pixels = pixelsOf(region);
        const QImage framed = withoutPointer(content.copy(pixels), pixels);
        QImage shared;
        EXPECT_TRUE(application->waitForVirtualDisplay(framed.size(), Milliseconds{3000}));
        static_cast<void>(waitUntil(
            [&] {
                shared = withoutPointer(desktop->screenshot(desktop->monitorNamed("Nimbrale")->geometry), pixels);
                return shared == framed;
            },
            Milliseconds{3000}));
        EXPECT_TRUE(imagesMatch(shared, framed));
    }

    /// The shared picture shows the pointer, which rests in the display's first corner.
    static QImage withoutPointer(QImage picture, const QRect& pixels)
    {
        QPainter painter(&picture);
        painter.fillRect(pointerRoom.translated(-pixels.topLeft()), Qt::black);
        return picture;
    }

    /// Takes the frame by its button or handle there, in points, and carries it beyond the display's far corner.
    void dragBeyondTheDisplay(QPoint from) const
    {
        desktop->drag(pixelOf(from), pixelOf(from) + QPoint(2000, 2000), 30);
        desktop->movePointer(pointerRest);
    }

    static std::string describe(const QRect& rectangle)
    {
        return std::to_string(rectangle.width()) + "x" + std::to_string(rectangle.height()) + "+" +
               std::to_string(rectangle.x()) + "+" + std::to_string(rectangle.y());
    }

    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<Scene> scene;
    std::unique_ptr<Application> application;
    /// What the desktop shows without the application.
    QImage content;
};

INSTANTIATE_TEST_SUITE_P(Scales, FractionalScaleTest,
                         testing::Values(Scale{"DotsPerInch144", 144, "", 1.5}, Scale{"Factor125", 96, "1.25", 1.25},
                                         Scale{"DotsPerInch168", 168, "", 1.75},
                                         Scale{"WindowsTwiceAsLarge", 96, "", 2, 2}),
                         [](const auto& scale) { return scale.param.name; });

TEST_P(FractionalScaleTest, ThePictureFillsTheSharedDisplayToItsEdges)
{
    const QRect region(101, 83, 203, 153);
    startApplication(region);
    expectToShare(region);
    EXPECT_EQ(application->quit(), 0);
}

TEST_P(FractionalScaleTest, AFrameDroppedAtTheFarEdgesStaysThere)
{
    const QRect region(101, 83, 203, 153);
    startApplication(region);
    dragBeyondTheDisplay(Application::handleOf(region));
    QRect dropped = region;
    dropped.moveBottomRight(QPoint(displayInPoints().width() - 1, displayInPoints().height() - 1));
    expectToShare(dropped);
    // What moves without a drag does so at the next start, too.
    EXPECT_EQ(application->quit(), 0);
    startApplication(dropped);
    expectToShare(dropped);
    EXPECT_EQ(application->quit(), 0);
}

TEST_P(FractionalScaleTest, TheFrameCanBeMadeAsWideAndHighAsTheDisplay)
{
    const QRect region(0, 0, 303, 251);
    startApplication(region);
    // The pointer gets no further than the last pixel, so the button is taken at its near side.
    dragBeyondTheDisplay(Application::resizeButtonOf(region) - QPoint(5, 5));
    expectToShare(QRect({}, displayInPoints()));
    EXPECT_EQ(application->quit(), 0);
}

} // namespace
} // namespace nimbrale::test
