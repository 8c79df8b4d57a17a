#pragma once

#include "platform/pixel_buffer.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace nimbrale {

/// A picture that is blurred by a Gaussian of its width × 0.012, its edge pixels going on beyond its edges. A wide blur
/// leaves nothing fine, so it is made of *cells*, averages of cellSize × cellSize pixels, and spread over the pixels
/// again by a spline; what those two blur is taken off the Gaussian in between. One thread at a time.
class BackgroundBlur {
public:
    static constexpr double sigmaPerWidth = 0.012;
    /// What the values of `row` are multiplied by.
    static constexpr int one = 1 << 6;

    /// The picture that the rows are made of; it may go afterwards. A change of its size costs more.
    void setPicture(const PixelBuffer& picture);
    /// One row of the blurred picture: blue, green, red and an opaque alpha for each pixel, from 0 to 255 × `one`;
    /// valid until the next call. Rows are best asked for from the top down.
    [[nodiscard]] std::span<const std::int16_t> row(int y);

private:
    static constexpr std::ptrdiff_t channels = PixelBuffer::bytesPerPixel;

    /// The parts of a pixel between the middles of cells that the cells before and after give; the rest is its own
    /// cell's.
    struct Neighbors {
        float before = 0;
        float after = 0;
    };

    void setSize(int width, int height);
    [[nodiscard]] int sumsMargin() const { return 4 * cellSize_; }
    void averageCells(const PixelBuffer& picture);
    void sumColumns(const PixelBuffer& picture, int cellRow);
    void averageLine(float* cell) const;
    void blurCells();
    void blurColumns(int row);
    void blurLine(float* blurred) const;
    [[nodiscard]] const std::int16_t* spreadRow(int row);

    int width_ = 0;
    int height_ = 0;
    int cellSize_ = 1;
    /// With those of the ring around the picture's own; the ring's first row and column are number 0.
    int cellColumns_ = 0;
    int cellRows_ = 0;
    std::vector<float> gaussian_;
    std::vector<Neighbors> neighbors_;
    /// Which part of each pixel counts for a cell, where it is not 0; the first of these pixels lies so far from the
    /// first of the cell's own.
    std::vector<int> parts_;
    int firstPart_ = 0;
    /// The columns' sums for a row of cells, with the edges going on for `sumsMargin` pixels.
    std::vector<std::uint16_t> sums_;
    std::vector<float> cells_;
    /// A row of cells with as many before and after it as the Gaussian reaches.
    std::vector<float> line_;
    std::vector<float> blurred_;
    /// The last rows of cells that were spread over the pixels of a row, and which they are.
    std::array<std::vector<std::int16_t>, 3> spread_;
    std::array<int, 3> spreadRows_{};
    std::vector<std::int16_t> row_;
};

} // namespace nimbrale
