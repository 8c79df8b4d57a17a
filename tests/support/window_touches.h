#pragma once

#include <array>
#include <functional>
#include <ostream>
#include <string>
#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::test {

/// Something that a client does to a window of another one.
struct WindowTouch {
    std::string name;
    std::function<void(xcb_connection_t* connection, xcb_window_t window)> apply;
};

inline void PrintTo(const WindowTouch& touch, std::ostream* stream)
{
    *stream << touch.name;
}

namespace window_touches {

inline void configure(xcb_connection_t* connection, xcb_window_t window, std::uint16_t mask, std::uint32_t first,
                      std::uint32_t second)
{
    const std::array<std::uint32_t, 2> values{first, second};
    xcb_configure_window(connection, window, mask, values.data());
}

/// A hidden window of this client.
inline xcb_window_t makeHiddenParent(xcb_connection_t* connection)
{
    const xcb_window_t parent = xcb_generate_id(connection);
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, parent,
                      xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root, 0, 0, 50, 50, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
    return parent;
}

/// Every way to take a window away from where its owner put it.
inline std::vector<WindowTouch> all()
{
    return {
        {"Unmapped", [](auto* connection, auto window) { xcb_unmap_window(connection, window); }},
        {"Moved",
         [](auto* connection, auto window) {
             configure(connection, window, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, 700, 500);
         }},
        {"Resized",
         [](auto* connection, auto window) {
             configure(connection, window, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, 30, 40);
         }},
        {"Reparented",
         [](auto* connection, auto window) {
             xcb_reparent_window(connection, window, makeHiddenParent(connection), 0, 0);
         }},
        {"DestroyedWithAParent",
         [](auto* connection, auto window) {
             const xcb_window_t parent = makeHiddenParent(connection);
             xcb_reparent_window(connection, window, parent, 0, 0);
             xcb_destroy_window(connection, parent);
         }},
        {"Destroyed", [](auto* connection, auto window) { xcb_destroy_window(connection, window); }},
    };
}

} // namespace window_touches
} // namespace nimbrale::test
