#pragma once

#include "platform/x11/displays/randr_layout.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/pixel_region.h"

#include <string>
#include <vector>
#include <xcb/randr.h>

namespace nimbrale::x11 {

/// A display as RandR tells of it.
struct RandrDisplay {
    /// Of the monitor or output, the same after the next login.
    std::string name;
    /// What people call it: the model, where the display tells it.
    std::string userName;
    xcb_atom_t nameAtom = XCB_ATOM_NONE;
    bool isPrimary = false;
    PixelRect pixels;
};

/// Reads which displays there are: RandR's monitors, on older servers its outputs, and without RandR the screen.
class RandrDisplays {
public:
    /// Both must outlive it.
    RandrDisplays(Connection& connection, const RandrLayout& layout) : connection_(connection), layout_(layout) {}

    /// Never empty. Waits for the server.
    [[nodiscard]] std::vector<RandrDisplay> read() const;

private:
    [[nodiscard]] std::vector<RandrDisplay> monitors() const;
    [[nodiscard]] std::vector<RandrDisplay> outputs() const;
    [[nodiscard]] RandrDisplay wholeScreen() const;
    [[nodiscard]] std::string modelName(const std::vector<xcb_randr_output_t>& outputs) const;

    Connection& connection_;
    const RandrLayout& layout_;
};

} // namespace nimbrale::x11
