// The X11 capture while windows get other parents.

#include "tests/desktop/x11_capture_fixture.h"

namespace nimbrale::test {
namespace {

constexpr QRect region(50, 50, 500, 400);
constexpr QColor ownColor(255, 0, 255);

class X11CaptureParentsTest : public X11CaptureTest {
protected:
    void startCapture()
    {
        captured->start({region.x() * 1.0, region.y() * 1.0, region.width() * 1.0, region.height() * 1.0});
    }

    void reparent(xcb_window_t window, xcb_window_t parent, QPoint position)
    {
        xcb_reparent_window(desktop->connection(), window, parent, std::int16_t(position.x()),
                            std::int16_t(position.y()));
        desktop->synchronize();
        // The server unmaps it on the way, and the scene has to paint it again.
        scene->settle();
    }
    /// Gives the window "low", of pattern 1, the root anew.
    void expectOnTopWithTheRootAgain()
    {
        reparent(scene->identifier("low"), root(), {120, 110});
        EXPECT_EQ(desktop->pixel(250, 200), Scene::pattern(1, {300, 200}).pixelColor(130, 90))
            << "the screen shows it on top";
        expectSameAsScreen(region);
    }
    [[nodiscard]] xcb_window_t root() const { return desktop->screen().root; }
};

TEST_F(X11CaptureParentsTest, aWindowThatIsGivenTheRootAgainIsOnTop)
{
    startDesktop({});
    scene->add("low", {.geometry = {100, 100, 300, 200}, .seed = 1});
    scene->add("high", {.geometry = {200, 150, 300, 200}, .seed = 2});
    startCapture();
    expectSameAsScreen(region);
    expectOnTopWithTheRootAgain();
    scene->repaint("low", 3);
    scene->repaint("high", 4);
    expectSameAsScreen(region);
}

TEST_F(X11CaptureParentsTest, aWindowThatComesBackFromAnotherParentIsOnTop)
{
    startDesktop({});
    scene->add("low", {.geometry = {100, 100, 300, 200}, .seed = 1});
    scene->add("other", {.geometry = {60, 300, 200, 100}, .seed = 5});
    scene->add("high", {.geometry = {200, 150, 300, 200}, .seed = 2});
    startCapture();
    reparent(scene->identifier("low"), scene->identifier("other"), {10, 10});
    expectSameAsScreen(region);
    expectOnTopWithTheRootAgain();
    scene->repaint("low", 3);
    scene->lower("high");
    expectSameAsScreen(region);
}

TEST_F(X11CaptureParentsTest, anOwnWindowThatIsGivenTheRootAgainStaysLeftOut)
{
    startDesktop({});
    scene->add("below", {.geometry = {0, 0, 800, 600}, .seed = 5});
    startCapture();
    const xcb_window_t own = makeOwnWindow({150, 150, 100, 100});
    int leaks = 0;
    captured->onFrame = [&] { leaks += captured->image().pixelColor(150, 150) == ownColor; };
    for (int count = 0; count < 10; ++count) {
        reparent(own, root(), {150 + count, 150});
        captured->settle();
    }
    EXPECT_EQ(desktop->pixel(200, 200), ownColor) << "the own window does show on the screen";
    EXPECT_EQ(leaks, 0);
    EXPECT_TRUE(imagesMatch(captured->image(), Scene::pattern(5, {800, 600}).copy(region)));
}

TEST_F(X11CaptureParentsTest, aPanelThatTakesInAnOwnIconIsShownAsItIs)
{
    startDesktop({});
    scene->add("panel", {.geometry = {0, 100, 1280, 40}, .seed = 6, .type = Scene::Type::dock});
    scene->add("plain", {.geometry = {0, 300, 1280, 40}, .seed = 7});
    startCapture();
    expectSameAsScreen(region);
    const xcb_window_t icon = makeOwnWindow({600, 500, 24, 24});
    reparent(icon, scene->identifier("panel"), {200, 8});
    ASSERT_EQ(desktop->pixel(212, 120), ownColor) << "the panel shows the icon";
    expectSameAsScreen(region);
    scene->repaint("panel", 8);
    expectSameAsScreen(region);
    // What is asked anew when the panel is shown again.
    scene->unmap("panel");
    scene->map("panel");
    expectSameAsScreen(region);
    // A window of no such type is taken for a window manager's frame.
    reparent(icon, root(), {600, 500});
    captured->settle();
    reparent(icon, scene->identifier("plain"), {200, 8});
    captured->settle();
    EXPECT_EQ(captured->image().pixelColor(100, 270), QColor(30, 60, 90)) << "the frame is left out";
}

} // namespace
} // namespace nimbrale::test
