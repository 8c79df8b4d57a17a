// Any bytes as what a settings manager has written for toolkits: every number that comes of them has a name that is
// there, and what is cut off takes nothing that was there before.

#include "platform/x11/displays/desktop_settings.h"

#include <cstdint>
#include <cstdlib>
#include <span>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // Type, length of the name, serial and value.
    constexpr std::size_t shortestSetting = 12;
    const std::span<const std::uint8_t> settings(data, size);
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto found = nimbrale::x11::integersOf(settings);
    if (found.size() > size / shortestSetting)
        std::abort();
    for (const auto& [name, value] : found) {
        if (text.find(name) == std::string_view::npos)
            std::abort();
    }
    for (const auto& [name, value] : nimbrale::x11::integersOf(settings.first(size / 2))) {
        if (!found.contains(name))
            std::abort();
    }
    return 0;
}
