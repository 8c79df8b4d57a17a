// Other clients that touch the windows of the card, which a viewer of the virtual display sees last: they are put back.

#include "tests/desktop/virtual_display_fixture.h"
#include "tests/support/image_compare.h"
#include "tests/support/scene.h"
#include "tests/support/window_touches.h"

#include <algorithm>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

namespace nimbrale::test {
namespace {

using WindowManager = PrivateDesktop::WindowManager;

class BackdropCardTest : public VirtualDisplayTest {
protected:
    void startWithCard(WindowManager windowManager)
    {
        const bool composites = windowManager != WindowManager::openbox;
        start({.width = 1280,
               .height = 720,
               .windowManager = windowManager,
               .compositor =
                   composites ? PrivateDesktop::Compositor::windowManagersOwn : PrivateDesktop::Compositor::none});
        scene_ = makeLoud();
        device_ = make(800, 600);
        ASSERT_TRUE(device_);
        ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isWhole(place) && isVerified(); }));
        // A compositing manager that paints nothing there.
        if (composites) {
            ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return host_->virtualDisplays->area().usesOverlay(); }));
        }
        ASSERT_TRUE(shows({place.left() + 5, place.top() + 5}, Qt::black));
        ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return hasText(shown()); })) << keepImage(shown(), "card");
        intact_ = shown();
    }

    void TearDown() override
    {
        device_.reset();
        scene_.reset();
    }

    [[nodiscard]] QImage shown() const { return desktop_->screenshot(place); }

    [[nodiscard]] static bool hasText(const QImage& image)
    {
        for (int x = 0; x < image.width(); ++x) {
            if (qRed(image.pixel(x, image.height() / 2)) > 200 && qBlue(image.pixel(x, image.height() / 2)) > 200)
                return true;
        }
        return false;
    }

    /// The card as it is recorded for whoever removes it when this process is gone.
    [[nodiscard]] xcb_window_t recordedCard() const
    {
        xcb_connection_t* const raw = desktop_->connection();
        const x11::Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
            raw,
            xcb_get_property(raw, 0, desktop_->screen().root, host_->connection->atom("_NIMBRALE_VIRTUAL_DISPLAY"),
                             XCB_ATOM_CARDINAL, 0, 4),
            nullptr));
        return reply && reply->value_len == 4
                   ? static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()))[3]
                   : xcb_window_t{XCB_WINDOW_NONE};
    }

    [[nodiscard]] std::vector<xcb_window_t> childrenOf(xcb_window_t window) const
    {
        xcb_connection_t* const raw = desktop_->connection();
        const x11::Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(raw, xcb_query_tree(raw, window), nullptr));
        if (!tree)
            return {};
        const xcb_window_t* const children = xcb_query_tree_children(tree.get());
        return {children, children + xcb_query_tree_children_length(tree.get())};
    }

    /// What lies in front of everything else on the root but the card, all over the virtual display.
    [[nodiscard]] xcb_window_t shade() const
    {
        const std::vector<xcb_window_t> children = childrenOf(desktop_->screen().root);
        const auto found = std::find_if(children.rbegin(), children.rend(), [&](xcb_window_t window) {
            return window != recordedCard() && covers(window);
        });
        return found == children.rend() ? xcb_window_t{XCB_WINDOW_NONE} : *found;
    }

    [[nodiscard]] bool covers(xcb_window_t window) const
    {
        xcb_connection_t* const raw = desktop_->connection();
        const x11::Reply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(raw, xcb_get_window_attributes(raw, window), nullptr));
        const x11::Reply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(raw, xcb_get_geometry(raw, window), nullptr));
        return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE && geometry && geometry->x == place.x() &&
               geometry->y == 0 && geometry->width == place.width() && geometry->height == place.bottom() + 1;
    }

    /// Does it with the server held, so that the damage is seen before it can be repaired.
    void touch(const WindowTouch& how, xcb_window_t window, const std::function<bool()>& isDamaged)
    {
        ASSERT_NE(window, XCB_WINDOW_NONE);
        windowsBefore_ = childrenOf(desktop_->screen().root).size();
        xcb_grab_server(desktop_->connection());
        how.apply(desktop_->connection(), window);
        desktop_->synchronize();
        EXPECT_TRUE(isDamaged()) << keepImage(shown(), "touched");
        xcb_ungrab_server(desktop_->connection());
        desktop_->synchronize();
    }

    void expectPutBack()
    {
        EXPECT_TRUE(DisplaysHost::pumpUntil([&] {
            return shown() == intact_ && covers(recordedCard()) && covers(shade()) && recordedCard() != shade();
        })) << keepImage(shown(), "card");
        EXPECT_TRUE(DisplaysHost::pumpUntil([&] {
            // The touch itself may have left a window of its own.
            return childrenOf(desktop_->screen().root).size() <= windowsBefore_ + 1;
        }));
        EXPECT_EQ(host_->connection->property32(recordedCard(), host_->connection->atom("_NIMBRALE_LASTING"),
                                                XCB_ATOM_WINDOW),
                  recordedCard());
        EXPECT_EQ(unusable_, "");
    }

    static constexpr QRect place{1280, 720, 800, 600};

    std::unique_ptr<Scene> scene_;
    std::unique_ptr<VirtualDisplayDevice> device_;
    QImage intact_;
    std::size_t windowsBefore_ = 0;
};

