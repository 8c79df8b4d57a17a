#pragma once

#include "platform/panel.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"

#include <map>
#include <memory>
#include <xcb/xcb.h>

struct xcb_cursor_context_t;

namespace nimbrale::x11 {

/// The pointer's shapes as the user's cursor theme draws them. Main thread only.
class CursorTheme {
public:
    /// `connection` must outlive it.
    explicit CursorTheme(Connection& connection) : connection_(connection) {}
    CursorTheme(const CursorTheme&) = delete;
    CursorTheme& operator=(const CursorTheme&) = delete;

    /// Loaded once per shape; 0, which stands for the parent window's cursor, when the theme has nothing like it.
    [[nodiscard]] xcb_cursor_t cursor(CursorShape shape);

private:
    struct FreeContext {
        void operator()(xcb_cursor_context_t* context) const;
    };

    void open();

    Connection& connection_;
    std::unique_ptr<xcb_cursor_context_t, FreeContext> context_;
    bool wasOpened_ = false;
    std::map<CursorShape, OwnedCursor> cursors_;
};

} // namespace nimbrale::x11
