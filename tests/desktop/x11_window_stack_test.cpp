// What is known of panels of this process, as the server's news and their own come in one order or the other.

#include "platform/x11/capture/window_stack.h"
#include "platform/x11/server/handles.h"
#include "tests/support/requirements.h"
#include "tests/support/scene.h"

#include <gtest/gtest.h>
#include <memory>
#include <utility>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;

using x11::PixelRegion;

class X11WindowStackTest : public testing::Test {
protected:
    void SetUp() override
    {
        desktop = requireDesktop({});
        connection = std::move(*x11::Connection::open(desktop->displayName()));
        panels = std::move(*x11::Connection::open(desktop->displayName()));
        panel = panels->newId();
        painted->set(panel, oldPaint);
        const std::uint32_t isUnmanaged = 1;
        xcb_create_window(panels->get(), XCB_COPY_FROM_PARENT, panel, panels->root(), 100, 80, 60, 40, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT, &isUnmanaged);
        xcb_map_window(panels->get(), panel);
        panels->synchronize();
        stack = std::make_unique<x11::WindowStack>(*connection, painted);
        stack->registerHandlers(routes);
    }

    void move(std::uint32_t x, std::uint32_t y)
    {
        const std::uint32_t place[] = {x, y};
        xcb_configure_window(panels->get(), panel, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, place);
        panels->synchronize();
    }

    void handleEvents()
    {
        connection->synchronize();
        while (const x11::Reply<xcb_generic_event_t> event{xcb_poll_for_event(connection->get())})
            routes.deliver(*event);
    }

    static PixelRegion everyCombination()
    {
        PixelRegion every(100, 80, 60, 5);
        every.add(100, 100, 60, 5);
        every.add(110, 90, 60, 5);
        every.add(110, 110, 60, 5);
        return every;
    }

    static inline const PixelRegion oldPaint{0, 0, 60, 5};
    static inline const PixelRegion newPaint{0, 20, 60, 5};
    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<x11::Connection> connection;
    std::unique_ptr<x11::Connection> panels;
    std::shared_ptr<x11::PaintedRegions> painted = std::make_shared<x11::PaintedRegions>();
    xcb_window_t panel = XCB_NONE;
    x11::EventRoutes routes;
    std::unique_ptr<x11::WindowStack> stack;
};

TEST_F(X11WindowStackTest, APanelThatIsPaintedAnewBeforeItsMoveIsHeardOfMayShowAllEverywhere)
{
    move(110, 90);
    painted->set(panel, newPaint);
    stack->takePainted();
    handleEvents();
    EXPECT_EQ(stack->find(panel)->reachLately(), everyCombination());
}

TEST_F(X11WindowStackTest, APanelThatIsPaintedAnewAfterItsMoveIsHeardOfMayShowAllEverywhere)
{
    move(110, 90);
    handleEvents();
    painted->set(panel, newPaint);
    stack->takePainted();
    EXPECT_EQ(stack->find(panel)->reachLately(), everyCombination());
}

TEST_F(X11WindowStackTest, OfAPanelNothingIsLeftOnceItIsProvenOrThePanelIsGone)
{
    move(110, 90);
    handleEvents();
    painted->set(panel, newPaint);
    stack->takePainted();
    const auto later = x11::WindowStack::Clock::now() + 1s;
    stack->releaseTrails(later, {});
    EXPECT_EQ(stack->find(panel)->reachLately(), everyCombination()) << "nothing is proven";
    stack->releaseTrails(later, later);
    EXPECT_EQ(stack->find(panel)->reachLately(), PixelRegion(110, 110, 60, 5));
    move(100, 80);
    handleEvents();
    painted->set(panel, oldPaint);
    stack->takePainted();
    xcb_unmap_window(panels->get(), panel);
    xcb_map_window(panels->get(), panel);
    panels->synchronize();
    handleEvents();
    stack->classifyNew();
    EXPECT_EQ(stack->find(panel)->reachLately(), PixelRegion(100, 80, 60, 5));
}

TEST_F(X11WindowStackTest, OfAPanelThatWasHiddenAndPaintedAnewAllMayBeSeenUntilItIsLookedAt)
{
    xcb_unmap_window(panels->get(), panel);
    painted->set(panel, newPaint);
    xcb_map_window(panels->get(), panel);
    panels->synchronize();
    handleEvents();
    stack->takePainted();
    PixelRegion missed(newPaint);
    missed.translate(100, 80);
    missed -= stack->find(panel)->reachLately();
    EXPECT_TRUE(missed.isEmpty()) << "it is seen";
    stack->classifyNew();
    EXPECT_EQ(stack->find(panel)->reach(), PixelRegion(100, 100, 60, 5));
}

