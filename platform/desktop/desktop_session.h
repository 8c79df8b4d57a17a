#pragma once

namespace nimbrale {

/// Whether the environment names a display of that kind. An empty name is none: that is how a program is told to leave
/// one of the two alone.
[[nodiscard]] bool namesX11Display();
[[nodiscard]] bool namesWaylandDisplay();

} // namespace nimbrale
