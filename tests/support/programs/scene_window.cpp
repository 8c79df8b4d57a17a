#include "tests/support/programs/scene_window.h"

#include "tests/support/scene_pattern.h"
#include "tests/support/x_reply.h"

#include <array>
#include <cmath>
#include <unistd.h>
#include <xcb/shape.h>

namespace nimbrale::test {

namespace {

xcb_visualid_t visualOfDepth(const xcb_screen_t& screen, std::uint8_t depth)
{
    for (auto each = xcb_screen_allowed_depths_iterator(&screen); each.rem; xcb_depth_next(&each)) {
        if (each.data->depth == depth && xcb_depth_visuals_length(each.data) > 0)
            return xcb_depth_visuals(each.data)[0].visual_id;
    }
    return screen.root_visual;
}

} // namespace

SceneWindow::SceneWindow(xcb_connection_t* connection, const xcb_screen_t& screen, SceneWindowOptions options)
    : connection_(connection), screen_(screen), options_(std::move(options)), window_(xcb_generate_id(connection)),
      context_(xcb_generate_id(connection))
{
    if (options_.depth == 0)
        options_.depth = screen.root_depth;
    xcb_visualid_t visual = screen.root_visual;
    xcb_colormap_t colors = screen.default_colormap;
    if (options_.depth != screen.root_depth) {
        visual = visualOfDepth(screen, options_.depth);
        colors = xcb_generate_id(connection);
        xcb_create_colormap(connection, XCB_COLORMAP_ALLOC_NONE, colors, screen.root, visual);
    }
    // In the order of the bits of the mask.
    const std::array<std::uint32_t, 5> values{pixelOf(options_.color), pixelOf(0xff808080), options_.isUnmanaged,
                                              XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_STRUCTURE_NOTIFY |
                                                  XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_FOCUS_CHANGE,
                                              colors};
    xcb_create_window(connection, options_.depth, window_, screen.root, options_.x, options_.y, options_.width,
                      options_.height, options_.borderWidth, XCB_WINDOW_CLASS_INPUT_OUTPUT, visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK |
                          XCB_CW_COLORMAP,
                      values.data());
    const std::uint32_t noExposures = 0;
    xcb_create_gc(connection, context_, window_, XCB_GC_GRAPHICS_EXPOSURES, &noExposures);
    setProperties();
    if (options_.isRound)
        makeRound();
    if (options_.isMapped)
        map();
}

SceneWindow::~SceneWindow()
{
    xcb_free_gc(connection_, context_);
    xcb_destroy_window(connection_, window_);
}

void SceneWindow::setProperties()
{
    const auto nameLength = static_cast<std::uint32_t>(options_.name.size());
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8, nameLength,
                        options_.name.data());
    const std::string windowClass = options_.name + std::string(1, '\0') + "Scene" + std::string(1, '\0');
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                        static_cast<std::uint32_t>(windowClass.size()), windowClass.data());
    // The position is the user's wish, and the window takes the keyboard.
    constexpr std::uint32_t userPosition = 1;
    constexpr std::uint32_t programPosition = 4;
    const std::array<std::uint32_t, 18> sizeHints{userPosition | programPosition};
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_, XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS,
                        32, sizeHints.size(), sizeHints.data());
    const std::array<std::uint32_t, 9> hints{1, 1};
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_, XCB_ATOM_WM_HINTS, XCB_ATOM_WM_HINTS, 32,
                        hints.size(), hints.data());
    const auto process = static_cast<std::uint32_t>(getpid());
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_, atom("_NET_WM_PID"), XCB_ATOM_CARDINAL, 32, 1,
                        &process);
    if (options_.type == "notification")
        setAtom("_NET_WM_WINDOW_TYPE", "_NET_WM_WINDOW_TYPE_NOTIFICATION");
    else if (options_.type == "dock")
        setAtom("_NET_WM_WINDOW_TYPE", "_NET_WM_WINDOW_TYPE_DOCK");
    else if (options_.type == "desktop")
        setAtom("_NET_WM_WINDOW_TYPE", "_NET_WM_WINDOW_TYPE_DESKTOP");
    else
        setAtom("_NET_WM_WINDOW_TYPE", "_NET_WM_WINDOW_TYPE_NORMAL");
    if (options_.isFullScreen)
        setAtom("_NET_WM_STATE", "_NET_WM_STATE_FULLSCREEN");
}

