// A capture of the application's own virtual display, with nothing left out: what the display shows, beside the capture
// of the user's display that leaves the own windows out.

#include "platform/desktop/qt_main_queue.h"
#include "platform/x11/x11_window_system.h"
#include "share/region_capture.h"
#include "share/shared_screen.h"
#include "tests/desktop/captured_stream.h"
#include "tests/desktop/paint_watch.h"
#include "tests/fakes/fake_microphones.h"
#include "tests/fakes/offscreen_application.h"
#include "tests/support/image_compare.h"
#include "tests/support/requirements.h"
#include "tests/support/scene.h"

#include <QPainter>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <string>

namespace nimbrale::test {
namespace {

using Server = PrivateDesktop::Server;
using WindowManager = PrivateDesktop::WindowManager;
using Compositor = PrivateDesktop::Compositor;

struct Surroundings {
    std::string name;
    Server server;
    WindowManager windowManager;
    Compositor compositor;
};

const QRect firstRegion(100, 80, 400, 300);
const QRect secondRegion(160, 120, 520, 360);
const QColor ownColor(255, 0, 255);

Rect rectOf(const QRect& rect)
{
    return {double(rect.x()), double(rect.y()), double(rect.width()), double(rect.height())};
}

/// The captured region on the virtual display, as the application brings it there.
class OwnDisplayTest : public testing::TestWithParam<Surroundings> {
protected:
    OwnDisplayTest() { startOffscreenApplication(); }

    void SetUp() override
    {
        const Surroundings& around = GetParam();
        desktop = requireDesktop(
            {.server = around.server, .windowManager = around.windowManager, .compositor = around.compositor});
        desktop->setBackground(QColor(30, 60, 90));
        desktop->movePointer({1200, 700});
        scene = requireScene(*desktop);
        reader = std::move(*x11::Connection::open(desktop->displayName()));
        auto made = x11::createX11WindowSystem(queue, systemAudio, desktop->displayName());
        ASSERT_TRUE(made) << made.error().message;
        platform = std::move(*made);
        scene->add("content", {.geometry = {0, 0, 900, 600}, .seed = 5});
        share();
    }

    void TearDown() override
    {
        recording.reset();
        if (capture)
            capture->stop([] {});
        sharedScreen.reset();
        capture.reset();
        QCoreApplication::processEvents();
        platform.reset();
        reader.reset();
        scene.reset();
        desktop.reset();
    }

    /// Starts the capture of the region and shows it on the virtual display.
    void share()
    {
        settings.setShareNotifications(true);
        settings.setLeft(firstRegion.x());
        settings.setTop(firstRegion.y() - 1);
        settings.setWidth(firstRegion.width());
        settings.setHeight(firstRegion.height());
        capture = RegionCapture::create(platform->screenCapture(), platform->screens(), queue, settings);
        sharedScreen =
            std::make_unique<SharedScreen>(platform->virtualDisplays(), platform->panels(), platform->screens(), queue);
        capture->onFrame = [this](const Frame& frame) {
            ++sharedFrames;
            sharedScreen->show(frame);
        };
        std::optional<bool> isStarted;
        platform->screenCapture().shareableContent([&](const Result<ShareableContent>& content) {
            capture->start(content, [&](const Result<void>& result) { isStarted = result.has_value(); });
        });
        ASSERT_TRUE(pumpUntil([&] { return isStarted.has_value(); }));
        ASSERT_TRUE(*isStarted);
        moveRegion(firstRegion);
        sharedScreen->activate(capture->region(), *capture->geometry(), capture->pixelScale());
        ASSERT_TRUE(pumpUntil([&] { return ownArea().size() == firstRegion.size(); }, Milliseconds{8000}));
        ASSERT_EQ(sharedScreen->windowKind(), SharedScreen::WindowKind::virtualDisplay);
    }

    void moveRegion(const QRect& region)
    {
        capture->setRegion(rectOf(region));
        capture->applyRegion();
    }

    /// Where the virtual display is on the root.
    [[nodiscard]] QRect ownArea() const
    {
        const auto monitor = desktop->monitorNamed("Nimbrale");
        return monitor ? monitor->geometry : QRect();
    }

    /// Starts the capture of the virtual display.
    void record(QSize size)
    {
        recording = std::make_unique<CapturedStream>(platform->screenCapture(), queue, *reader);
        configuration = {.width = size.width(),
                         .height = size.height(),
                         .minimumFrameInterval = {1, 60},
                         .showsCursor = false,
                         .queueDepth = 6};
        const auto identity = sharedScreen->virtualDisplayIdentity();
        ASSERT_TRUE(identity);
        ASSERT_TRUE(recording->start({identity->displayID, {}}, configuration)) << recording->error.message;
    }

