#pragma once

#include "platform/layer.h"
#include "platform/main_queue.h"

#include <chrono>
#include <memory>

namespace nimbrale {

/// Changes a layer's opacity gradually. Main thread only.
class OpacityFade {
public:
    static constexpr std::chrono::milliseconds duration{150};

    /// Both must outlive it.
    OpacityFade(Layer& layer, MainQueue& queue) : layer_(layer), queue_(queue), target_(layer.opacity()) {}

    /// From whatever the opacity is now; a fade under way turns round.
    void fadeTo(double opacity);

private:
    void step();

    Layer& layer_;
    MainQueue& queue_;
    double target_;
    double change_ = 0;
    int stepsLeft_ = 0;
    std::unique_ptr<Timer> timer_;
};

} // namespace nimbrale
