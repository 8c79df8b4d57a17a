#pragma once

#include "platform/x11/server/connection.h"

#include <cstdint>
#include <map>
#include <span>
#include <string>

namespace nimbrale::x11 {

/// The desktop's settings for toolkits that are whole numbers, by their names, such as "Gdk/WindowScalingFactor". Empty
/// where no settings manager runs. The names and the layout are those of the XSETTINGS specification of
/// freedesktop.org.
[[nodiscard]] std::map<std::string, std::int32_t> desktopIntegers(Connection& connection);

/// The same from what a settings manager has written. What comes after the first part that is cut off or of an unknown
/// type is left out.
[[nodiscard]] std::map<std::string, std::int32_t> integersOf(std::span<const std::uint8_t> settings);

} // namespace nimbrale::x11
