#include "webcam/gaussian.h"

#include <cmath>

namespace nimbrale {

std::vector<double> gaussianWeights(double sigma)
{
    // What lies beyond is less than a thousandth of the whole.
    constexpr double reach = 3.4;
    const int radius = static_cast<int>(std::ceil(sigma * reach));
    std::vector<double> weights{1};
    double sum = 1;
    for (int distance = 1; distance <= radius; ++distance) {
        weights.push_back(std::exp(-0.5 * distance * distance / (sigma * sigma)));
        sum += 2 * weights.back();
    }
    for (double& weight : weights)
        weight /= sum;
    return weights;
}

} // namespace nimbrale
