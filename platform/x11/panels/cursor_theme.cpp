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

void CursorTheme::FreeContext::operator()(xcb_cursor_context_t* context) const
{
    xcb_cursor_context_free(context);
}

void CursorTheme::open()
{
    wasOpened_ = true;
    auto* const screen = const_cast<xcb_screen_t*>(&connection_.screen());
    xcb_cursor_context_t* context = nullptr;
    if (xcb_cursor_context_new(connection_.get(), screen, &context) >= 0)
        context_.reset(context);
}

xcb_cursor_t CursorTheme::cursor(CursorShape shape)
{
    const auto known = cursors_.find(shape);
    if (known != cursors_.end())
        return known->second.get();
    if (!wasOpened_)
        open();
    xcb_cursor_t cursor = XCB_CURSOR_NONE;
    for (const char* const name : themeNames(shape)) {
        if (context_ && cursor == XCB_CURSOR_NONE)
            cursor = xcb_cursor_load_cursor(context_.get(), name);
    }
    return cursors_.emplace(shape, OwnedCursor(connection_, cursor)).first->second.get();
}

} // namespace nimbrale::x11
