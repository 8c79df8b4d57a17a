#include "platform/surface.h"

#include <atomic>

namespace nimbrale {

std::uint64_t newSurfaceNumber()
{
    static std::atomic<std::uint64_t> last = 0;
    return ++last;
}

} // namespace nimbrale