    /// Waits until the recording and the screen where the virtual display is both show the picture, and then makes
    /// sure that they are equal.
    [[nodiscard]] testing::AssertionResult showsEverywhere(const QImage& expected)
    {
        if (!pumpUntil([&] { return desktop->screenshot(ownArea()) == expected && recording->image() == expected; },
                       Milliseconds{5000})) {
            const auto shown = imagesMatch(desktop->screenshot(ownArea()), expected);
            if (!shown)
                return testing::AssertionFailure() << "on the screen: " << shown.message();
            return imagesMatch(recording->image(), expected);
        }
        return testing::AssertionSuccess();
    }

    /// A window of this process, filled with one color.
    xcb_window_t makeOwnWindow(const QRect& place)
    {
        const xcb_window_t window = reader->newId();
        const std::uint32_t values[] = {ownColor.rgb() & 0xffffff, 1};
        xcb_create_window(reader->get(), XCB_COPY_FROM_PARENT, window, reader->root(),
                          static_cast<std::int16_t>(place.x()), static_cast<std::int16_t>(place.y()),
                          static_cast<std::uint16_t>(place.width()), static_cast<std::uint16_t>(place.height()), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        xcb_map_window(reader->get(), window);
        reader->synchronize();
        return window;
    }
    static void fill(QImage& image, const QRect& area, const QColor& color)
    {
        QPainter painter(&image);
        painter.fillRect(area, color);
    }

    QtMainQueue queue;
    QTemporaryDir folder;
    AppSettings settings{folder.filePath("settings.conf").toStdString()};
    FakeSystemAudio systemAudio;
    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<Scene> scene;
    std::unique_ptr<x11::Connection> reader;
    std::unique_ptr<WindowSystem> platform;
    std::shared_ptr<RegionCapture> capture;
    std::unique_ptr<SharedScreen> sharedScreen;
    std::unique_ptr<CapturedStream> recording;
    StreamConfiguration configuration;
    int sharedFrames = 0;
};

TEST_P(OwnDisplayTest, isRecordedAsItIsShownWhileTheOtherStreamLeavesOwnWindowsOut)
{
    record(firstRegion.size());
    EXPECT_TRUE(showsEverywhere(Scene::pattern(5, {900, 600}).copy(firstRegion)));
    for (const std::uint32_t seed : {6, 7, 8}) {
        scene->repaint("content", seed);
        EXPECT_TRUE(showsEverywhere(Scene::pattern(seed, {900, 600}).copy(firstRegion)));
    }
    QImage expected = Scene::pattern(8, {900, 600}).copy(firstRegion);
    for (int step = 0; step < 10; ++step) {
        const QRect spot(150 + 20 * step, 120 + 10 * step, 30, 20);
        scene->fill("content", spot, QColor(20 * step, 10, 200));
        fill(expected, spot.translated(-firstRegion.topLeft()), QColor(20 * step, 10, 200));
    }
    EXPECT_TRUE(showsEverywhere(expected));

    // A window of this process over the region: on the user's display alone.
    const xcb_window_t own = makeOwnWindow({200, 150, 100, 80});
    ASSERT_TRUE(desktop->waitForPixel(250, 190, ownColor));
    scene->fill("content", {300, 250, 20, 20}, Qt::red);
    fill(expected, QRect(300, 250, 20, 20).translated(-firstRegion.topLeft()), Qt::red);
    EXPECT_TRUE(showsEverywhere(expected));
    EXPECT_EQ(desktop->pixel(250, 190), ownColor) << "it shows all the while";

    // One over the virtual display is in the recording for as long as the display shows it.
    const QRect spot(ownArea().topLeft() + QPoint(20, 30), QSize(60, 50));
    const xcb_window_t card = makeOwnWindow(spot);
    EXPECT_TRUE(pumpUntil([&] { return recording->image() == desktop->screenshot(ownArea()); }));
    xcb_destroy_window(reader->get(), card);
    xcb_destroy_window(reader->get(), own);
    reader->flush();
    EXPECT_TRUE(showsEverywhere(expected));
}

TEST_P(OwnDisplayTest, isFollowedInItsSize)
{
    record(firstRegion.size());
    EXPECT_TRUE(showsEverywhere(Scene::pattern(5, {900, 600}).copy(firstRegion)));
    moveRegion(secondRegion);
    sharedScreen->setRegion(rectOf(secondRegion));
    sharedScreen->regionChangeEnded();
    ASSERT_TRUE(pumpUntil([&] { return ownArea().size() == secondRegion.size(); }, Milliseconds{8000}));
    EXPECT_TRUE(pumpUntil(
        [&] {
            return desktop->screenshot(ownArea()) == Scene::pattern(5, {900, 600}).copy(secondRegion);
        },
        Milliseconds{5000}));
    // The recording keeps its size, and all of the display is in it.
    EXPECT_EQ(recording->image().size(), firstRegion.size());
    configuration.width = secondRegion.width();
    configuration.height = secondRegion.height();
    ASSERT_TRUE(recording->update(configuration));
    EXPECT_TRUE(showsEverywhere(Scene::pattern(5, {900, 600}).copy(secondRegion)));
    EXPECT_TRUE(recording->ends.empty());
}

TEST_P(OwnDisplayTest, costsNothingWhileItIsStillAndEndsWithItsDisplay)
{
    record(firstRegion.size());
    EXPECT_TRUE(showsEverywhere(Scene::pattern(5, {900, 600}).copy(firstRegion)));
    const auto isStill = [&] {
        const int before = recording->frames();
        return !pumpUntil([&] { return recording->frames() != before; }, Milliseconds{700});
    };
    // A compositing manager may still be painting its desktop. Marco paints where our windows were before they went
    // into the overlay window when something else changes, and tells of the rectangle around both.
    EXPECT_TRUE(waitUntil(isStill, Milliseconds{5000}));
    scene->fill("content", {600, 450, 50, 50}, Qt::red);
    PaintWatch regionPaint(std::move(*x11::Connection::open(desktop->displayName())), firstRegion);
    // What changes beside the region changes nothing on the virtual display. Where somebody has painted the region
    // meanwhile, there was nothing still to be looked at.
    constexpr int mostAttempts = 4;
    for (int attempt = 1; attempt <= mostAttempts; ++attempt) {
        EXPECT_TRUE(waitUntil(isStill, Milliseconds{5000}));
        (void)regionPaint.takePainted();
        const int frames = recording->frames();
        const int shared = sharedFrames;
        for (int step = 0; step < 10; ++step) {
            scene->fill("content", {600 + 5 * step, 450, 50, 50}, QColor(20 * step, 0, 0));
            (void)pumpUntil([] { return false; }, Milliseconds{20});
        }
        const int newFrames = recording->frames() - frames;
        const int newShared = sharedFrames - shared;
        if (regionPaint.takePainted() && attempt < mostAttempts)
            continue;
        EXPECT_EQ(newFrames, 0);
        EXPECT_EQ(newShared, 0);
        break;
    }
    const int frames = recording->frames();
    scene->fill("content", {120, 100, 50, 50}, Qt::green);
    EXPECT_TRUE(pumpUntil([&] { return recording->frames() > frames; })) << "the control";
    EXPECT_TRUE(regionPaint.takePainted()) << "the control";

    EXPECT_TRUE(recording->ends.empty());
    capture->onFrame = nullptr;
    sharedScreen.reset();
    EXPECT_TRUE(pumpUntil([&] { return !recording->ends.empty(); }));
    EXPECT_EQ(recording->ends.size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Everywhere, OwnDisplayTest,
    testing::Values(
        Surroundings{"XvncAlone", Server::xvnc, WindowManager::none, Compositor::none},
        Surroundings{"XvncOpenbox", Server::xvnc, WindowManager::openbox, Compositor::none},
        Surroundings{"XvncPicom", Server::xvnc, WindowManager::openbox, Compositor::picom},
        Surroundings{"XvncXfwm4", Server::xvnc, WindowManager::xfwm4, Compositor::none},
        Surroundings{"XvncXfwm4Compositing", Server::xvnc, WindowManager::xfwm4, Compositor::windowManagersOwn},
        Surroundings{"XvncKwinCompositing", Server::xvnc, WindowManager::kwin, Compositor::windowManagersOwn},
        Surroundings{"XvncMutter", Server::xvnc, WindowManager::mutter, Compositor::windowManagersOwn},
        Surroundings{"XvncMarco", Server::xvnc, WindowManager::marco, Compositor::none},
        Surroundings{"XvncMarcoCompositing", Server::xvnc, WindowManager::marco, Compositor::windowManagersOwn},
        Surroundings{"DummyAlone", Server::xorgDummy, WindowManager::none, Compositor::none},
        Surroundings{"DummyOpenbox", Server::xorgDummy, WindowManager::openbox, Compositor::none},
        Surroundings{"DummyPicom", Server::xorgDummy, WindowManager::openbox, Compositor::picom},
        Surroundings{"DummyXfwm4Compositing", Server::xorgDummy, WindowManager::xfwm4, Compositor::windowManagersOwn},
        Surroundings{"DummyKwin", Server::xorgDummy, WindowManager::kwin, Compositor::none},
        Surroundings{"DummyKwinCompositing", Server::xorgDummy, WindowManager::kwin, Compositor::windowManagersOwn},
        Surroundings{"DummyMarcoCompositing", Server::xorgDummy, WindowManager::marco, Compositor::windowManagersOwn}),
    [](const auto& instance) { return instance.param.name; });

} // namespace
} // namespace nimbrale::test
