#include "webcam/picture_reduction.h"

#include "platform/picture_halving.h"

#include <algorithm>
#include <cmath>

namespace nimbrale {

namespace {

constexpr int longestSideForEffects = 1280;
constexpr int shortestSideForEffects = 720;

} // namespace

int halvingsToShow(PixelSize picture, PixelSize shown)
{
    if (shown.width <= 0 || shown.height <= 0)
        return 0;
    const double reduction = std::min(static_cast<double>(picture.width) / static_cast<double>(shown.width),
                                      static_cast<double>(picture.height) / static_cast<double>(shown.height));
    return reduction < 2 ? 0 : static_cast<int>(std::floor(std::log2(reduction)));
}

int halvingsForEffects(PixelSize picture)
{
    const auto longer = static_cast<int>(std::max(picture.width, picture.height));
    const auto shorter = static_cast<int>(std::min(picture.width, picture.height));
    int halvings = 0;
    while (halvedLength(longer, halvings) > longestSideForEffects ||
           halvedLength(shorter, halvings) > shortestSideForEffects)
        ++halvings;
    return halvings;
}

} // namespace nimbrale
