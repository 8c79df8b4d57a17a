#include "platform/x11/panels/cursor_theme.h"

#include <vector>
#include <xcb/xcb_cursor.h>

namespace nimbrale::x11 {

namespace {

/// Themes follow the names of the stylesheet language, of older toolkits or of the X cursor font: the best one first.
std::vector<const char*> themeNames(CursorShape shape)
{
    switch (shape) {
    case CursorShape::arrow:
        return {"left_ptr", "default"};
    case CursorShape::pointingHand:
        return {"pointing_hand", "pointer", "hand2", "hand1"};
    case CursorShape::openHand:
        return {"openhand", "grab", "hand1", "fleur"};
    case CursorShape::closedHand:
        return {"closedhand", "grabbing", "fleur"};
    case CursorShape::resizeBottomRight:
        return {"se-resize", "bottom_right_corner", "size_fdiag", "nwse-resize"};
    }
    return {};
}

} // namespace

CursorTheme::~CursorTheme()
{
    for (const auto& [shape, cursor] : cursors_) {
        if (cursor != XCB_CURSOR_NONE)
            xcb_free_cursor(connection_.get(), cursor);
    }
    if (context_)
        xcb_cursor_context_free(context_);
}

xcb_cursor_t CursorTheme::cursor(CursorShape shape)
{
    const auto known = cursors_.find(shape);
    if (known != cursors_.end())
        return known->second;
    if (!wasOpened_) {
        wasOpened_ = true;
        auto* const screen = const_cast<xcb_screen_t*>(&connection_.screen());
        if (xcb_cursor_context_new(connection_.get(), screen, &context_) < 0)
            context_ = nullptr;
    }
    xcb_cursor_t cursor = XCB_CURSOR_NONE;
    for (const char* const name : themeNames(shape)) {
        if (context_ && cursor == XCB_CURSOR_NONE)
            cursor = xcb_cursor_load_cursor(context_, name);
    }
    cursors_[shape] = cursor;
    return cursor;
}

} // namespace nimbrale::x11
