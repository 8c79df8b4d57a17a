#pragma once

#include "platform/color.h"

namespace nimbrale {

/// The colors of what the application draws on the screen.
struct OverlayColors {
    /// Border and controls at rest.
    Color frame{1.0, 0.84, 0.04, 1.0};
    /// Guides, everything while the frame is dragged or ready to be, and a hovered button.
    Color active{1.0, 0.62, 0.04, 1.0};
    /// The symbol that starts a recording.
    Color recording{1.0, 0.23, 0.19, 1.0};
    /// What the words of labels and tips stand on.
    Color label{0, 0, 0, 1};

    bool operator==(const OverlayColors&) const = default;
};

} // namespace nimbrale
