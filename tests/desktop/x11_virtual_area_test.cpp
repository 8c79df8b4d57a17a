#include "platform/x11/server/events.h"
#include "tests/desktop/virtual_display_fixture.h"
#include "tests/support/scene.h"

#include <array>
#include <gmock/gmock.h>
#include <xcb/composite.h>
#include <xcb/shape.h>

namespace nimbrale::test {

namespace {

using Compositor = PrivateDesktop::Compositor;
using WindowManager = PrivateDesktop::WindowManager;

class VirtualAreaTest : public VirtualDisplayTest {
protected:
    /// The private desktop's connection becomes one of a compositing manager that has a picture of its own in the whole
    /// overlay: that window.
    xcb_window_t becomeCompositor()
    {
        xcb_connection_t* const raw = desktop_->connection();
        const xcb_window_t curtain = xcb_generate_id(raw);
        const x11::Reply<xcb_composite_get_overlay_window_reply_t> overlay(xcb_composite_get_overlay_window_reply(
            raw, xcb_composite_get_overlay_window(raw, desktop_->screen().root), nullptr));
        if (!overlay) {
            ADD_FAILURE() << "no composite overlay";
            return curtain;
        }
        const std::array<std::uint32_t, 2> values = {0x808080, 1};
        xcb_create_window(raw, XCB_COPY_FROM_PARENT, curtain, overlay->overlay_win, 0, 0, 4000, 4000, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values.data());
        xcb_map_window(raw, curtain);
        xcb_set_selection_owner(raw, curtain, host_->connection->atom("_NET_WM_CM_S0"), XCB_CURRENT_TIME);
        desktop_->synchronize();
        return curtain;
    }
};

struct Managers {
    const char* name;
    WindowManager windowManager;
    Compositor compositor;
    bool usesOverlay;
};

void PrintTo(const Managers& managers, std::ostream* stream)
{
    *stream << managers.name;
}

class CompositedVirtualAreaTest : public VirtualDisplayTest, public testing::WithParamInterface<Managers> {
protected:
    void startComposited()
    {
        start({.width = 1280,
               .height = 720,
               .windowManager = GetParam().windowManager,
               .compositor = GetParam().compositor});
        // A compositor owns its selection before it hears of changes of the screen's size.
        sleepFor(Milliseconds{700});
    }
};

TEST_P(CompositedVirtualAreaTest, WindowsArriveOnTheScreen)
{
    startComposited();
    ASSERT_TRUE(desktop_->isComposited());
    auto device = make(800, 600);
    ASSERT_TRUE(device);
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() || !unusable_.empty(); }));
    ASSERT_EQ(unusable_, "");
    EXPECT_EQ(host_->virtualDisplays->area().usesOverlay(), GetParam().usesOverlay);
    ASSERT_EQ(ours(), QRect(1280, 720, 800, 600));
    ASSERT_EQ(desktop_->screenSize(), QSize(2080, 1320)) << "outside of the screen all is black";
    EXPECT_TRUE(shows({1290, 730}, Qt::black));

    const xcb_window_t window = showWindow({1280, 720, 800, 600}, 0x2060c0);
    EXPECT_TRUE(shows({1300, 740}, QColor(0x20, 0x60, 0xc0)));
    EXPECT_TRUE(shows({2070, 1310}, QColor(0x20, 0x60, 0xc0)));
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() || !unusable_.empty(); }));

    // Bigger, as after a drag of the frame: the window follows the display.
    ASSERT_TRUE(device->applySettings(DisplaysHost::settings(1000, 700)));
    const std::array<std::uint32_t, 2> size = {1000, 700};
    xcb_configure_window(host_->connection->get(), window, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                         size.data());
    host_->connection->flush();
    EXPECT_TRUE(shows({2270, 1410}, QColor(0x20, 0x60, 0xc0)));

    // The card comes out again when the window goes.
    host_->virtualDisplays->area().remove(window);
    xcb_destroy_window(host_->connection->get(), window);
    host_->connection->flush();
    EXPECT_TRUE(shows({1300, 740}, Qt::black));
    device.reset();
    EXPECT_FALSE(host_->virtualDisplays->area().usesOverlay());
    EXPECT_EQ(desktop_->screenSize(), QSize(1280, 720));
    EXPECT_EQ(unusable_, "");
}

