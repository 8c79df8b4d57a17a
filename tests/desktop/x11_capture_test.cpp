// The X11 capture against real X servers: pictures equal to the desktop, pixel by pixel, without own windows.

#include "tests/desktop/x11_capture_fixture.h"
#include "tests/support/requirements.h"
#include "tests/support/server_resources.h"

#include <QPainter>

#include <algorithm>
#include <atomic>
#include <thread>
#include <unistd.h>
#include <xcb/shape.h>

namespace nimbrale::test {
namespace {

TEST_F(X11CaptureTest, showsWindowsAndBackgroundExactly)
{
    startDesktop({});
    scene->add("back", {.geometry = {100, 80, 500, 400}, .seed = 1});
    scene->add("front", {.geometry = {300, 200, 400, 300}, .seed = 2, .borderWidth = 7});
    scene->add("round", {.geometry = {150, 300, 220, 180}, .seed = 3, .isRound = true});
    captured->start({60, 40, 701, 533});
    expectSameAsScreen({60, 40, 701, 533});
}

TEST_F(X11CaptureTest, followsEveryKindOfChange)
{
    startDesktop({});
    const QRect region(50, 50, 640, 480);
    captured->start({50, 50, 640, 480});
    scene->add("a", {.geometry = {100, 100, 300, 200}, .seed = 1});
    expectSameAsScreen(region);
    scene->add("b", {.geometry = {200, 150, 300, 200}, .seed = 2});
    expectSameAsScreen(region);
    scene->move("b", {260, 220});
    expectSameAsScreen(region);
    scene->resize("a", {350, 260});
    expectSameAsScreen(region);
    scene->raise("a");
    expectSameAsScreen(region);
    scene->repaint("b", 9);
    expectSameAsScreen(region);
    scene->fill("a", {10, 10, 50, 50}, Qt::red);
    expectSameAsScreen(region);
    scene->unmap("a");
    expectSameAsScreen(region);
    scene->map("a");
    expectSameAsScreen(region);
    scene->remove("b");
    expectSameAsScreen(region);
}

TEST_F(X11CaptureTest, ownWindowsAreNeverInThePicture)
{
    startDesktop({});
    scene->add("below", {.geometry = {0, 0, 800, 600}, .seed = 5});
    captured->start({100, 100, 400, 300});
    captured->settle();
    const QImage before = captured->image();
    const xcb_window_t window = makeOwnWindow({150, 150, 100, 100});
    captured->settle();
    EXPECT_TRUE(imagesMatch(captured->image(), before));
    EXPECT_EQ(desktop->pixel(200, 200), QColor(255, 0, 255)) << "the own window does show on the screen";
    scene->repaint("below", 6);
    captured->settle();
    EXPECT_TRUE(imagesMatch(captured->image(), Scene::pattern(6, {800, 600}).copy(100, 100, 400, 300)));
    xcb_destroy_window(captured->connection().get(), window);
    captured->connection().flush();
    expectSameAsScreen({100, 100, 400, 300});
}

TEST_F(X11CaptureTest, ownManagedWindowsAreLeftOutWithTheirFrames)
{
    startDesktop({.windowManager = PrivateDesktop::WindowManager::openbox});
    scene->add("below", {.geometry = {0, 0, 800, 600}, .seed = 5});
    scene->lower("below");
    captured->start({0, 0, 800, 600});
    captured->settle();
    makeOwnWindow({150, 150, 200, 150}, false);
    ASSERT_TRUE(waitUntil([&] { return desktop->pixel(250, 250) == QColor(255, 0, 255); }, Milliseconds{3000}));
    captured->settle();
    EXPECT_TRUE(imagesMatch(captured->image(), Scene::pattern(5, {800, 600})));
    // A restarted window manager takes the window out of its frame and puts it into a new one.
    int leaks = 0;
    captured->onFrame = [&] {
        const QImage image = captured->image();
        for (int y = 0; y < image.height(); y += 10)
            for (int x = 0; x < image.width(); x += 10)
                leaks += image.pixelColor(x, y) == QColor(255, 0, 255);
    };
    ASSERT_TRUE(desktop->stopWindowManager());
    captured->settle();
    ASSERT_TRUE(desktop->startWindowManager());
    captured->settle();
    EXPECT_EQ(leaks, 0);
    EXPECT_TRUE(imagesMatch(captured->image(), Scene::pattern(5, {800, 600})));
}

TEST_F(X11CaptureTest, aWindowLoweredToTheBottomStaysVisible)
{
    startDesktop({});
    scene->add("desktop", {.geometry = {0, 0, 800, 600}, .seed = 5});
    scene->add("above", {.geometry = {50, 50, 80, 60}, .seed = 6});
    captured->start({0, 0, 400, 300});
    scene->lower("desktop");
    captured->settle();
    EXPECT_EQ(desktop->pixel(300, 200), Scene::pattern(5, {800, 600}).pixelColor(300, 200));
    expectSameAsScreen({0, 0, 400, 300});
}

TEST_F(X11CaptureTest, notificationsAreLeftOutWhenAsked)
{
    startDesktop({});
    scene->add("below", {.geometry = {0, 0, 800, 600}, .seed = 5});
    scene->add("note", {.geometry = {150, 150, 200, 80}, .seed = 7, .type = Scene::Type::notification});
    captured->start({100, 100, 400, 300}, 60, true);
    captured->settle();
    const QImage without = Scene::pattern(5, {800, 600}).copy(100, 100, 400, 300);
    EXPECT_TRUE(imagesMatch(captured->image(), without));
    captured->updateNotifications(false);
    expectSameAsScreen({100, 100, 400, 300});
    captured->updateNotifications(true);
    captured->settle();
    EXPECT_TRUE(imagesMatch(captured->image(), without));
}

TEST_F(X11CaptureTest, noFrameWhenNothingChanges)
{
    startDesktop({});
    scene->add("inside", {.geometry = {100, 100, 300, 300}, .seed = 1});
    scene->add("outside", {.geometry = {700, 100, 300, 300}, .seed = 2});
    scene->add("hidden", {.geometry = {120, 120, 50, 50}, .seed = 3});
    scene->lower("hidden");
    captured->start({50, 50, 500, 500}, 60, false, true);
    captured->rest();
    const int frames = captured->frames();
    (void)captured->pumpUntil([] { return false; }, 600);
    EXPECT_EQ(captured->frames(), frames);
    scene->repaint("outside", 8);
    scene->repaint("hidden", 9);
    (void)captured->pumpUntil([] { return false; }, 300);
    EXPECT_EQ(captured->frames(), frames) << "neither what lies outside nor what is covered is in the picture";
    scene->fill("inside", {5, 6, 7, 8}, Qt::green);
    ASSERT_TRUE(captured->pumpUntil([&] { return captured->frames() > frames; }));
    EXPECT_EQ(captured->changed(), std::vector<PixelRect>({{55, 56, 7, 8}}));
}

TEST_F(X11CaptureTest, whatHappensToADamagedWindowOutsideIsSeenOnceItComesIn)
{
    startDesktop({});
    scene->add("traveller", {.geometry = {700, 100, 200, 200}, .seed = 2});
    captured->start({50, 50, 500, 500});
    scene->repaint("traveller", 3);
    scene->move("traveller", {200, 200});
    expectSameAsScreen({50, 50, 500, 500});
    scene->repaint("traveller", 4);
    expectSameAsScreen({50, 50, 500, 500});
}

TEST_F(X11CaptureTest, translucentWindowsUnderACompositorAndWithout)
{
    startDesktop({});
    scene->add("below", {.geometry = {0, 0, 1280, 720}, .seed = 5});
    scene->add("glass", {.geometry = {120, 130, 200, 150}, .seed = 4, .depth = 32});
    captured->start({100, 100, 400, 300});
    expectSameAsScreen({100, 100, 400, 300});
    requireProgram("picom");
    ASSERT_TRUE(desktop->startCompositor());
    ASSERT_TRUE(captured->pumpUntil([&] {
        return desktop->pixel(1000, 600) == Scene::pattern(5, {1280, 720}).pixelColor(1000, 600);
    }));
    sleepFor(Milliseconds{500});
    captured->settle();
    // Two roundings of the blend, RENDER's and the compositor's, may differ by one.
    EXPECT_TRUE(imagesMatch(captured->image(), desktop->screenshot({100, 100, 400, 300}), {.perChannel = 1}));
    ASSERT_TRUE(desktop->stopCompositor());
    expectSameAsScreen({100, 100, 400, 300});
}

TEST_F(X11CaptureTest, noWindowStandsForTheBackgroundUnderACompositor)
{
    // KWin draws override-redirect windows above all managed ones: a stand-in would hide the whole desktop.
    startDesktop({.windowManager = PrivateDesktop::WindowManager::kwin,
                  .compositor = PrivateDesktop::Compositor::windowManagersOwn});
    scene->add("managed", {.geometry = {100, 100, 300, 200}, .seed = 5, .overrideRedirect = false});
    const QColor expected = Scene::pattern(5, {300, 200}).pixelColor(150, 100);
    captured->start({0, 0, 600, 400});
    EXPECT_TRUE(captured->pumpUntil([&] {
        const QImage screen = desktop->screenshot({0, 0, 600, 400});
        for (int y = 0; y < screen.height(); y += 3)
            for (int x = 0; x < screen.width(); x += 3)
                if (screen.pixelColor(x, y) == expected)
                    return true;
        return false;
    })) << "the managed window is still seen";
}

TEST_F(X11CaptureTest, randomDesktopsAreCapturedExactly)
{
    startDesktop({});
    const QRect region(37, 41, 803, 601);
    captured->start({37, 41, 803, 601}, 120);
    captured->rest();
    const auto before = serverResources(desktop->connection(), getpid());
    std::uint32_t state = 20261121;
    const auto random = [&state](int limit) {
        state = state * 1664525 + 1013904223;
        return int((state >> 8) % std::uint32_t(limit));
    };
    std::vector<std::string> names;
    for (int step = 0; step < 120; ++step) {
        const int action = names.size() < 4 ? 0 : random(7);
        if (action == 0) {
            names.push_back("w" + std::to_string(step));
            scene->add(names.back(), {.geometry = {random(900), random(600), 20 + random(400), 20 + random(300)},
                                      .seed = std::uint32_t(1 + random(1000)),
                                      .borderWidth = random(4),
                                      .isRound = random(3) == 0});
        } else {
            const std::string name = names[std::size_t(random(int(names.size())))];
            if (action == 1)
                scene->move(name, {random(900) - 50, random(600) - 50});
            if (action == 2)
                scene->resize(name, {10 + random(500), 10 + random(400)});
            if (action == 3)
                scene->raise(name);
            if (action == 4)
                scene->lower(name);
            if (action == 5)
                scene->repaint(name, std::uint32_t(1 + random(1000)));
            if (action == 6) {
                scene->remove(name);
                std::erase(names, name);
            }
        }
        if (step % 15 == 14)
            expectSameAsScreen(region);
        if (HasFailure())
            return;
    }
    for (const std::string& name : names)
        scene->remove(name);
    captured->rest();
    auto after = serverResources(desktop->connection(), getpid());
    for (const char* const type : {"PIXMAP", "PICTURE"}) {
        EXPECT_LE(after.at(type), before.at(type) + 1) << "of the pictures' pixmaps there may be a spare one";
        after[type] = before.at(type);
    }
    EXPECT_EQ(after, before) << "all is given back with the windows";
}

} // namespace
} // namespace nimbrale::test
