// What the capture shows where no window covers the root: whatever the desktop shows there, also below own windows.

#include "tests/desktop/x11_capture_fixture.h"
#include "tests/support/requirements.h"

#include <QPainter>

#include <cstring>

namespace nimbrale::test {
namespace {

constexpr int rootWidth = 1280;
constexpr int rootHeight = 720;
const QRect region(40, 30, 500, 400);
const QRect ownArea(100, 100, 150, 120);
const QColor ownColor(255, 0, 255);

/// Pixels that repeat nowhere within themselves.
QImage makePattern(QSize size, int seed)
{
    QImage image(size, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, qRgb(x * 7 + seed, y * 5 + seed * 3, (x ^ y) + seed * 11));
    return image;
}

/// The area of a root that `tile` covers again and again from the top-left on.
QImage tiled(const QImage& tile, const QRect& area)
{
    QImage image(area.size(), QImage::Format_RGB32);
    for (int y = 0; y < area.height(); ++y)
        for (int x = 0; x < area.width(); ++x)
            image.setPixel(x, y, tile.pixel((area.x() + x) % tile.width(), (area.y() + y) % tile.height()));
    return image;
}

class RootBackgroundTest : public X11CaptureTest {
protected:
    /// A desktop whose picture is captured, with an own window over a part of it.
    void startCaptured(const Options& options = {})
    {
        startDesktop(options);
        captured->start({double(region.x()), double(region.y()), double(region.width()), double(region.height())});
        makeOwnWindow(ownArea);
        captured->settle();
    }

    /// A pixmap of the desktop's own connection, which stands for another program.
    xcb_pixmap_t makePixmap(const QImage& image)
    {
        xcb_connection_t* const raw = desktop->connection();
        const xcb_pixmap_t pixmap = xcb_generate_id(raw);
        xcb_create_pixmap(raw, 24, pixmap, desktop->screen().root, std::uint16_t(image.width()),
                          std::uint16_t(image.height()));
        const xcb_gcontext_t context = xcb_generate_id(raw);
        xcb_create_gc(raw, context, pixmap, 0, nullptr);
        // In bands that a request can hold.
        for (int y = 0; y < image.height(); y += 32) {
            const QImage band = image.copy(0, y, image.width(), std::min(32, image.height() - y));
            xcb_put_image(raw, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, context, std::uint16_t(band.width()),
                          std::uint16_t(band.height()), 0, std::int16_t(y), 0, 24, std::uint32_t(band.sizeInBytes()),
                          band.constBits());
        }
        xcb_free_gc(raw, context);
        desktop->synchronize();
        return pixmap;
    }

    void setProperty(const char* name, std::uint32_t value)
    {
        xcb_change_property(desktop->connection(), XCB_PROP_MODE_REPLACE, desktop->screen().root, atom(name),
                            XCB_ATOM_PIXMAP, 32, 1, &value);
        desktop->synchronize();
    }
    void deleteProperty(const char* name)
    {
        xcb_delete_property(desktop->connection(), desktop->screen().root, atom(name));
        desktop->synchronize();
    }
    /// As wallpaper programs do it: the root's background and the properties that name it.
    void setWallpaper(xcb_pixmap_t pixmap)
    {
        xcb_change_window_attributes(desktop->connection(), desktop->screen().root, XCB_CW_BACK_PIXMAP, &pixmap);
        xcb_clear_area(desktop->connection(), 0, desktop->screen().root, 0, 0, 0, 0);
        setProperty("ESETROOT_PMAP_ID", pixmap);
        setProperty("_XROOTPMAP_ID", pixmap);
    }

    /// Waits until the picture is this one; the last one is kept otherwise.
    [[nodiscard]] testing::AssertionResult becomes(const QImage& expected)
    {
        if (captured->pumpUntil([&] { return imagesAreAlike(captured->image(), expected); }))
            return testing::AssertionSuccess();
        return imagesMatch(captured->image(), expected);
    }
    [[nodiscard]] static QImage filled(const QColor& color)
    {
        QImage image(region.size(), QImage::Format_RGB32);
        image.fill(color);
        return image;
    }
    void setRootTile(const QImage& tile)
    {
        const xcb_pixmap_t pixmap = makePixmap(tile);
        xcb_change_window_attributes(desktop->connection(), desktop->screen().root, XCB_CW_BACK_PIXMAP, &pixmap);
    }
    void clearRoot()
    {
        xcb_clear_area(desktop->connection(), 0, desktop->screen().root, 0, 0, 0, 0);
        desktop->synchronize();
    }
    /// What the screen shows of the region where the own window is not.
    [[nodiscard]] QImage screenWithoutOwnWindow(const QImage& behind) const
    {
        QImage image = desktop->screenshot(region);
        EXPECT_EQ(image.pixelColor(ownArea.center() - region.topLeft()), ownColor) << "the own window shows";
        QPainter painter(&image);
        painter.drawImage(ownArea.topLeft() - region.topLeft(), behind, ownArea.translated(-region.topLeft()));
        return image;
    }

private:
    [[nodiscard]] xcb_atom_t atom(const char* name)
    {
        const x11::Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
            desktop->connection(), xcb_intern_atom(desktop->connection(), 0, std::uint16_t(std::strlen(name)), name),
            nullptr));
        return reply->atom;
    }
};

