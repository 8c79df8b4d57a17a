#include "tests/support/scene_pattern.h"

namespace nimbrale::test {

namespace {

bool isInIsland(int cell)
{
    const int position = cell % islandDistance;
    return position >= islandStart && position < islandStart + islandSize;
}

} // namespace

std::uint32_t patternColor(std::uint32_t seed, int column, int row)
{
    std::uint32_t mixed =
        seed * 2654435761U + static_cast<std::uint32_t>(column) * 40503U + static_cast<std::uint32_t>(row) * 69069U;
    mixed ^= mixed >> 13;
    mixed *= 0x5bd1e995U;
    mixed ^= mixed >> 15;
    const bool isIsland = (seed & islandPattern) && isInIsland(column) && isInIsland(row);
    if ((seed & greyPattern) && !isIsland)
        return 0xff000000U | (mixed >> 24) * 0x010101U;
    return mixed | 0x01000000U;
}

} // namespace nimbrale::test
