// Any bytes as a display's identification: a name comes of them or none.

#include "platform/x11/displays/edid.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t longestName = 13;
    if (nimbrale::x11::modelNameFromEdid({data, data + size}).size() > longestName)
        std::abort();
    return 0;
}