TEST_F(RootBackgroundTest, aColorSetWhileCapturingIsSeenOnTheDesktopAndInThePicture)
{
    startCaptured();
    ASSERT_FALSE(findProgram("xsetroot").empty());
    EXPECT_TRUE(becomes(filled(QColor(30, 60, 90))));
    for (const char* const color : {"#406080", "#c02010"}) {
        desktop->run("xsetroot", {"-solid", color});
        EXPECT_EQ(desktop->pixel(300, 300), QColor(color)) << "on the desktop";
        EXPECT_TRUE(becomes(filled(QColor(color))));
        EXPECT_TRUE(imagesMatch(screenWithoutOwnWindow(captured->image()), captured->image()));
    }
}

TEST_F(RootBackgroundTest, aTiledBackgroundIsExactAlsoBelowAnOwnWindow)
{
    startCaptured();
    const QImage tile = makePattern({37, 23}, 3);
    setRootTile(tile);
    clearRoot();
    EXPECT_TRUE(becomes(tiled(tile, region)));
    EXPECT_TRUE(imagesMatch(screenWithoutOwnWindow(captured->image()), captured->image()));
}

TEST_F(RootBackgroundTest, aBackgroundSetBeforeTheRootGrewCoversAllOfIt)
{
    startCaptured();
    const QImage tile = makePattern({37, 23}, 5);
    setRootTile(tile);
    ASSERT_TRUE(desktop->arrangeOutputs({{0, 0, 1600, 1000}}));
    clearRoot();
    makeOwnWindow({1300, 750, 200, 200});
    captured->updateRegion({1250, 700, 300, 290});
    EXPECT_TRUE(becomes(tiled(tile, {1250, 700, 300, 290})));
}

TEST_F(RootBackgroundTest, whatAProgramDrawsOnTheRootIsInThePicture)
{
    startCaptured();
    xcb_connection_t* const raw = desktop->connection();
    const xcb_gcontext_t context = xcb_generate_id(raw);
    const std::uint32_t color = 0x00ff80;
    xcb_create_gc(raw, context, desktop->screen().root, XCB_GC_FOREGROUND, &color);
    const xcb_rectangle_t rectangle{300, 200, 60, 50};
    xcb_poly_fill_rectangle(raw, desktop->screen().root, context, 1, &rectangle);
    desktop->synchronize();
    QImage expected = filled(QColor(30, 60, 90));
    QPainter painter(&expected);
    painter.fillRect(QRect(300, 200, 60, 50).translated(-region.topLeft()), QColor(0x00, 0xff, 0x80));
    painter.end();
    EXPECT_TRUE(becomes(expected));
}

TEST_F(RootBackgroundTest, aWallpaperChangesAndGoes)
{
    startCaptured();
    const QImage first = makePattern({rootWidth, rootHeight}, 1);
    const QImage second = makePattern({rootWidth, rootHeight}, 2);
    setWallpaper(makePixmap(first));
    EXPECT_TRUE(becomes(first.copy(region)));
    setWallpaper(makePixmap(second));
    EXPECT_TRUE(becomes(second.copy(region)));
    deleteProperty("_XROOTPMAP_ID");
    deleteProperty("ESETROOT_PMAP_ID");
    desktop->setBackground(QColor(1, 2, 3));
    EXPECT_TRUE(becomes(filled(QColor(1, 2, 3))));
}

TEST_F(RootBackgroundTest, aColorSetAfterAWallpaperIsSeenThoughItsPropertyStays)
{
    startCaptured();
    const QImage wallpaper = makePattern({rootWidth, rootHeight}, 1);
    setWallpaper(makePixmap(wallpaper));
    EXPECT_TRUE(becomes(wallpaper.copy(region)));
    desktop->run("xsetroot", {"-solid", "#205030"});
    EXPECT_TRUE(becomes(filled(QColor(0x20, 0x50, 0x30))));
}

TEST_F(RootBackgroundTest, nothingCoversTheRoot)
{
    startCaptured();
    xcb_connection_t* const raw = desktop->connection();
    const x11::Reply<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(raw, xcb_query_tree(raw, desktop->screen().root), nullptr));
    QRegion covered;
    for (int index = 0; index < xcb_query_tree_children_length(tree.get()); ++index) {
        const xcb_window_t child = xcb_query_tree_children(tree.get())[index];
        const x11::Reply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(raw, xcb_get_geometry(raw, child), nullptr));
        const x11::Reply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(raw, xcb_get_window_attributes(raw, child), nullptr));
        if (geometry && attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE)
            covered |= QRect(geometry->x, geometry->y, geometry->width, geometry->height);
    }
    EXPECT_EQ(covered & QRegion(0, 0, rootWidth, rootHeight), QRegion(ownArea));
}

