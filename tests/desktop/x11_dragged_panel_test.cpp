// A panel that grows over the whole display for a drag, as the frame does: nothing of it is in a picture, what the
// capture itself draws into it included.

#include "tests/desktop/captured_desktop.h"
#include "tests/desktop/own_pixel_watch.h"
#include "tests/desktop/panel_host.h"

namespace nimbrale::test {
namespace {

using WindowManager = PrivateDesktop::WindowManager;

constexpr QRect region(100, 80, 600, 450);
constexpr int bandHeight = 10;

class X11DraggedPanelTest : public PanelTest, public testing::WithParamInterface<WindowManager> {
protected:
    void SetUp() override
    {
        startDesktop({.windowManager = GetParam(), .compositor = PrivateDesktop::Compositor::windowManagersOwn});
        scene = requireScene(*desktop);
        // Not the whole display, which only a locker would cover.
        scene->add("backdrop", {.geometry = {0, 0, 1280, 700}, .seed = 0, .color = QColor(40, 120, 60)});
        captured = std::make_unique<CapturedDesktop>(*desktop);
        host = std::make_unique<PanelHost>(*desktop, captured->sharedPainted());
        panel = host->makePanel({double(place.x()), double(place.y()), double(place.width()), double(place.height())});
        band = std::make_shared<Layer>();
        band->setBackgroundColor(Color{1, 0, 1, 1});
        panel->rootLayer().addSublayer(band);
        showBand();
        panel->orderFront();
        captured->start({double(region.x()), double(region.y()), double(region.width()), double(region.height())});
        ASSERT_TRUE(captured->pumpUntil([&] {
            host->pump();
            return isBandOnScreen();
        })) << "the control: the panel is seen";
        captured->settle();
    }

    void TearDown() override
    {
        band.reset();
        panel.reset();
        host.reset();
        captured.reset();
        scene.reset();
        PanelTest::TearDown();
    }

    /// Where it is on the screen, whatever of the screen the panel covers.
    void showBand()
    {
        const QPoint corner = bandPlace.topLeft() - place.topLeft();
        band->setFrame({double(corner.x()), double(corner.y()), double(bandPlace.width()), double(bandPlace.height())});
    }

    void setPlace(const QRect& newPlace)
    {
        const LayerTransaction transaction(panel->rootLayer());
        place = newPlace;
        panel->setFrame(
            host->onScreen({double(place.x()), double(place.y()), double(place.width()), double(place.height())}));
        showBand();
    }

    void pumpFor(Milliseconds duration)
    {
        host->pump();
        captured->pumpFor(duration);
    }

    void expectNothingInAnyOfThem()
    {
        EXPECT_TRUE(captured->pumpUntil([&] { return isBandOnScreen(); })) << "the control: it would have been seen";
        captured->onFrame = nullptr;
        watch.expectNoneFound(100);
    }

    [[nodiscard]] bool isBandOnScreen() const { return ownPixels(desktop->screenshot(bandPlace)) > 3000; }

    std::unique_ptr<Scene> scene;
    std::unique_ptr<CapturedDesktop> captured;
    std::unique_ptr<Panel> panel;
    std::shared_ptr<Layer> band;
    /// In root pixels.
    QRect place{150, 200, 320, 90};
    QRect bandPlace{150, 280, 320, 10};
    OwnPixelWatch watch;
};

TEST_P(X11DraggedPanelTest, NothingOfItIsInAPicture)
{
    watch.watch(*captured);
    for (int round = 0; round < 6; ++round) {
        for (int step = 0; step < 10; ++step) {
            scene->fill("backdrop", {200 + 10 * step, 150, 30, 30}, QColor(20 * step, 200, 40));
            bandPlace.translate(1, 1);
            setPlace(place.translated(1, 1));
            pumpFor(Milliseconds{16});
        }
        const QRect before = place;
        setPlace({0, 0, 1280, 720});
        for (int step = 0; step < 30; ++step) {
            scene->fill("backdrop", {130 + 10 * step, 100, 400, 300}, QColor(8 * step, 200, 40));
            bandPlace.translate(round % 2 ? -4 : 4, round % 2 ? -3 : 3);
            showBand();
            pumpFor(Milliseconds{16});
        }
        setPlace({bandPlace.topLeft() - QPoint(0, 80), before.size()});
        pumpFor(Milliseconds{50});
    }
    expectNothingInAnyOfThem();
}

// What proves how far the compositing manager has got is a pixel in the band. The band leaves it, and the panel takes
// it along.
TEST_P(X11DraggedPanelTest, APixelThatIsLeftBareAndMovesOnIsInNoPicture)
{
    watch.watch(*captured);
    for (int round = 0; round < 12; ++round) {
        for (int step = 0; step < 4; ++step) {
            scene->fill("backdrop", {200 + 10 * step, 150, 30, 30}, QColor(20 * step, 200, 40));
            bandPlace.translate(0, round % 2 ? 15 : -15);
            showBand();
            pumpFor(Milliseconds{16});
        }
        for (int step = 0; step < 12; ++step) {
            const QPoint move = round % 2 ? QPoint(-6, -4) : QPoint(6, 4);
            bandPlace.translate(move);
            setPlace(place.translated(move));
            pumpFor(Milliseconds{16});
        }
    }
    expectNothingInAnyOfThem();
}

INSTANTIATE_TEST_SUITE_P(, X11DraggedPanelTest,
                         testing::Values(WindowManager::marco, WindowManager::xfwm4, WindowManager::kwin,
                                         WindowManager::mutter),
                         [](const auto& manager) { return PrivateDesktop::managerName(manager.param); });

} // namespace
} // namespace nimbrale::test
