#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>

namespace nimbrale::x11 {

/// The settings for toolkits that are whole numbers, of what a settings manager has written: by their names, such as
/// "Gdk/WindowScalingFactor". What comes after the first part that is cut off or of an unknown type is left out. The
/// names and the layout are those of the XSETTINGS specification of freedesktop.org.
[[nodiscard]] std::map<std::string, std::int32_t> integersOf(std::span<const std::uint8_t> settings);

} // namespace nimbrale::x11
