#include "platform/surface_changes.h"

#include "platform/surface.h"

#include <algorithm>

namespace nimbrale {

void SurfaceChanges::advance(std::vector<PixelRect> changed)
{
    steps_.push_back({newSurfaceNumber(), std::make_shared<const std::vector<PixelRect>>(std::move(changed))});
    // The oldest step is only ever compared with, so that one more than the remembered pictures is kept.
    if (steps_.size() > rememberedPictures + 1)
        steps_.pop_front();
}

std::optional<std::vector<PixelRect>> SurfaceChanges::since(std::uint64_t identifier) const
{
    const auto known = std::find_if(steps_.begin(), steps_.end(),
                                    [identifier](const Step& step) { return step.identifier == identifier; });
    if (known == steps_.end())
        return std::nullopt;
    std::vector<PixelRect> changed;
    for (auto step = std::next(known); step != steps_.end(); ++step) {
        for (const PixelRect& rect : *step->changed) {
            if (std::find(changed.begin(), changed.end(), rect) == changed.end())
                changed.push_back(rect);
        }
    }
    return changed;
}

} // namespace nimbrale
