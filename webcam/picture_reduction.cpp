#include "webcam/picture_reduction.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace nimbrale {

namespace {

constexpr std::uint32_t everyOtherChannel = 0x00ff00ffU;
/// Rounds to the nearest.
constexpr std::uint32_t halfOfFour = 0x00020002U;

const std::uint32_t* pixelsOf(const PixelBuffer& picture, int row)
{
    return reinterpret_cast<const std::uint32_t*>(picture.row(std::min(row, picture.height() - 1)));
}

int halfOf(int length)
{
    return (length + 1) / 2;
}

/// Two channels at a time, with 16 bits for the sum of each.
std::uint32_t meanOf(std::uint32_t one, std::uint32_t two, std::uint32_t three, std::uint32_t four)
{
    const std::uint32_t even = (one & everyOtherChannel) + (two & everyOtherChannel) + (three & everyOtherChannel) +
                               (four & everyOtherChannel) + halfOfFour;
    const std::uint32_t odd = (one >> 8 & everyOtherChannel) + (two >> 8 & everyOtherChannel) +
                              (three >> 8 & everyOtherChannel) + (four >> 8 & everyOtherChannel) + halfOfFour;
    return (even >> 2 & everyOtherChannel) | (odd >> 2 & everyOtherChannel) << 8;
}

void halve(const PixelBuffer& from, PixelBuffer& to)
{
    const std::size_t pairs = static_cast<std::size_t>(from.width()) / 2;
    for (int y = 0; y < to.height(); ++y) {
        const std::uint32_t* __restrict upper = pixelsOf(from, 2 * y);
        const std::uint32_t* __restrict lower = pixelsOf(from, 2 * y + 1);
        auto* __restrict mean = reinterpret_cast<std::uint32_t*>(to.row(y));
        for (std::size_t x = 0; x < pairs; ++x)
            mean[x] = meanOf(upper[2 * x], upper[2 * x + 1], lower[2 * x], lower[2 * x + 1]);
        if (pairs < static_cast<std::size_t>(to.width()))
            mean[pairs] = meanOf(upper[2 * pairs], upper[2 * pairs], lower[2 * pairs], lower[2 * pairs]);
    }
}

} // namespace

int PictureReduction::halvings(PixelSize picture, PixelSize shown)
{
    if (shown.width <= 0 || shown.height <= 0)
        return 0;
    const double reduction = std::min(static_cast<double>(picture.width) / static_cast<double>(shown.width),
                                      static_cast<double>(picture.height) / static_cast<double>(shown.height));
    return reduction < 2 ? 0 : static_cast<int>(std::floor(std::log2(reduction)));
}

std::shared_ptr<const BufferSurface> PictureReduction::reduce(const std::shared_ptr<const BufferSurface>& picture,
                                                              int halvings)
{
    if (halvings == 0)
        return picture;
    while (between_.size() + 1 < static_cast<std::size_t>(halvings))
        between_.emplace_back(1, 1);
    const PixelBuffer* from = &picture->pixels();
    for (int level = 0; level + 1 < halvings; ++level) {
        PixelBuffer& smaller = between_[static_cast<std::size_t>(level)];
        if (smaller.width() != halfOf(from->width()) || smaller.height() != halfOf(from->height()))
            smaller = PixelBuffer(halfOf(from->width()), halfOf(from->height()));
        halve(*from, smaller);
        from = &smaller;
    }
    BufferSurfacePool::Canvas canvas = pool_.take(halfOf(from->width()), halfOf(from->height()));
    halve(*from, canvas.pixels());
    return BufferSurfacePool::finish(std::move(canvas), picture->alpha());
}

} // namespace nimbrale
