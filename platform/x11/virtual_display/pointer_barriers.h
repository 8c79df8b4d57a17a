#pragma once

#include "platform/pixel_rect.h"
#include "platform/x11/server/connection.h"

#include <vector>
#include <xcb/xfixes.h>

namespace nimbrale::x11 {

/// Keeps the pointer from wandering into a rectangle. The server does so itself where displays lie edge to edge, but
/// not where there is a gap between them. A pointer that is inside gets out freely, and programs may still put it
/// there. Main thread only.
class PointerBarriers {
public:
    explicit PointerBarriers(Connection& connection);
    /// Takes the barriers away.
    ~PointerBarriers();
    PointerBarriers(const PointerBarriers&) = delete;
    PointerBarriers& operator=(const PointerBarriers&) = delete;

    /// Pixels of the root; an empty rectangle takes the barriers away.
    void surround(const PixelRect& area);

private:
    Connection& connection_;
    PixelRect area_;
    std::vector<xcb_xfixes_barrier_t> barriers_;
};

} // namespace nimbrale::x11
