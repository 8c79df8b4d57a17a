#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace nimbrale::x11 {

/// The model name that a display tells in its identification block; empty when it tells none or the block is broken.
[[nodiscard]] std::string modelNameFromEdid(const std::vector<std::uint8_t>& edid);

} // namespace nimbrale::x11
