#include "benchmarks/desktop.h"

#include "benchmarks/measure.h"
#include "tests/support/x_reply.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <xcb/composite.h>
#include <xcb/xcb.h>

namespace nimbrale::benchmarks {

using test::Reply;

namespace {

using Compositor = test::PrivateDesktop::Compositor;
using WindowManager = test::PrivateDesktop::WindowManager;

/// The window manager that composites by itself, none where a program beside does.
WindowManager windowManagerOf(Compositing compositing)
{
    switch (compositing) {
    case Compositing::byServer:
    case Compositing::byPicom:
        break;
    case Compositing::byMarco:
        return WindowManager::marco;
    case Compositing::byXfwm4:
        return WindowManager::xfwm4;
    case Compositing::byKwin:
        return WindowManager::kwin;
    case Compositing::byMutter:
        return WindowManager::mutter;
    }
    return WindowManager::none;
}

Compositor compositorOf(Compositing compositing)
{
    if (compositing == Compositing::byPicom)
        return Compositor::picom;
    return compositing == Compositing::byServer ? Compositor::none : Compositor::windowManagersOwn;
}

xcb_atom_t atomNamed(xcb_connection_t* connection, std::string_view name)
{
    const Reply<xcb_intern_atom_reply_t> atom(xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(name.size()), name.data()), nullptr));
    return atom ? atom->atom : xcb_atom_t{XCB_ATOM_NONE};
}

/// TranslateCoordinates would be one request, but it passes over windows that let clicks through.
std::uint32_t topmostChildAt(const test::PrivateDesktop& desktop, xcb_window_t parent, const QPoint& place)
{
    xcb_connection_t* connection = desktop.connection();
    const Reply<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(connection, xcb_query_tree(connection, parent), nullptr));
    if (!tree)
        return XCB_WINDOW_NONE;
    const std::span<const xcb_window_t> children(xcb_query_tree_children(tree.get()), tree->children_len);
    const auto topmost = std::find_if(children.rbegin(), children.rend(), [&](xcb_window_t window) {
        const Reply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(connection, xcb_get_geometry(connection, window), nullptr));
        const Reply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(connection, xcb_get_window_attributes(connection, window), nullptr));
        return geometry && attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE &&
               QRect(geometry->x, geometry->y, geometry->width, geometry->height).contains(place);
    });
    return topmost == children.rend() ? xcb_window_t{XCB_WINDOW_NONE} : *topmost;
}

} // namespace

std::string nameOf(Compositing compositing)
{
    switch (compositing) {
    case Compositing::byServer:
        break;
    case Compositing::byPicom:
        return "picom";
    case Compositing::byMarco:
        return "marco";
    case Compositing::byXfwm4:
        return "xfwm4";
    case Compositing::byKwin:
        return "KWin";
    case Compositing::byMutter:
        return "mutter";
    }
    return "no compositing manager";
}

std::unique_ptr<test::PrivateDesktop> startDesktop(const QSize& display, Compositing compositing)
{
    test::PrivateDesktop::Options options;
    // On Xvfb mutter takes the largest mode, which leaves the screen no room to grow.
    options.server =
        compositing == Compositing::byMutter ? test::PrivateDesktop::Server::xvnc : test::PrivateDesktop::Server::xvfb;
    options.width = display.width();
    options.height = display.height();
    options.growableTo = display * 2;
    options.compositor = compositorOf(compositing);
    options.windowManager = windowManagerOf(compositing);
    std::string reason;
    std::unique_ptr<test::PrivateDesktop> desktop = test::PrivateDesktop::start(options, reason);
    if (!desktop)
        throw Failure(reason);
    if (compositing != Compositing::byServer &&
        !test::waitUntil([&] { return desktop->compositorProcess() != 0; }, test::Milliseconds{5000}))
        throw Failure(nameOf(compositing) + " does not composite");
    return desktop;
}

namespace {

std::unique_ptr<test::Process> startAnimation(test::PrivateDesktop& desktop, const std::string& mode, const QRect& area,
                                              int framesPerSecond)
{
    return desktop.spawn("nimbrale_animation",
                         {mode, std::to_string(area.x()), std::to_string(area.y()), std::to_string(area.width()),
                          std::to_string(area.height()), std::to_string(framesPerSecond), "0"});
}

} // namespace

std::unique_ptr<test::Process> startContent(test::PrivateDesktop& desktop, const std::string& mode, const QRect& area,
                                            int framesPerSecond)
{
    const std::uint32_t before = windowAt(desktop, area.center());
    std::unique_ptr<test::Process> content = startAnimation(desktop, mode, area, framesPerSecond);
    const bool isShown = content && test::waitUntil([&] { return windowAt(desktop, area.center()) != before; },
                                                    test::Milliseconds{5000});
    if (!isShown)
        throw Failure("the moving content does not show: " + (content ? content->output() : "it is not installed"));
    return content;
}

std::unique_ptr<test::Process> startPointer(test::PrivateDesktop& desktop, const QRect& area, int movesPerSecond)
{
    const QPoint before = desktop.pointerPosition();
    std::unique_ptr<test::Process> pointer = startAnimation(desktop, "pointer", area, movesPerSecond);
    const bool isMoving =
        pointer && test::waitUntil([&] { return desktop.pointerPosition() != before; }, test::Milliseconds{5000});
    if (!isMoving)
        throw Failure("the pointer does not move: " + (pointer ? pointer->output() : "the mover is not installed"));
    return pointer;
}

std::uint32_t windowAt(const test::PrivateDesktop& desktop, const QPoint& place)
{
    return topmostChildAt(desktop, desktop.screen().root, place);
}

std::uint32_t overlayWindowAt(const test::PrivateDesktop& desktop, const QPoint& place)
{
    xcb_connection_t* connection = desktop.connection();
    // Without a manager that draws into it, asking for it would bring it up, in front of everything.
    const xcb_atom_t manager = atomNamed(connection, "_NET_WM_CM_S0");
    const Reply<xcb_get_selection_owner_reply_t> owner(
        xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, manager), nullptr));
    if (!owner || owner->owner == XCB_WINDOW_NONE)
        return XCB_WINDOW_NONE;
    const xcb_window_t root = desktop.screen().root;
    const Reply<xcb_composite_get_overlay_window_reply_t> overlay(xcb_composite_get_overlay_window_reply(
        connection, xcb_composite_get_overlay_window(connection, root), nullptr));
    if (!overlay)
        return XCB_WINDOW_NONE;
    const std::uint32_t window = topmostChildAt(desktop, overlay->overlay_win, place);
    xcb_composite_release_overlay_window(connection, root);
    return window;
}

} // namespace nimbrale::benchmarks
