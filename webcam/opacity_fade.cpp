#include "webcam/opacity_fade.h"

namespace nimbrale {

namespace {

constexpr int steps = 9; // 60 in a second

} // namespace

void OpacityFade::fadeTo(double opacity)
{
    if (opacity == target_)
        return;
    target_ = opacity;
    change_ = (target_ - layer_.opacity()) / steps;
    stepsLeft_ = steps;
    timer_ = queue_.scheduleRepeating(duration / steps, [this] { step(); });
}

void OpacityFade::step()
{
    const LayerTransaction transaction(layer_);
    // The last step ends on the number itself, whatever the sum of the others came to.
    layer_.setOpacity(--stepsLeft_ == 0 ? target_ : layer_.opacity() + change_);
    if (stepsLeft_ == 0)
        timer_.reset();
}

} // namespace nimbrale
