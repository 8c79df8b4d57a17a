#pragma once

#include "platform/x11/server/connection.h"

#include <cstdint>
#include <map>
#include <string>

namespace nimbrale::x11 {

/// The desktop's settings for toolkits that are whole numbers, by their names (`integersOf`). Empty where no settings
/// manager runs.
[[nodiscard]] std::map<std::string, std::int32_t> desktopIntegers(Connection& connection);

} // namespace nimbrale::x11
