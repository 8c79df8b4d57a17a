#include "webcam/mask_filter.h"

#include "platform/vector_clones.h"
#include "webcam/gaussian.h"

#include <algorithm>
#include <cmath>

namespace nimbrale {
namespace {

/// How soft the outline becomes, in pixels of the picture.
constexpr double outlineSigma = 1.5;
constexpr double highest = MaskFilter::one - 1;
/// So many weights compilers turn into one instruction.
constexpr int tapGroup = 8;
/// So many rows are added at once.
constexpr int rowGroup = 4;
/// What makes a conversion to integers round; `std::lround` would be a call for each value.
constexpr float half = 0.5F;

/// The weights of one position, for all of the mask's samples.
std::vector<double> weightsAt(int position, int samples, int length, const std::vector<double>& gaussian)
{
    std::vector<double> weights(samples);
    const int radius = static_cast<int>(gaussian.size()) - 1;
    for (int distance = -radius; distance <= radius; ++distance) {
        const int pixel = std::clamp(position + distance, 0, length - 1);
        const double place = (pixel + 0.5) * samples / length - 0.5;
        const double before = std::floor(place);
        const double weight = gaussian[std::abs(distance)];
        weights[std::clamp(static_cast<int>(before), 0, samples - 1)] += weight * (1 - (place - before));
        weights[std::clamp(static_cast<int>(before) + 1, 0, samples - 1)] += weight * (place - before);
    }
    return weights;
}

} // namespace

MaskFilter::Axis MaskFilter::makeAxis(int samples, int length)
{
    const std::vector<double> gaussian = gaussianWeights(outlineSigma);
    // Lighter samples at the ends of a sum change no picture of eight bits.
    constexpr double lightest = 2e-4;
    struct Sum {
        int first;
        std::vector<double> weights;
    };
    std::vector<Sum> sums;
    Axis axis;
    for (int position = 0; position < length; ++position) {
        std::vector<double> weights = weightsAt(position, samples, length, gaussian);
        const auto matters = [](double weight) { return weight >= lightest; };
        const auto begin = std::find_if(weights.begin(), weights.end(), matters);
        const auto end = std::find_if(weights.rbegin(), weights.rend(), matters).base();
        double total = 0;
        for (auto weight = begin; weight != end; ++weight)
            total += *weight;
        Sum sum{static_cast<int>(begin - weights.begin()), {begin, end}};
        for (double& weight : sum.weights)
            weight /= total;
        axis.taps = std::max(axis.taps, static_cast<int>(sum.weights.size()));
        sums.push_back(std::move(sum));
    }
    axis.taps = (axis.taps + tapGroup - 1) / tapGroup * tapGroup;
    for (const Sum& sum : sums) {
        axis.first.push_back(sum.first);
        std::vector<std::int16_t> weights(axis.taps);
        int missing = static_cast<int>(highest);
        for (std::size_t i = 0; i < sum.weights.size(); ++i) {
            const int weight = static_cast<int>(std::lround(sum.weights[i] * highest));
            weights[i] = static_cast<std::int16_t>(weight);
            missing -= weight;
        }
        // Their sum is exact, so that no sum of samples gets out of range.
        std::int16_t& largest = *std::max_element(weights.begin(), weights.end());
        largest = static_cast<std::int16_t>(largest + missing);
        axis.weights.insert(axis.weights.end(), weights.begin(), weights.end());
    }
    return axis;
}

void MaskFilter::setSizes(int maskWidth, int maskHeight, int width, int height)
{
    if (maskWidth == maskWidth_ && maskHeight == maskHeight_ && width == static_cast<int>(horizontal_.first.size()) &&
        height == static_cast<int>(vertical_.first.size()))
        return;
    maskWidth_ = maskWidth;
    maskHeight_ = maskHeight;
    horizontal_ = makeAxis(maskWidth, width);
    vertical_ = makeAxis(maskHeight, height);
    wide_.resize(static_cast<std::size_t>(width) * maskHeight);
    line_.assign(maskWidth + horizontal_.taps, 0);
    sums_.resize(width);
    row_.resize(width);
}

NIMBRALE_VECTOR_CLONES void MaskFilter::setMask(std::span<const float> mask)
{
    const int width = static_cast<int>(row_.size());
    const int taps = horizontal_.taps;
    for (int y = 0; y < maskHeight_; ++y) {
        const float* const values = mask.data() + static_cast<std::size_t>(y) * maskWidth_;
        for (int x = 0; x < maskWidth_; ++x)
            line_[x] = static_cast<std::int16_t>(values[x] * static_cast<float>(highest) + half);
        std::int16_t* const wide = wide_.data() + static_cast<std::size_t>(y) * width;
        const std::int16_t* weight = horizontal_.weights.data();
        for (int x = 0; x < width; ++x) {
            const std::int16_t* const samples = line_.data() + horizontal_.first[x];
            std::int32_t sum = one / 2;
            for (int group = 0; group < taps; group += tapGroup) {
                for (int tap = group; tap < group + tapGroup; ++tap)
                    sum += samples[tap] * weight[tap];
            }
            weight += taps;
            wide[x] = static_cast<std::int16_t>(sum >> 15);
        }
    }
}

std::span<const std::int16_t> MaskFilter::row(int y)
{
    std::fill(sums_.begin(), sums_.end(), one / 2);
    const std::int16_t* const weights = vertical_.weights.data() + static_cast<std::size_t>(y) * vertical_.taps;
    for (int tap = 0; tap < vertical_.taps; tap += rowGroup) {
        if (std::any_of(weights + tap, weights + tap + rowGroup, [](std::int16_t weight) { return weight != 0; }))
            addRows(vertical_.first[y] + tap, weights + tap);
    }
    finishRow();
    return row_;
}

/// All of a group in one pass, since sums that are written and read again cost more than the products.
NIMBRALE_VECTOR_CLONES void MaskFilter::addRows(int first, const std::int16_t* weights)
{
    const std::size_t width = row_.size();
    // Those beyond the mask weigh nothing.
    const auto wide = [&](int tap) { return wide_.data() + std::min(first + tap, maskHeight_ - 1) * width; };
    const std::int16_t* __restrict row0 = wide(0);
    const std::int16_t* __restrict row1 = wide(1);
    const std::int16_t* __restrict row2 = wide(2);
    const std::int16_t* __restrict row3 = wide(3);
    std::int32_t* __restrict sums = sums_.data();
    for (std::size_t x = 0; x < width; ++x)
        sums[x] += row0[x] * weights[0] + row1[x] * weights[1] + row2[x] * weights[2] + row3[x] * weights[3];
}

NIMBRALE_VECTOR_CLONES void MaskFilter::finishRow()
{
    const std::int32_t* __restrict sums = sums_.data();
    std::int16_t* __restrict row = row_.data();
    for (std::size_t x = 0; x < row_.size(); ++x)
        row[x] = static_cast<std::int16_t>(sums[x] >> 15);
}

} // namespace nimbrale
