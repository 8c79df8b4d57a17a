// Where the capture looks, and the pointer in its pictures.

#include "tests/desktop/x11_capture_fixture.h"

namespace nimbrale::test {
namespace {

TEST_F(X11CaptureTest, regionMovesAndResizesWhileRunning)
{
    startDesktop({});
    if (!captured)
        return;
    scene->add("below", {.geometry = {0, 0, 1280, 720}, .seed = 5});
    captured->start({0, 0, 400, 300});
    for (const QRect region : {QRect(13, 17, 400, 300), QRect(13, 17, 641, 355), QRect(639, 365, 641, 355)}) {
        captured->updateRegion(
            {double(region.x()), double(region.y()), double(region.width()), double(region.height())});
        expectSameAsScreen(region);
    }
}

TEST_F(X11CaptureTest, pointerIsDrawnOnceAtItsPlace)
{
    startDesktop({});
    if (!captured)
        return;
    scene->add("below", {.geometry = {0, 0, 1280, 720}, .seed = 0, .colour = Qt::white});
    desktop->movePointer({900, 600});
    captured->start({100, 100, 400, 300}, 60, false, true);
    captured->settle();
    const QImage without = captured->image();
    EXPECT_TRUE(imagesMatch(without, desktop->screenshot({100, 100, 400, 300})));
    const auto inked = [&] {
        captured->settle(300);
        QRect box;
        const QImage image = captured->image();
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                if (image.pixel(x, y) != without.pixel(x, y))
                    box |= QRect(x, y, 1, 1);
        return box;
    };
    desktop->movePointer({250, 220});
    const QRect first = inked();
    EXPECT_FALSE(first.isEmpty());
    EXPECT_TRUE(QRect(120, 90, 64, 64).contains(first)) << "around (150, 120) in the region";
    desktop->movePointer({350, 300});
    const QRect second = inked();
    EXPECT_EQ(second, first.translated(100, 80)) << "nothing is left behind";
    desktop->movePointer({900, 600});
    EXPECT_TRUE(inked().isEmpty());
}

TEST_F(X11CaptureTest, aPictureKeepsItsPixelsWhileAnotherPlaceIsComposed)
{
    startDesktop({});
    if (!captured)
        return;
    scene->add("below", {.geometry = {0, 0, 1280, 720}, .seed = 5});
    captured->start({0, 0, 400, 300});
    captured->settle();
    auto held = captured->surface();
    const QImage before = captured->image();
    captured->updateRegion({200, 100, 400, 300});
    captured->settle();
    EXPECT_TRUE(imagesMatch(captured->imageOf(*held), before));
    // Once nobody shows the first place any more, its pixmap serves again.
    held.reset();
    for (const QRect region : {QRect(310, 20, 400, 300), QRect(11, 210, 400, 300)}) {
        captured->updateRegion({double(region.x()), double(region.y()), 400, 300});
        expectSameAsScreen(region);
    }
}

TEST_F(X11CaptureTest, aDisplayThatMovesOnTheRootTakesWhatIsCapturedWithIt)
{
    startDesktop({});
    if (!captured)
        return;
    scene->add("below", {.geometry = {0, 0, 2600, 720}, .seed = 5});
    captured.reset();
    ASSERT_TRUE(desktop->arrangeOutputs({{0, 0, 640, 480}, {640, 0, 1280, 720}}));
    desktop->run("xrandr", {"--output", desktop->outputName(1), "--primary"});
    captured = std::make_unique<CapturedDesktop>(*desktop);
    captured->start({50, 60, 400, 300});
    expectSameAsScreen({690, 60, 400, 300});
    // The main display stays where points are counted from, so that nothing but its place on the root changes.
    desktop->run("xrandr", {"--output", desktop->outputName(1), "--pos", "960x0"});
    EXPECT_TRUE(captured->pumpUntil([&] {
        return captured->image() == desktop->screenshot({1010, 60, 400, 300});
    })) << "kept as "
        << keepImage(captured->image(), "captured");
}

TEST_F(X11CaptureTest, aPointerThatAProgramSetsIsFoundBesideAVideo)
{
    startDesktop({});
    if (!captured)
        return;
    scene->add("below", {.geometry = {0, 0, 1280, 720}, .seed = 0, .colour = Qt::white});
    const auto video = desktop->spawn("nimbrale_animation", {"blink", "400", "300", "60", "60", "60", "0"});
    desktop->movePointer({900, 600});
    captured->start({100, 100, 400, 300}, 60, false, true);
    const auto isInked = [&](const QRect& area) {
        const QImage part = captured->image().copy(area);
        for (int y = 0; y < part.height(); ++y)
            for (int x = 0; x < part.width(); ++x)
                if (part.pixel(x, y) != qRgb(255, 255, 255))
                    return true;
        return false;
    };
    const QRect first(145, 115, 30, 30);
    EXPECT_FALSE(isInked(first));
    xcb_connection_t* const connection = captured->connection().get();
    xcb_warp_pointer(connection, XCB_NONE, captured->connection().root(), 0, 0, 0, 0, 250, 220);
    xcb_flush(connection);
    EXPECT_TRUE(captured->pumpUntil([&] { return isInked(first); }, 1000));
    xcb_warp_pointer(connection, XCB_NONE, captured->connection().root(), 0, 0, 0, 0, 900, 600);
    xcb_flush(connection);
    EXPECT_TRUE(captured->pumpUntil([&] { return !isInked(first); }, 1000));
}

} // namespace
} // namespace nimbrale::test