TEST_P(CompositedVirtualAreaTest, TheCompositorMayGoAndComeBack)
{
    startComposited();
    auto device = make(800, 600);
    const xcb_window_t window = showWindow({1280, 720, 800, 600}, 0x2060c0);
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() || !unusable_.empty(); }));
    const xcb_window_t other = createWindow(host_->connection->root(), {100, 100, 50, 50}, 0x00ff00);
    xcb_map_window(host_->connection->get(), other);

    ASSERT_TRUE(desktop_->stopCompositor());
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return !desktop_->isComposited(); }));
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() && !host_->virtualDisplays->area().usesOverlay(); }));
    EXPECT_FALSE(host_->virtualDisplays->area().usesOverlay());
    EXPECT_TRUE(shows({1300, 740}, QColor(0x20, 0x60, 0xc0)));
    EXPECT_TRUE(shows({110, 110}, QColor(0x00, 0xff, 0x00)));

    ASSERT_TRUE(desktop_->startCompositor());
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return desktop_->isComposited(); }));
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return !isVerified(); })) << "the new one is probed afresh";
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() || !unusable_.empty(); }));
    EXPECT_EQ(host_->virtualDisplays->area().usesOverlay(), GetParam().usesOverlay);
    EXPECT_TRUE(shows({1300, 740}, QColor(0x20, 0x60, 0xc0)));
    EXPECT_EQ(unusable_, "");
    host_->virtualDisplays->area().remove(window);
}

// Xfwm4 takes the overlay off the screen meanwhile.
TEST_P(CompositedVirtualAreaTest, AWindowThatFillsTheScreenForAWhileHidesNothing)
{
    constexpr Milliseconds longerThanAnyProbe{3500};
    startComposited();
    const auto device = make(800, 600);
    const xcb_window_t window = showWindow({1280, 720, 800, 600}, 0x2060c0);
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() || !unusable_.empty(); }));
    const auto other = requireScene(*desktop_);
    for (const QRect& place : {QRect(0, 0, 1280, 720), QRect(0, 0, 2080, 1320)}) {
        SCOPED_TRACE(place.width());
        other->add("filling", {.geometry = place, .seed = 0, .color = Qt::magenta});
        EXPECT_TRUE(shows({100, 100}, Qt::magenta));
        EXPECT_TRUE(shows({1300, 740}, QColor(0x20, 0x60, 0xc0)));
        // Somebody arranges the displays meanwhile.
        host_->virtualDisplays->area().setPixels({1280, 720, 800, 600}, [] {});
        EXPECT_FALSE(DisplaysHost::pumpUntil([&] { return !unusable_.empty(); }, longerThanAnyProbe));
        EXPECT_TRUE(shows({1300, 740}, QColor(0x20, 0x60, 0xc0)));
        other->unmap("filling");
        sleepFor(Milliseconds{500});
        const xcb_window_t news = createWindow(window, {0, 0, 100, 100}, 0x10a040);
        xcb_map_window(host_->connection->get(), news);
        EXPECT_TRUE(shows({1300, 740}, QColor(0x10, 0xa0, 0x40)));
        EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified(); }));
        EXPECT_EQ(host_->virtualDisplays->area().usesOverlay(), GetParam().usesOverlay);
        xcb_destroy_window(host_->connection->get(), news);
        host_->connection->flush();
    }
    EXPECT_EQ(unusable_, "");
    host_->virtualDisplays->area().remove(window);
}

TEST_F(VirtualAreaTest, ACompositorThatMissedTheNewSizeIsToldOnceMore)
{
    startOnOpenbox();
    // Hides the area until it hears of a change of the root, with a picture behind what others put into the overlay;
    // picom would draw over that too, later.
    becomeCompositor();
    auto device = make(800, 600);
    xcb_connection_t* const raw = desktop_->connection();
    const std::uint32_t structure = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(raw, desktop_->screen().root, XCB_CW_EVENT_MASK, &structure);
    desktop_->synchronize();
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] {
        const x11::Reply<xcb_generic_event_t> event(xcb_poll_for_event(raw));
        if (event && x11::eventType(*event) == XCB_CONFIGURE_NOTIFY &&
            x11::eventAs<xcb_configure_notify_event_t>(*event).window == desktop_->screen().root)
            xcb_composite_release_overlay_window(raw, desktop_->screen().root);
        desktop_->synchronize();
        return isVerified() || !unusable_.empty();
    }));
    EXPECT_EQ(unusable_, "");
    EXPECT_FALSE(host_->virtualDisplays->area().usesOverlay());
    EXPECT_EQ(desktop_->screenSize(), QSize(2080, 1320));
}

TEST_F(VirtualAreaTest, ACompositorThatMissedTheNewSizeIsWorkedAround)
{
    // picom takes no notice of the screen growing while it starts.
    start({.width = 1280, .height = 720, .windowManager = WindowManager::openbox, .compositor = Compositor::picom});
    auto device = make(800, 600);
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() || !unusable_.empty(); }));
    const xcb_window_t window = showWindow({1280, 720, 1000, 700}, 0x2060c0);
    EXPECT_TRUE(shows({2070, 1310}, QColor(0x20, 0x60, 0xc0)));
    ASSERT_TRUE(device->applySettings(DisplaysHost::settings(1000, 700)));
    EXPECT_TRUE(shows({2270, 1410}, QColor(0x20, 0x60, 0xc0)));
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() || !unusable_.empty(); }));
    EXPECT_EQ(unusable_, "");
    host_->virtualDisplays->area().remove(window);
}

