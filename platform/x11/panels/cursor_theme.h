#pragma once

#include "platform/panel.h"
#include "platform/x11/server/connection.h"

#include <map>
#include <xcb/xcb.h>

struct xcb_cursor_context_t;

namespace nimbrale::x11 {

/// The pointer's shapes as the user's cursor theme draws them. Main thread only.
class CursorTheme {
public:
    /// `connection` must outlive it.
    explicit CursorTheme(Connection& connection) : connection_(connection) {}
    ~CursorTheme();
    CursorTheme(const CursorTheme&) = delete;
    CursorTheme& operator=(const CursorTheme&) = delete;

    /// Loaded once per shape; 0, which stands for the parent window's cursor, when the theme has nothing like it.
    [[nodiscard]] xcb_cursor_t cursor(CursorShape shape);

private:
    Connection& connection_;
    xcb_cursor_context_t* context_ = nullptr;
    bool wasOpened_ = false;
    std::map<CursorShape, xcb_cursor_t> cursors_;
};

} // namespace nimbrale::x11
