// What compositing managers are told once more of windows that had a panel's pixels in their memory.

#include "platform/x11/capture/desktop_tracker.h"
#include "tests/desktop/named_manager.h"
#include "tests/desktop/paint_watch.h"
#include "tests/support/requirements.h"
#include "tests/support/scene.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <xcb/composite.h>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;

using x11::PixelRegion;

constexpr QRect panelPlace(200, 150, 120, 90);
constexpr QRect overPanel = panelPlace.adjusted(-20, -10, 100, 60);

class X11PaintedReportTest : public testing::Test {
protected:
    void SetUp() override
    {
        desktop = requireDesktop({});
        scene = requireScene(*desktop);
        panels = std::move(*x11::Connection::open(desktop->displayName()));
        claimCompositing();
    }

    void TearDown() override { tracker.reset(); }

    void follow()
    {
        connection = std::move(*x11::Connection::open(desktop->displayName()));
        tracker = std::make_unique<x11::DesktopTracker>(*connection, nullptr, painted);
        tracker->add(changes);
        addPanel();
        followNews();
    }

    /// As a compositing manager does; the server goes on showing the windows.
    void claimCompositing()
    {
        xcb_connection_t* const raw = panels->get();
        const xcb_window_t manager = panels->newId();
        xcb_create_window(raw, XCB_COPY_FROM_PARENT, manager, panels->root(), -1, -1, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
        // The server tells windows that share memory of each other's damage.
        xcb_composite_redirect_subwindows(raw, panels->root(), XCB_COMPOSITE_REDIRECT_AUTOMATIC);
        xcb_set_selection_owner(raw, manager, panels->atom("_NET_WM_CM_S0"), XCB_CURRENT_TIME);
        panels->synchronize();
    }

    void addPanel()
    {
        panel = panels->newId();
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

    /// Whether all of such a window is reported once it has had the time to paint itself, and how often in all before
    /// that is proven to be shown.
    struct Reports {
        bool isReported = false;
        int count = 0;
    };
    [[nodiscard]] Reports reportsOf(const QRect& geometry)
    {
        scene->add("late", {.geometry = geometry, .seed = 0, .color = Qt::blue});
        followNews();
        PaintWatch watch(std::move(*x11::Connection::open(desktop->displayName())), QRect({0, 0}, geometry.size()),
                         scene->identifier("late"));
        scene->settle();
        raisePanel();
        (void)watch.takePainted();
        followNews();
        EXPECT_FALSE(watch.takePainted()) << "the control: nobody draws in it";
        Reports reports;
        for (int look = 0; look < 5; ++look) {
            tracker->poll(x11::DesktopTracker::Clock::now() + 1s + look * 20ms);
            connection->synchronize();
            const bool isReported = watch.takePainted();
            reports.isReported = reports.isReported || (look == 0 && isReported);
            reports.count += isReported ? 1 : 0;
        }
        return reports;
    }

    /// A light in it is seen.
    void raisePanel()
    {
        const std::uint32_t above = XCB_STACK_MODE_ABOVE;
        xcb_configure_window(panels->get(), panel, XCB_CONFIG_WINDOW_STACK_MODE, &above);
        panels->synchronize();
        followNews();
    }

    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<Scene> scene;
    std::unique_ptr<x11::Connection> panels;
    xcb_window_t panel = XCB_NONE;
    std::unique_ptr<x11::Connection> connection;
    std::shared_ptr<x11::PaintedRegions> painted = std::make_shared<x11::PaintedRegions>();
    x11::ChangeCollector changes{
        [](const x11::CapturedWindow& window) { return !window.needsClassification && !window.owner.isOwn; }};
    std::unique_ptr<x11::DesktopTracker> tracker;
};

TEST_F(X11PaintedReportTest, AWindowThatCameWhereAPanelIsIsReportedToBePainted)
{
    follow();
    const Reports reports = reportsOf(overPanel);
    EXPECT_TRUE(reports.isReported);
    EXPECT_EQ(reports.count, 1);
}

TEST_F(X11PaintedReportTest, OneThatMissesDamageIsToldOfItWithEachLightUntilItIsProven)
{
    const x11::OwnedWindow manager = nameManager(*panels, "Mutter");
    follow();
    EXPECT_GT(reportsOf(overPanel).count, 1);
}

TEST_F(X11PaintedReportTest, AWindowThatCameBesideAPanelIsNot)
{
    follow();
    EXPECT_EQ(reportsOf(panelPlace.translated(300, 0)).count, 0);
}

} // namespace
} // namespace nimbrale::test