class TouchedCardTest : public BackdropCardTest,
                        public testing::WithParamInterface<std::tuple<WindowTouch, WindowManager>> {
protected:
    void SetUp() override { startWithCard(std::get<WindowManager>(GetParam())); }

    [[nodiscard]] static const WindowTouch& how() { return std::get<WindowTouch>(GetParam()); }
};

TEST_P(TouchedCardTest, TheCardIsPutBack)
{
    touch(how(), recordedCard(), [&] { return shown() != intact_ || !covers(recordedCard()); });
    expectPutBack();
}

TEST_P(TouchedCardTest, WhatIsBehindTheCardIsPutBack)
{
    const xcb_window_t before = shade();
    touch(how(), before, [&] { return shade() != before; });
    expectPutBack();
}

TEST_P(TouchedCardTest, TheTextIsPutBack)
{
    const std::vector<xcb_window_t> children = childrenOf(recordedCard());
    ASSERT_EQ(children.size(), 1U);
    touch(how(), children.front(), [&] { return shown() != intact_ || childrenOf(recordedCard()) != children; });
    expectPutBack();
}

INSTANTIATE_TEST_SUITE_P(Touches, TouchedCardTest,
                         testing::Combine(testing::ValuesIn(window_touches::all()),
                                          testing::Values(WindowManager::openbox, WindowManager::kwin)),
                         [](const auto& touched) {
                             const bool isOpenbox = std::get<WindowManager>(touched.param) == WindowManager::openbox;
                             return std::get<WindowTouch>(touched.param).name + (isOpenbox ? "Openbox" : "Kwin");
                         });

TEST_F(BackdropCardTest, ACardThatAnotherClientRaisesGoesBehindThePictureAgain)
{
    startWithCard(WindowManager::openbox);
    const QColor color(0x20, 0x60, 0xc0);
    const xcb_window_t window = showWindow({1280, 720, 800, 600}, 0x2060c0);
    ASSERT_TRUE(shows({1300, 740}, color));
    const WindowTouch raise{"Raised", [](xcb_connection_t* connection, xcb_window_t card) {
                                const std::uint32_t above = XCB_STACK_MODE_ABOVE;
                                xcb_configure_window(connection, card, XCB_CONFIG_WINDOW_STACK_MODE, &above);
                            }};
    touch(raise, recordedCard(), [&] { return shown() == intact_; });
    EXPECT_TRUE(shows({1300, 740}, color));
    EXPECT_TRUE(shows({2070, 1310}, color));
    host_->virtualDisplays->area().remove(window);
}

TEST_F(BackdropCardTest, ARivalThatKeepsUnmappingTheCardNeitherBlocksNorOutlastsIt)
{
    startWithCard(WindowManager::openbox);
    int remade = 0;
    for (int round = 0; round < 200; ++round) {
        const xcb_window_t card = recordedCard();
        xcb_unmap_window(desktop_->connection(), card);
        desktop_->synchronize();
        DisplaysHost::pumpFor(Milliseconds{5});
        remade += recordedCard() != card ? 1 : 0;
    }
    EXPECT_GE(remade, 5) << "it was put back in between";
    EXPECT_LE(remade, 60) << "but not without limit";
    windowsBefore_ = childrenOf(desktop_->screen().root).size();
    expectPutBack();
}

} // namespace
} // namespace nimbrale::test
