// Other clients that unmap, move, reparent or destroy the windows of the real application: it notices and puts them
// back.

#include "tests/faults/other_clients_fixture.h"

#include <array>
#include <functional>
#include <string>

namespace nimbrale::test {
namespace {

struct Touch {
    std::string name;
    std::function<void(xcb_connection_t* connection, xcb_window_t window)> apply;
};

void configure(xcb_connection_t* connection, xcb_window_t window, std::uint16_t mask, std::uint32_t first,
               std::uint32_t second)
{
    const std::array<std::uint32_t, 2> values{first, second};
    xcb_configure_window(connection, window, mask, values.data());
}

/// A hidden window of this client.
xcb_window_t makeHiddenParent(xcb_connection_t* connection)
{
    const xcb_window_t parent = xcb_generate_id(connection);
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, parent,
                      xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root, 0, 0, 50, 50, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
    return parent;
}

const Touch touches[]{
    {"Unmapped", [](auto* connection, auto window) { xcb_unmap_window(connection, window); }},
    {"Moved", [](auto* connection,
                 auto window) { configure(connection, window, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, 700, 500); }},
    {"Resized",
     [](auto* connection, auto window) {
         configure(connection, window, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, 30, 40);
     }},
    {"Reparented", [](auto* connection,
                      auto window) { xcb_reparent_window(connection, window, makeHiddenParent(connection), 0, 0); }},
    {"DestroyedWithAParent",
     [](auto* connection, auto window) {
         const xcb_window_t parent = makeHiddenParent(connection);
         xcb_reparent_window(connection, window, parent, 0, 0);
         xcb_destroy_window(connection, parent);
     }},
    {"Destroyed", [](auto* connection, auto window) { xcb_destroy_window(connection, window); }},
};

class TouchedWindowsTest : public OtherClientsTest, public testing::WithParamInterface<Touch> {
protected:
    /// The topmost of the application's windows with that size.
    [[nodiscard]] xcb_window_t ownWindowOf(QSize size) const
    {
        for (auto window = ownWindows.rbegin(); window != ownWindows.rend(); ++window) {
            if (areaOf(*window).size() == size)
                return *window;
        }
        return XCB_NONE;
    }

    /// Does it with the server held, so that the damage is seen before the application can do anything about it.
    void touch(xcb_window_t window, const std::function<bool()>& isDamaged)
    {
        ASSERT_NE(window, XCB_NONE);
        xcb_grab_server(desktop->connection());
        GetParam().apply(desktop->connection(), window);
        desktop->synchronize();
        EXPECT_TRUE(isDamaged()) << keepImage(desktop->screenshot(), "touched");
        xcb_ungrab_server(desktop->connection());
        desktop->synchronize();
    }
};

INSTANTIATE_TEST_SUITE_P(Touches, TouchedWindowsTest, testing::ValuesIn(touches),
                         [](const auto& touched) { return touched.param.name; });

TEST_P(TouchedWindowsTest, TheFrameIsPutBack)
{
    constexpr int margin = 24;
    const xcb_window_t frame = ownWindowOf(region.size() + QSize(2 * margin, 2 * margin));
    touch(frame, [&] { return !showsFrameAround(region, Milliseconds{1}); });
    expectEverythingWorks();
}

TEST_P(TouchedWindowsTest, TheSharedWindowIsPutBack)
{
    touch(ownWindowOf(region.size()), [&] { return !isFramedPictureShared(region); });
    expectEverythingWorks();
}

TEST_F(OtherClientsTest, ARivalThatKeepsUnmappingTheFrameNeitherBlocksNorOutlastsIt)
{
    constexpr int margin = 24;
    xcb_window_t frame = XCB_NONE;
    for (const xcb_window_t window : ownWindows) {
        if (areaOf(window).size() == region.size() + QSize(2 * margin, 2 * margin))
            frame = window;
    }
    ASSERT_NE(frame, XCB_NONE);
    int seen = 0;
    for (int round = 0; round < 200; ++round) {
        xcb_unmap_window(desktop->connection(), frame);
        desktop->synchronize();
        seen += showsFrameAround(region, Milliseconds{10}) ? 1 : 0;
    }
    EXPECT_GE(seen, 5) << "it was put back in between";
    EXPECT_LE(seen, 60) << "but not without limit";
    expectEverythingWorks();
}

} // namespace
} // namespace nimbrale::test
