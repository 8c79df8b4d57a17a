#pragma once

#include "platform/pixel_rect.h"
#include "platform/result.h"
#include "platform/x11/displays/randr_rules.h"
#include "platform/x11/server/connection.h"

#include <string>
#include <vector>
#include <xcb/randr.h>

namespace nimbrale::x11 {

/// Requests that change RandR's layout, sent one behind the other without waiting for any answer, so that they may
/// stand in a server grab. Needs RandR 1.5. Main thread only.
class RandrChange {
public:
    /// `connection` must outlive it.
    explicit RandrChange(Connection& connection) : connection_(connection) {}
    /// Drops the answers that nobody asked for.
    ~RandrChange();
    RandrChange(const RandrChange&) = delete;
    RandrChange& operator=(const RandrChange&) = delete;

    /// `output` is one that the monitor bears, or XCB_NONE. A lit output that is borne by a monitor has none of its
    /// own.
    void setMonitor(xcb_atom_t name, const PixelRect& pixels, const PixelPitch& pitch, xcb_randr_output_t output);
    void deleteMonitor(xcb_atom_t name);
    /// The server moves the edges of panning areas along with the screen's; `pannings`, as they were, puts them back.
    void setScreenSize(int width, int height, const PixelPitch& pitch, const std::vector<RandrPanning>& pannings);
    /// Tells all others of the screen's size, which stays as it is, once more.
    void repeatScreenSize(int width, int height, const PixelPitch& pitch, const std::vector<RandrPanning>& pannings);

    /// Waits until the server has answered all that was sent: what it refused first, if anything. Not within a grab.
    [[nodiscard]] Result<void> finish();

private:
    struct Request {
        xcb_void_cookie_t cookie;
        std::string failure;
    };

    void sendScreenSize(int width, int height, const SizeInMillimeters& size,
                        const std::vector<RandrPanning>& pannings);

    Connection& connection_;
    std::vector<Request> requests_;
};

} // namespace nimbrale::x11