void SceneWindow::makeRound()
{
    std::vector<xcb_rectangle_t> rows;
    for (int y = 0; y < options_.height; ++y) {
        const double height = 2.0 * y / options_.height - 1;
        const int half = static_cast<int>(options_.width / 2.0 * std::sqrt(1 - height * height));
        if (half > 0) {
            rows.push_back({static_cast<std::int16_t>(options_.width / 2 - half), static_cast<std::int16_t>(y),
                            static_cast<std::uint16_t>(2 * half), 1});
        }
    }
    xcb_shape_rectangles(connection_, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, XCB_CLIP_ORDERING_UNSORTED, window_, 0,
                         0, static_cast<std::uint32_t>(rows.size()), rows.data());
}

void SceneWindow::paint()
{
    if (options_.seed == 0) {
        fill({0, 0, options_.width, options_.height}, options_.color);
        return;
    }
    for (int y = 0, row = 0; y < options_.height; y += patternCellHeight, ++row) {
        for (int x = 0, column = 0; x < options_.width; x += patternCellWidth, ++column) {
            const std::uint32_t opaque = options_.depth == 32 ? 0U : 0xff000000U;
            fill({static_cast<std::int16_t>(x), static_cast<std::int16_t>(y), patternCellWidth, patternCellHeight},
                 patternColor(options_.seed, column, row) | opaque);
        }
    }
}

void SceneWindow::repaint(std::uint32_t seed)
{
    options_.seed = seed;
    paint();
}

void SceneWindow::fill(const xcb_rectangle_t& area, std::uint32_t color)
{
    const std::uint32_t pixel = pixelOf(color);
    xcb_change_gc(connection_, context_, XCB_GC_FOREGROUND, &pixel);
    xcb_poly_fill_rectangle(connection_, window_, context_, 1, &area);
}

void SceneWindow::resized(std::uint16_t width, std::uint16_t height)
{
    if (options_.width == width && options_.height == height)
        return;
    options_.width = width;
    options_.height = height;
    paint();
}

void SceneWindow::configure(std::uint16_t mask, const std::vector<std::uint32_t>& values)
{
    xcb_configure_window(connection_, window_, mask, values.data());
}

void SceneWindow::map()
{
    xcb_map_window(connection_, window_);
}

void SceneWindow::unmap()
{
    xcb_unmap_window(connection_, window_);
}

std::uint32_t SceneWindow::pixelOf(std::uint32_t color) const
{
    const std::uint32_t alpha = color >> 24;
    const std::uint32_t red = color >> 16 & 255U;
    const std::uint32_t green = color >> 8 & 255U;
    const std::uint32_t blue = color & 255U;
    switch (options_.depth) {
    case 32:
        return alpha << 24 | (red * alpha / 255) << 16 | (green * alpha / 255) << 8 | blue * alpha / 255;
    case 30:
        return red << 22 | green << 12 | blue << 2;
    case 16:
        return (red >> 3) << 11 | (green >> 2) << 5 | blue >> 3;
    default:
        return color & 0xffffffU;
    }
}

xcb_atom_t SceneWindow::atom(const std::string& name) const
{
    const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        connection_, xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.data()), nullptr));
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

void SceneWindow::setAtom(const std::string& property, const std::string& value)
{
    const xcb_atom_t valueAtom = atom(value);
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_, atom(property), XCB_ATOM_ATOM, 32, 1, &valueAtom);
}

} // namespace nimbrale::test
