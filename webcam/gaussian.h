#pragma once

#include <vector>

namespace nimbrale {

/// A Gaussian's weights at 0, 1, 2 … samples from its middle, as many as matter to a picture of eight bits; used on
/// both sides they add up to 1. A sigma of 0 gives the single weight 1.
[[nodiscard]] std::vector<double> gaussianWeights(double sigma);

} // namespace nimbrale