TEST_F(RootBackgroundTest, aBareDesktopAtRestCostsNoPicture)
{
    startCaptured();
    desktop->setBackground(QColor(1, 2, 3));
    EXPECT_TRUE(becomes(filled(QColor(1, 2, 3))));
    captured->rest();
    const int frames = captured->frames();
    (void)captured->pumpUntil([&] { return captured->frames() != frames; }, 600);
    EXPECT_EQ(captured->frames(), frames);
    // An own window that draws is damage of the root too.
    const xcb_window_t window = makeOwnWindow({400, 300, 50, 40});
    captured->rest();
    const int framesWithWindow = captured->frames();
    for (int i = 0; i < 20; ++i) {
        xcb_clear_area(captured->connection().get(), 0, window, 0, 0, 0, 0);
        captured->connection().flush();
        (void)captured->pumpUntil([] { return false; }, 20);
    }
    EXPECT_EQ(captured->frames(), framesWithWindow);
    desktop->setBackground(QColor(3, 2, 1));
    EXPECT_TRUE(becomes(filled(QColor(3, 2, 1)))) << "the control";
}

// --- Under a compositing manager, which draws the wallpaper by the root's properties
// ----------------------------------

class ComposedBackgroundTest : public RootBackgroundTest {
protected:
    void startComposed()
    {
        requireProgram("picom");
        startCaptured({.compositor = PrivateDesktop::Compositor::picom});
    }

    /// Waits until the picture is what the screen shows, and below the own window, where the screen shows that with
    /// room for a shadow, like `below`.
    [[nodiscard]] testing::AssertionResult becomesAsTheScreenAnd(const QImage& below)
    {
        // The picture of before would do as well, so what was done to the properties must have had its effect.
        captured->settle();
        const QRect masked = ownArea.adjusted(-64, -64, 64, 64) & region;
        QImage expected;
        const bool isSame = captured->pumpUntil([&] {
            expected = desktop->screenshot(region);
            QPainter(&expected).drawImage(masked.topLeft() - region.topLeft(), below, masked);
            return imagesAreAlike(captured->image(), expected);
        });
        return isSame ? testing::AssertionSuccess() : imagesMatch(captured->image(), expected);
    }
};

TEST_F(ComposedBackgroundTest, theWallpaperChangesAndGoes)
{
    startComposed();
    const QImage first = makePattern({rootWidth, rootHeight}, 1);
    const QImage second = makePattern({rootWidth, rootHeight}, 2);
    setWallpaper(makePixmap(first));
    EXPECT_TRUE(becomes(first.copy(region)));
    EXPECT_TRUE(desktop->waitForPixel(300, 300, first.pixelColor(300, 300))) << "as the compositor shows it";
    setWallpaper(makePixmap(second));
    EXPECT_TRUE(becomes(second.copy(region)));
    deleteProperty("_XROOTPMAP_ID");
    EXPECT_TRUE(becomesAsTheScreenAnd(second)) << "the other property still names it";
    deleteProperty("ESETROOT_PMAP_ID");
    EXPECT_TRUE(becomesAsTheScreenAnd(second)) << "what nobody names stays as it was seen";
}

TEST_F(ComposedBackgroundTest, aWallpaperSmallerThanTheRootIsTiled)
{
    startComposed();
    const QImage tile = makePattern({130, 70}, 4);
    setWallpaper(makePixmap(tile));
    EXPECT_TRUE(becomes(tiled(tile, region)));
    EXPECT_TRUE(desktop->waitForPixel(300, 300, tile.pixelColor(300 % 130, 300 % 70))) << "as the compositor shows it";
}

TEST_F(ComposedBackgroundTest, aWallpaperWhosePixmapIsGoneIsNone)
{
    startComposed();
    const QImage first = makePattern({rootWidth, rootHeight}, 1);
    setWallpaper(makePixmap(first));
    EXPECT_TRUE(becomes(first.copy(region)));
    const xcb_pixmap_t dead = makePixmap(makePattern({100, 100}, 2));
    xcb_free_pixmap(desktop->connection(), dead);
    setProperty("_XROOTPMAP_ID", dead);
    EXPECT_TRUE(becomesAsTheScreenAnd(first)) << "the other property names one that lives";
    setProperty("ESETROOT_PMAP_ID", dead);
    EXPECT_TRUE(becomesAsTheScreenAnd(first)) << "what nobody names stays as it was seen";
}

TEST_F(ComposedBackgroundTest, aPropertyThatNamesAWindowIsRefused)
{
    startComposed();
    const QImage first = makePattern({rootWidth, rootHeight}, 1);
    setWallpaper(makePixmap(first));
    EXPECT_TRUE(becomes(first.copy(region)));
    scene->add("private", {.geometry = {700, 500, 200, 150}, .seed = 9});
    deleteProperty("ESETROOT_PMAP_ID");
    setProperty("_XROOTPMAP_ID", scene->identifier("private"));
    EXPECT_TRUE(becomesAsTheScreenAnd(first));
}

} // namespace
} // namespace nimbrale::test
