// What compositing managers are told once more of windows that had a panel's pixels in their memory.

#include "platform/x11/capture/desktop_tracker.h"
#include "tests/desktop/paint_watch.h"
#include "tests/support/requirements.h"
#include "tests/support/scene.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;

using x11::PixelRegion;

constexpr QRect panelPlace(200, 150, 120, 90);

class X11PaintedReportTest : public testing::Test {
protected:
    void SetUp() override
    {
        desktop = requireDesktop({});
        scene = requireScene(*desktop);
        panels = std::move(*x11::Connection::open(desktop->displayName()));
        claimCompositing();
        connection = std::move(*x11::Connection::open(desktop->displayName()));
        tracker = std::make_unique<x11::DesktopTracker>(*connection, nullptr, painted);
        tracker->add(changes);
        addPanel();
        followNews();
    }

    void TearDown() override { tracker.reset(); }

    /// As a compositing manager does; the server goes on showing the windows.
    void claimCompositing()
    {
        xcb_connection_t* const raw = panels->get();
        const xcb_window_t manager = panels->newId();
        xcb_create_window(raw, XCB_COPY_FROM_PARENT, manager, panels->root(), -1, -1, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
        xcb_set_selection_owner(raw, manager, panels->atom("_NET_WM_CM_S0"), XCB_CURRENT_TIME);
        panels->synchronize();
    }

    void addPanel()
    {
        const xcb_window_t panel = panels->newId();
        painted->set(panel, PixelRegion(0, 0, panelPlace.width(), panelPlace.height()));
        const std::uint32_t isUnmanaged = 1;
        xcb_create_window(panels->get(), XCB_COPY_FROM_PARENT, panel, panels->root(), std::int16_t(panelPlace.x()),
                          std::int16_t(panelPlace.y()), std::uint16_t(panelPlace.width()),
                          std::uint16_t(panelPlace.height()), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_OVERRIDE_REDIRECT, &isUnmanaged);
        xcb_map_window(panels->get(), panel);
        panels->synchronize();
    }

    void followNews()
    {
        connection->synchronize();
        tracker->handleEvents();
        tracker->classifyNewWindows();
        tracker->poll(x11::DesktopTracker::Clock::now());
    }

    /// Whether all of such a window is reported once it has had the time to paint itself.
    [[nodiscard]] bool isReported(const QRect& geometry)
    {
        scene->add("late", {.geometry = geometry, .seed = 0, .color = Qt::blue});
        followNews();
        PaintWatch watch(std::move(*x11::Connection::open(desktop->displayName())), QRect({0, 0}, geometry.size()),
                         scene->identifier("late"));
        scene->settle();
        (void)watch.takePainted();
        followNews();
        EXPECT_FALSE(watch.takePainted()) << "the control: nobody draws in it";
        tracker->poll(x11::DesktopTracker::Clock::now() + 1s);
        connection->synchronize();
        return watch.takePainted();
    }

    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<Scene> scene;
    std::unique_ptr<x11::Connection> panels;
    std::unique_ptr<x11::Connection> connection;
    std::shared_ptr<x11::PaintedRegions> painted = std::make_shared<x11::PaintedRegions>();
    x11::ChangeCollector changes{
        [](const x11::CapturedWindow& window) { return !window.needsClassification && !window.owner.isOwn; }};
    std::unique_ptr<x11::DesktopTracker> tracker;
};

TEST_F(X11PaintedReportTest, AWindowThatCameWhereAPanelIsIsReportedToBePainted)
{
    EXPECT_TRUE(isReported(panelPlace.adjusted(-20, -10, 100, 60)));
}

TEST_F(X11PaintedReportTest, AWindowThatCameBesideAPanelIsNot)
{
    EXPECT_FALSE(isReported(panelPlace.translated(300, 0)));
}

} // namespace
} // namespace nimbrale::test
