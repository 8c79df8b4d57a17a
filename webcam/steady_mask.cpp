#include "webcam/steady_mask.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace nimbrale {
namespace {

/// How much of the value before is kept where nothing changes, and how fast that falls as the change grows: at four
/// fifths of the range nothing is kept. On noisy masks this leaves a third of the flicker.
constexpr float keptAtRest = 0.7F;
constexpr float fallPerChange = 1.25F;

} // namespace

SteadyMask::SteadyMask(std::function<TimePoint()> now) : now_(std::move(now)) {}

std::span<const float> SteadyMask::add(const PersonMask& mask)
{
    const TimePoint now = now_();
    const bool goesOn =
        !values_.empty() && mask.width == width_ && mask.height == height_ && now - last_ < longestPause;
    last_ = now;
    width_ = mask.width;
    height_ = mask.height;
    const std::size_t count = mask.values.size();
    values_.resize(count);
    const std::uint8_t* const seen = mask.values.data();
    float* const steady = values_.data();
    if (goesOn) {
        for (std::size_t i = 0; i < count; ++i) {
            const float value = static_cast<float>(seen[i]) / 255.0F;
            const float change = steady[i] - value;
            steady[i] = value + change * keptAtRest * std::max(0.0F, 1.0F - fallPerChange * std::fabs(change));
        }
    } else {
        for (std::size_t i = 0; i < count; ++i)
            steady[i] = static_cast<float>(seen[i]) / 255.0F;
    }
    return values_;
}

} // namespace nimbrale