TEST_F(VirtualAreaTest, TheCardStaysBehindAWindowThatGivesWayToAnother)
{
    startOnOpenbox();
    const auto device = make(800, 600);
    const xcb_window_t window = showWindow({1280, 720, 800, 600}, 0x2060c0);
    ASSERT_TRUE(shows({1500, 900}, QColor(0x20, 0x60, 0xc0)));
    auto other = Scene::start(*desktop_);
    ASSERT_TRUE(other);
    other->add("other", {.geometry = {0, 0, 100, 100}});
    other->lower("other");
    const std::array<std::uint32_t, 2> below = {other->identifier("other"), XCB_STACK_MODE_BELOW};
    xcb_configure_window(host_->connection->get(), window, XCB_CONFIG_WINDOW_SIBLING | XCB_CONFIG_WINDOW_STACK_MODE,
                         below.data());
    host_->connection->flush();
    sleepFor(Milliseconds{200});
    EXPECT_TRUE(shows({1500, 900}, QColor(0x20, 0x60, 0xc0)));
    host_->virtualDisplays->area().remove(window);
}

TEST_F(VirtualAreaTest, ACompositorThatHidesItEndsIt)
{
    startOnOpenbox();
    // It keeps a picture of its own in front of the whole overlay.
    const xcb_window_t curtain = becomeCompositor();
    xcb_connection_t* const raw = desktop_->connection();
    auto device = make(800, 600);
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    EXPECT_TRUE(DisplaysHost::pumpUntil(
        [&] {
            xcb_configure_window(raw, curtain, XCB_CONFIG_WINDOW_STACK_MODE, &above);
            desktop_->synchronize();
            return !unusable_.empty();
        },
        Milliseconds{20'000}));
    EXPECT_THAT(unusable_, testing::HasSubstr("compositing"));
    EXPECT_FALSE(isVerified());
}

TEST_F(VirtualAreaTest, WhatIsNotSeenWhileTheOverlayIsOffTheScreenEndsNothing)
{
    constexpr Milliseconds longerThanTwoProbes{7500};
    startOnOpenbox();
    xcb_connection_t* const raw = desktop_->connection();
    const xcb_window_t curtain = becomeCompositor();
    const x11::Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(raw, xcb_query_tree(raw, curtain), nullptr));
    ASSERT_TRUE(tree);
    const x11::VirtualArea& area = host_->virtualDisplays->area();
    const auto device = make(800, 600);
    const xcb_window_t window = showWindow({1280, 720, 800, 600}, 0x2060c0);
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() && area.usesOverlay(); }, Milliseconds{8000}));

    // Nothing of a window that is cut away to nothing is seen, wherever it is.
    xcb_shape_rectangles(raw, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, XCB_CLIP_ORDERING_UNSORTED, window, 0, 0, 0,
                         nullptr);
    xcb_unmap_window(raw, tree->parent);
    desktop_->synchronize();
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return !area.usesOverlay(); }));
    EXPECT_FALSE(DisplaysHost::pumpUntil([&] { return area.usesOverlay() || isVerified() || !unusable_.empty(); },
                                         longerThanTwoProbes));

    xcb_shape_mask(raw, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, window, 0, 0, XCB_NONE);
    xcb_map_window(raw, tree->parent);
    desktop_->synchronize();
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified() && area.usesOverlay(); }));
    EXPECT_EQ(unusable_, "");
    host_->virtualDisplays->area().remove(window);
}

TEST_F(VirtualAreaTest, ACompositorThatTakesOverFromAnotherIsProbedAfresh)
{
    startOnOpenbox();
    const auto ownSelection = [this] {
        xcb_connection_t* const raw = desktop_->connection();
        const xcb_window_t owner = xcb_generate_id(raw);
        xcb_create_window(raw, 0, owner, desktop_->screen().root, -1, -1, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                          XCB_COPY_FROM_PARENT, 0, nullptr);
        xcb_set_selection_owner(raw, owner, host_->connection->atom("_NET_WM_CM_S0"), XCB_CURRENT_TIME);
        desktop_->synchronize();
    };
    ownSelection();
    const auto device = make(800, 600);
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified(); }));
    ownSelection();
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return !isVerified(); }));
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified(); }));
    EXPECT_EQ(unusable_, "");
}

INSTANTIATE_TEST_SUITE_P(, CompositedVirtualAreaTest,
                         testing::Values(Managers{"picom", WindowManager::openbox, Compositor::picom, false},
                                         Managers{"marco", WindowManager::marco, Compositor::windowManagersOwn, true},
                                         Managers{"xfwm4", WindowManager::xfwm4, Compositor::windowManagersOwn, true},
                                         Managers{"kwin", WindowManager::kwin, Compositor::windowManagersOwn, true},
                                         Managers{"mutter", WindowManager::mutter, Compositor::windowManagersOwn,
                                                  true}),
                         [](const auto& managers) { return std::string(managers.param.name); });

} // namespace

} // namespace nimbrale::test
