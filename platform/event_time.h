#pragma once

#include <cstdint>

namespace nimbrale {

/// When the user did something, in milliseconds of the window system's clock, which starts anywhere and wraps.
using EventTime = std::uint32_t;

} // namespace nimbrale
