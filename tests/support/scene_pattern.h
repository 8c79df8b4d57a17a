#pragma once

#include <cstdint>

namespace nimbrale::test {

/// The pattern that scene windows show: rectangles of this size, each of one color, in rows from the window's
/// top-left.
inline constexpr int patternCellWidth = 31;
inline constexpr int patternCellHeight = 23;

/// Seeds with this bit give greys, which video formats that thin out color keep to the pixel.
inline constexpr std::uint32_t greyPattern = 0x80000000U;
/// With this bit as well, islands of so many cells' width and height are colored: the first begins at the cell
/// (islandStart, islandStart), the others so many cells further.
inline constexpr std::uint32_t islandPattern = 0x40000000U;
inline constexpr int islandStart = 2;
inline constexpr int islandSize = 3;
inline constexpr int islandDistance = 10;

/// 0xAARRGGBB, not premultiplied. The colors of neighbours and of other seeds are unlike; the alpha is never 0 and
/// counts only in windows of depth 32.
[[nodiscard]] std::uint32_t patternColor(std::uint32_t seed, int column, int row);

} // namespace nimbrale::test