TEST_F(X11WindowStackTest, WhereAPanelWasBeforeItIsLookedAtIsToldWithWhatItIs)
{
    xcb_unmap_window(panels->get(), panel);
    xcb_map_window(panels->get(), panel);
    move(300, 200);
    handleEvents();
    PixelRegion both(100, 80, 60, 40);
    both.add(300, 200, 60, 40);
    PixelRegion missed(both);
    missed -= stack->find(panel)->reachLately();
    EXPECT_TRUE(missed.isEmpty());
    PixelRegion told;
    stack->onChange = [&](const x11::CapturedWindow& window, x11::WindowChange) {
        told |= window.unknownPlaces.region();
    };
    stack->classifyNew();
    PixelRegion untold(100, 80, 60, 40);
    untold -= told;
    EXPECT_TRUE(untold.isEmpty());
    EXPECT_EQ(stack->find(panel)->reachLately(), PixelRegion(300, 200, 60, 5)) << "now whoever listens holds it";
}

TEST_F(X11WindowStackTest, AWindowThatIsDraggedMayBeShownAheadOfWhereItIs)
{
    const xcb_window_t settings = panels->newId();
    const std::uint32_t isUnmanaged = 1;
    xcb_create_window(panels->get(), XCB_COPY_FROM_PARENT, settings, panels->root(), 300, 300, 60, 40, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT, &isUnmanaged);
    xcb_map_window(panels->get(), settings);
    const auto moveTo = [&](std::uint32_t x) {
        xcb_configure_window(panels->get(), settings, XCB_CONFIG_WINDOW_X, &x);
        panels->synchronize();
        handleEvents();
    };
    moveTo(305);
    stack->classifyNew();
    moveTo(300);
    EXPECT_EQ(stack->find(settings)->reach(), PixelRegion(236, 236, 188, 168)) << "with a shadow; nobody drags it";

    const std::uint32_t normal[] = {1, XCB_NONE};
    const xcb_atom_t managed = panels->atom("WM_STATE");
    xcb_change_property(panels->get(), XCB_PROP_MODE_REPLACE, settings, managed, managed, 32, 2, normal);
    panels->synchronize();
    handleEvents();
    stack->classifyNew();
    moveTo(310);
    EXPECT_EQ(stack->find(settings)->reach(), PixelRegion(118, 108, 444, 424));
    const auto moved = std::chrono::steady_clock::now();
    stack->releaseTrails(moved, moved);
    EXPECT_EQ(stack->find(settings)->reach(), PixelRegion(118, 108, 444, 424));
    const auto rested = moved + x11::HeldPlaces::longestLag;
    stack->releaseTrails(rested, rested);
    EXPECT_EQ(stack->find(settings)->reach(), PixelRegion(246, 236, 188, 168));
}

// A busy window manager maps its frame long before it says that it manages what is in there.
TEST_F(X11WindowStackTest, AnOwnWindowThatIsHiddenInAFrameIsToldOfHoweverLateItWasCalledManaged)
{
    const std::unique_ptr<Scene> manager = Scene::start(*desktop);
    ASSERT_TRUE(manager);
    manager->add("frame", {.geometry = {300, 200, 80, 60}});
    xcb_reparent_window(panels->get(), panel, manager->identifier("frame"), 10, 10);
    panels->synchronize();
    stack->setCompositing(x11::Compositing::running);
    handleEvents();
    stack->classifyNew();
    stack->classifyNew();
    ASSERT_TRUE(stack->find(manager->identifier("frame"))->owner.isOwn);
    int hidings = 0;
    stack->onHiding = [&](const x11::CapturedWindow& window) { hidings += window.owner.isOwn ? 1 : 0; };

    const std::uint32_t normal[] = {1, XCB_NONE};
    const xcb_atom_t managed = panels->atom("WM_STATE");
    xcb_change_property(panels->get(), XCB_PROP_MODE_REPLACE, panel, managed, managed, 32, 2, normal);
    const xcb_atom_t hidden = panels->atom("_NET_WM_STATE_HIDDEN");
    xcb_change_property(panels->get(), XCB_PROP_MODE_REPLACE, panel, panels->atom("_NET_WM_STATE"), XCB_ATOM_ATOM, 32,
                        1, &hidden);
    panels->synchronize();
    handleEvents();
    stack->classifyNew();
    EXPECT_EQ(hidings, 1);
}

} // namespace
} // namespace nimbrale::test
