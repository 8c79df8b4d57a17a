#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace nimbrale {

/// Brings a mask to a picture's size and softens its outline. Scaling (linear, from the middles of pixels) and a
/// Gaussian of the scaled mask, whose edge pixels go on beyond its edges, are one weighted sum along each axis. One
/// thread at a time.
class MaskFilter {
public:
    /// What `row` calls 1.
    static constexpr int one = 1 << 15;

    /// For masks and pictures of these sizes, each at least 1 × 1, from now on. Sizes that have not changed cost
    /// nothing.
    void setSizes(int maskWidth, int maskHeight, int width, int height);
    /// The mask from 0 to 1 that the rows are made of; it may go afterwards.
    void setMask(std::span<const float> mask);
    /// One row of the filtered mask, from 0 to `one` - 1, a value for each of the picture's pixels; valid until the
    /// next call. Rows may be asked for in any order.
    [[nodiscard]] std::span<const std::int16_t> row(int y);

private:
    /// For each position of an axis of the picture, which samples of the mask it is made of.
    struct Axis {
        int taps = 0;
        std::vector<int> first;
        /// `taps` for each position, 1 being 2¹⁵ - 1; those for samples beyond the mask are 0.
        std::vector<std::int16_t> weights;
    };
    [[nodiscard]] static Axis makeAxis(int samples, int length);

    void addRows(int first, const std::int16_t* weights);
    void finishRow();

    int maskWidth_ = 0;
    int maskHeight_ = 0;
    Axis horizontal_;
    Axis vertical_;
    /// The mask's rows, each as wide as the picture.
    std::vector<std::int16_t> wide_;
    /// A row of the mask, and behind it zeros for the weights that are 0.
    std::vector<std::int16_t> line_;
    std::vector<std::int32_t> sums_;
    std::vector<std::int16_t> row_;
};

} // namespace nimbrale
