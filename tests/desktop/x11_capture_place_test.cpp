// Where the capture looks, and the pointer in its pictures.

#include "tests/desktop/x11_capture_fixture.h"

#include <xcb/render.h>
#include <xcb/xfixes.h>

namespace nimbrale::test {
namespace {

TEST_F(X11CaptureTest, regionMovesAndResizesWhileRunning)
{
    startDesktop({});
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
    scene->add("below", {.geometry = {0, 0, 1280, 720}, .seed = 0, .color = Qt::white});
    desktop->movePointer({900, 600});
    captured->start({100, 100, 400, 300}, 60, false, true);
    captured->settle();
    const QImage without = captured->image();
    EXPECT_TRUE(imagesMatch(without, desktop->screenshot({100, 100, 400, 300})));
    const auto inked = [&] {
        captured->settle();
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
    scene->add("below", {.geometry = {0, 0, 1280, 720}, .seed = 0, .color = Qt::white});
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

/// The pixels of the captured picture that are not as `background`, as the rectangle around them.
QRect inkedArea(const QImage& image, QRgb background)
{
    QRect box;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (image.pixel(x, y) != background)
                box |= QRect(x, y, 1, 1);
    return box;
}

TEST_F(X11CaptureTest, aPointerThatRestsWhereAStreamStartsLeavesNothingBehind)
{
    startDesktop({});
    scene->add("below", {.geometry = {0, 0, 1280, 720}, .seed = 0, .color = Qt::white});
    desktop->movePointer({250, 220});
    captured->start({100, 100, 400, 300}, 60, false, true);
    ASSERT_TRUE(captured->pumpUntil([&] { return !inkedArea(captured->image(), qRgb(255, 255, 255)).isEmpty(); }));
    // The place is known by now, and the next stream starts with the pointer at rest in it.
    captured->start({100, 100, 400, 300}, 60, false, true);
    captured->settle();
    ASSERT_TRUE(QRect(120, 90, 64, 64).contains(inkedArea(captured->image(), qRgb(255, 255, 255))));
    desktop->movePointer({900, 600});
    captured->settle();
    EXPECT_EQ(inkedArea(captured->image(), qRgb(255, 255, 255)), QRect());
}

TEST_F(X11CaptureTest, aPointerThatAProgramHidesIsNotDrawn)
{
    startDesktop({});
    scene->add("below", {.geometry = {0, 0, 1280, 720}, .seed = 0, .color = Qt::white});
    desktop->movePointer({250, 220});
    captured->start({100, 100, 400, 300}, 60, false, true);
    const auto isDrawn = [&] { return !inkedArea(captured->image(), qRgb(255, 255, 255)).isEmpty(); };
    ASSERT_TRUE(captured->pumpUntil(isDrawn));
    const auto hide = [&] {
        auto program = std::move(*x11::Connection::open(desktop->displayName()));
        xcb_xfixes_hide_cursor(program->get(), program->root());
        program->synchronize();
        return program;
    };
    const auto program = hide();
    EXPECT_TRUE(captured->pumpUntil([&] { return !isDrawn(); }));
    desktop->movePointer({300, 250});
    scene->fill("below", {110, 110, 20, 20}, Qt::white);
    captured->settle();
    EXPECT_FALSE(isDrawn()) << "wherever it goes";
    xcb_xfixes_show_cursor(program->get(), program->root());
    program->synchronize();
    EXPECT_TRUE(captured->pumpUntil(isDrawn));
    // A program that ends takes its wish along.
    auto brief = hide();
    EXPECT_TRUE(captured->pumpUntil([&] { return !isDrawn(); }));
    brief.reset();
    EXPECT_TRUE(captured->pumpUntil(isDrawn));
}

/// Has the root show a pointer of one color, its hot spot in the top-left corner. The connection stands for the program
/// that set it; nobody can read the pointer of a program that has ended.
std::unique_ptr<x11::Connection> setPointer(const std::string& displayName, int side,
                                            const xcb_render_color_t& color = {0, 0xffff, 0, 0xffff})
{
    auto connection = std::move(*x11::Connection::open(displayName));
    xcb_connection_t* const raw = connection->get();
    const xcb_pixmap_t pixmap = connection->newId();
    const auto size = static_cast<std::uint16_t>(side);
    xcb_create_pixmap(raw, 32, pixmap, connection->root(), size, size);
    const xcb_render_picture_t picture = connection->newId();
    xcb_render_create_picture(raw, picture, pixmap, connection->argbFormat(), 0, nullptr);
    const xcb_rectangle_t whole{0, 0, size, size};
    xcb_render_fill_rectangles(raw, XCB_RENDER_PICT_OP_SRC, picture, color, 1, &whole);
    const xcb_cursor_t cursor = connection->newId();
    xcb_render_create_cursor(raw, cursor, picture, 0, 0);
    xcb_change_window_attributes(raw, connection->root(), XCB_CW_CURSOR, &cursor);
    connection->synchronize();
    return connection;
}

TEST_F(X11CaptureTest, aPointerThatChangesWhereItRestsIsDrawnAnew)
{
    startDesktop({});
    desktop->movePointer({250, 220});
    const auto program = setPointer(desktop->displayName(), 40);
    captured->start({100, 100, 400, 300}, 60, false, true);
    const auto shows = [&](const QRect& place, const QColor& color) {
        return inkedArea(captured->image(), qRgb(30, 60, 90)) == place &&
               captured->image().pixelColor(place.center()) == color;
    };
    EXPECT_TRUE(captured->pumpUntil([&] { return shows({150, 120, 40, 40}, QColor(0, 255, 0)); }));
    const auto other = setPointer(desktop->displayName(), 40, {0xffff, 0, 0, 0xffff});
    EXPECT_TRUE(captured->pumpUntil([&] { return shows({150, 120, 40, 40}, QColor(255, 0, 0)); }));
    const auto smaller = setPointer(desktop->displayName(), 20, {0xffff, 0, 0, 0xffff});
    EXPECT_TRUE(captured->pumpUntil([&] { return shows({150, 120, 20, 20}, QColor(255, 0, 0)); }));
}

TEST_F(X11CaptureTest, aHugePointerIsDrawnAndEndsNothing)
{
    startDesktop({});
    // No window is below it, so that the pointer is the root's.
    desktop->movePointer({250, 220});
    captured->start({100, 100, 400, 300}, 60, false, true);
    captured->settle();
    for (const int side : {512, 2048}) {
        const auto program = setPointer(desktop->displayName(), side);
        EXPECT_TRUE(captured->pumpUntil([&] {
            return inkedArea(captured->image(), qRgb(30, 60, 90)) == QRect(150, 120, 250, 180) &&
                   captured->image().pixelColor(399, 299) == QColor(0, 255, 0);
        })) << side;
        EXPECT_FALSE(captured->isLost()) << side;
        // Away, and what it covered comes back.
        desktop->movePointer({900, 600});
        EXPECT_TRUE(captured->pumpUntil([&] { return inkedArea(captured->image(), qRgb(30, 60, 90)).isEmpty(); }))
            << side;
        desktop->movePointer({250, 220});
    }
    // One that is larger than what is taken over: an arrow stands for it.
    const auto program = setPointer(desktop->displayName(), 5000);
    EXPECT_TRUE(captured->pumpUntil(
        [&] {
            const QRect ink = inkedArea(captured->image(), qRgb(30, 60, 90));
            return ink.topLeft() == QPoint(150, 120) && ink.width() <= 64 && ink.height() <= 64;
        },
        20'000));
    EXPECT_FALSE(captured->isLost());
}

} // namespace
} // namespace nimbrale::test
