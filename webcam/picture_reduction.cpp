#include "webcam/picture_reduction.h"

#include <algorithm>
#include <cmath>

namespace nimbrale {

int halvingsToShow(PixelSize picture, PixelSize shown)
{
    if (shown.width <= 0 || shown.height <= 0)
        return 0;
    const double reduction = std::min(static_cast<double>(picture.width) / static_cast<double>(shown.width),
                                      static_cast<double>(picture.height) / static_cast<double>(shown.height));
    return reduction < 2 ? 0 : static_cast<int>(std::floor(std::log2(reduction)));
}

} // namespace nimbrale
