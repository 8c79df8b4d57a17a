#include "platform/picture_halving.h"

#include "platform/vector_clones.h"

#include <algorithm>
#include <cstdint>

namespace nimbrale {

namespace {

constexpr std::uint32_t everyOtherChannel = 0x00ff00ffU;
/// Rounds to the nearest.
constexpr std::uint32_t halfOfFour = 0x00020002U;

const std::uint32_t* pixelsOf(const std::byte* row)
{
    return reinterpret_cast<const std::uint32_t*>(row);
}

/// Two channels at a time, with 16 bits for the sum of each.
inline std::uint32_t meanOf(std::uint32_t one, std::uint32_t two, std::uint32_t three, std::uint32_t four)
{
    const std::uint32_t even = (one & everyOtherChannel) + (two & everyOtherChannel) + (three & everyOtherChannel) +
                               (four & everyOtherChannel) + halfOfFour;
    const std::uint32_t odd = (one >> 8 & everyOtherChannel) + (two >> 8 & everyOtherChannel) +
                              (three >> 8 & everyOtherChannel) + (four >> 8 & everyOtherChannel) + halfOfFour;
    return (even >> 2 & everyOtherChannel) | (odd >> 2 & everyOtherChannel) << 8;
}

NIMBRALE_VECTOR_CLONES void halveRows(const std::uint32_t* __restrict upper, const std::uint32_t* __restrict lower,
                                      int width, std::uint32_t* __restrict mean)
{
    const std::size_t pairs = static_cast<std::size_t>(width) / 2;
    for (std::size_t x = 0; x < pairs; ++x)
        mean[x] = meanOf(upper[2 * x], upper[2 * x + 1], lower[2 * x], lower[2 * x + 1]);
    if (width % 2 != 0)
        mean[pairs] = meanOf(upper[2 * pairs], upper[2 * pairs], lower[2 * pairs], lower[2 * pairs]);
}

} // namespace

int halvedLength(int length, int halvings)
{
    for (int halving = 0; halving < halvings; ++halving)
        length = (length + 1) / 2;
    return length;
}

bool PictureHalving::make(int width, int height, int halvings, const RowSource& source, PixelBuffer& to)
{
    if (halvings <= 0)
        return source(0, height, to.row(0), to.stride());
    setSize(width, halvings);
    PixelBuffer& band = levels_.front();
    for (int y = 0; y < to.height(); ++y) {
        const int first = y * band.height();
        const int count = std::min(band.height(), height - first);
        if (!source(first, count, band.row(0), band.stride()))
            return false;
        halveBand(count, to.row(y));
    }
    return true;
}

void PictureHalving::setSize(int width, int halvings)
{
    const bool isSet = levels_.size() == static_cast<std::size_t>(halvings) && levels_.front().width() == width;
    if (isSet)
        return;
    levels_.clear();
    for (int level = 0; level < halvings; ++level)
        levels_.emplace_back(halvedLength(width, level), 1 << (halvings - level));
}

void PictureHalving::halveBand(int count, std::byte* row)
{
    for (std::size_t level = 0; level < levels_.size(); ++level) {
        const PixelBuffer& from = levels_[level];
        const bool isLast = level + 1 == levels_.size();
        const int halved = halvedLength(count, 1);
        for (int y = 0; y < halved; ++y) {
            std::byte* const mean = isLast ? row : levels_[level + 1].row(y);
            halveRows(pixelsOf(from.row(2 * y)), pixelsOf(from.row(std::min(2 * y + 1, count - 1))), from.width(),
                      reinterpret_cast<std::uint32_t*>(mean));
        }
        count = halved;
    }
}

} // namespace nimbrale
