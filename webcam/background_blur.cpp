#include "webcam/background_blur.h"

#include "platform/pixel_channels.h"
#include "platform/vector_clones.h"
#include "webcam/gaussian.h"

#include <algorithm>
#include <cmath>

namespace nimbrale {
namespace {

/// The Gaussian is at least so many cells wide; with fewer, single pixels begin to show in its slopes.
constexpr double cellsPerSigma = 2.5;
/// A column's sum for a cell fits into 16 bits.
constexpr int largestCell = 11;
/// So many cells around those of the picture still have a part of it; beyond, all are like the outermost.
constexpr int ring = 2;
/// What makes a conversion to integers round; `std::lround` would be a call for each value.
constexpr float half = 0.5F;

/// Which part of a pixel counts for a cell, `distance` being from the pixel's middle to the cell's, in half pixels. The
/// parts for the two nearest cells add up to 2 × cellSize; each is the larger the nearer the cell, so that a cell's
/// weight lies where the pixels' does. With plain averages, fine lines would shift to the middles of cells.
int partOfPixel(int distance, int cellSize)
{
    return std::max(0, 2 * cellSize - std::abs(distance));
}

/// What is left for the Gaussian of cells, in cells, after averaging and spreading have blurred their part.
double sigmaOfCells(double sigma, int cellSize)
{
    if (cellSize == 1)
        return sigma;
    double averaging = 0;
    for (int pixel = 0; pixel < cellSize; ++pixel) {
        const double place = (pixel + 0.5) / cellSize;
        averaging += place * (1 - place) / cellSize;
    }
    const double spreading = 0.25;
    return std::sqrt(sigma * sigma / (cellSize * cellSize) - averaging - spreading);
}

} // namespace

void BackgroundBlur::setSize(int width, int height)
{
    if (width == width_ && height == height_)
        return;
    width_ = width;
    height_ = height;
    const double sigma = width * sigmaPerWidth;
    cellSize_ = std::clamp(static_cast<int>(sigma / cellsPerSigma), 1, largestCell);
    cellColumns_ = (width + cellSize_ - 1) / cellSize_ + 2 * ring;
    cellRows_ = (height + cellSize_ - 1) / cellSize_ + 2 * ring;

    const std::vector<double> weights = gaussianWeights(sigmaOfCells(sigma, cellSize_));
    gaussian_.assign(weights.begin(), weights.end());
    // The quadratic B-spline blurs by the same at every pixel; a linear one would not.
    neighbors_.clear();
    for (int pixel = 0; pixel < cellSize_; ++pixel) {
        const double place = (pixel + 0.5) / cellSize_ - 0.5;
        neighbors_.push_back({static_cast<float>(0.5 * (0.5 - place) * (0.5 - place)),
                              static_cast<float>(0.5 * (0.5 + place) * (0.5 + place))});
    }
    if (cellSize_ == 1)
        neighbors_ = {{0, 0}};
    parts_.clear();
    firstPart_ = -(cellSize_ / 2);
    for (int pixel = firstPart_; partOfPixel(2 * pixel + 1 - cellSize_, cellSize_) > 0; ++pixel)
        parts_.push_back(partOfPixel(2 * pixel + 1 - cellSize_, cellSize_));

    const std::size_t reach = gaussian_.size() - 1;
    const std::size_t rowValues = static_cast<std::size_t>(width) * channels;
    sums_.resize(rowValues + static_cast<std::size_t>(2 * sumsMargin()) * channels);
    cells_.resize(static_cast<std::size_t>(cellColumns_) * channels * cellRows_);
    blurred_.resize(cells_.size());
    line_.resize((cellColumns_ + 2 * reach) * channels);
    for (std::vector<std::int16_t>& spread : spread_)
        spread.resize(static_cast<std::size_t>(cellColumns_) * cellSize_ * channels);
    row_.resize(rowValues);
}

void BackgroundBlur::setPicture(const PixelBuffer& picture)
{
    setSize(picture.width(), picture.height());
    averageCells(picture);
    blurCells();
    spreadRows_.fill(-1);
}

void BackgroundBlur::averageCells(const PixelBuffer& picture)
{
    for (int row = 0; row < cellRows_; ++row) {
        sumColumns(picture, row - ring);
        averageLine(cells_.data() + static_cast<std::size_t>(row) * cellColumns_ * channels);
    }
}

NIMBRALE_VECTOR_CLONES void BackgroundBlur::sumColumns(const PixelBuffer& picture, int cellRow)
{
    const std::ptrdiff_t margin = sumsMargin() * channels;
    const std::ptrdiff_t rowValues = width_ * channels;
    std::uint16_t* const sums = sums_.data() + margin;
    std::fill(sums_.begin(), sums_.end(), std::uint16_t{0});
    int y = cellRow * cellSize_ + firstPart_;
    for (const int part : parts_) {
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(picture.row(std::clamp(y++, 0, height_ - 1)));
        for (std::ptrdiff_t i = 0; i < rowValues; ++i)
            sums[i] = static_cast<std::uint16_t>(sums[i] + bytes[i] * part);
    }
    for (std::ptrdiff_t i = 0; i < margin; ++i) {
        sums_[i] = sums[i % channels];
        sums[rowValues + i] = sums[rowValues - channels + i % channels];
    }
}

NIMBRALE_VECTOR_CLONES void BackgroundBlur::averageLine(float* cell) const
{
    const int all = 2 * cellSize_ * cellSize_;
    const float scale = 1.0F / static_cast<float>(all * all);
    const std::uint16_t* first = sums_.data() + (sumsMargin() - ring * cellSize_ + firstPart_) * channels;
    for (int column = 0; column < cellColumns_; ++column) {
        ChannelSums total{};
        const std::uint16_t* sum = first;
        for (const int part : parts_) {
            total += channelsAt(sum) * part;
            sum += channels;
        }
        storeChannels(__builtin_convertvector(total, ChannelValues) * scale, cell);
        cell[channels - 1] = 255;
        cell += channels;
        first += cellSize_ * channels;
    }
}

void BackgroundBlur::blurCells()
{
    const std::size_t rowValues = static_cast<std::size_t>(cellColumns_) * channels;
    for (int row = 0; row < cellRows_; ++row) {
        blurColumns(row);
        blurLine(blurred_.data() + row * rowValues);
    }
}

NIMBRALE_VECTOR_CLONES void BackgroundBlur::blurColumns(int row)
{
    const int reach = static_cast<int>(gaussian_.size()) - 1;
    const std::ptrdiff_t rowValues = cellColumns_ * channels;
    const auto cellRow = [&](int number) {
        return cells_.data() + static_cast<std::size_t>(std::clamp(number, 0, cellRows_ - 1)) * rowValues;
    };
    float* const line = line_.data() + reach * channels;
    const float* const middle = cellRow(row);
    for (std::ptrdiff_t i = 0; i < rowValues; ++i)
        line[i] = middle[i] * gaussian_[0];
    for (int distance = 1; distance <= reach; ++distance) {
        const float* const above = cellRow(row - distance);
        const float* const below = cellRow(row + distance);
        const float weight = gaussian_[distance];
        for (std::ptrdiff_t i = 0; i < rowValues; ++i)
            line[i] += (above[i] + below[i]) * weight;
    }
    for (std::ptrdiff_t i = 0; i < reach * channels; ++i) {
        line_[i] = line[i % channels];
        line[rowValues + i] = line[rowValues - channels + i % channels];
    }
}

NIMBRALE_VECTOR_CLONES void BackgroundBlur::blurLine(float* blurred) const
{
    const int reach = static_cast<int>(gaussian_.size()) - 1;
    const std::ptrdiff_t rowValues = cellColumns_ * channels;
    const float* const line = line_.data() + reach * channels;
    for (std::ptrdiff_t i = 0; i < rowValues; ++i)
        blurred[i] = line[i] * gaussian_[0];
    for (int distance = 1; distance <= reach; ++distance) {
        const float* const before = line - distance * channels;
        const float* const after = line + distance * channels;
        const float weight = gaussian_[distance];
        for (std::ptrdiff_t i = 0; i < rowValues; ++i)
            blurred[i] += (before[i] + after[i]) * weight;
    }
}

NIMBRALE_VECTOR_CLONES const std::int16_t* BackgroundBlur::spreadRow(int row)
{
    std::vector<std::int16_t>& spread = spread_[row % 3];
    if (spreadRows_[row % 3] == row)
        return spread.data();
    spreadRows_[row % 3] = row;
    std::int16_t* pixel = spread.data();
    for (int column = ring; column < cellColumns_ - ring; ++column) {
        const float* const cell = blurred_.data() + (static_cast<std::size_t>(row) * cellColumns_ + column) * channels;
        const ChannelValues own = channelsAt(cell);
        const ChannelValues before = channelsAt(cell - channels) - own;
        const ChannelValues after = channelsAt(cell + channels) - own;
        for (const Neighbors& parts : neighbors_) {
            const ChannelValues value = own + before * parts.before + after * parts.after;
            // By way of 32 bits, for which there is an instruction.
            storeChannels(__builtin_convertvector(value * one + half, ChannelSums), pixel);
            pixel += channels;
        }
    }
    return spread.data();
}

NIMBRALE_VECTOR_CLONES std::span<const std::int16_t> BackgroundBlur::row(int y)
{
    const int cellRow = y / cellSize_ + ring;
    const std::int16_t* const before = spreadRow(cellRow - 1);
    const std::int16_t* const own = spreadRow(cellRow);
    const std::int16_t* const after = spreadRow(cellRow + 1);
    const Neighbors& parts = neighbors_[y % cellSize_];
    // Twice a difference fits into 16 bits as well, and so half of a product's 32 bits is the part wanted.
    const auto beforePart = static_cast<std::int16_t>(std::lround(parts.before * 32767));
    const auto afterPart = static_cast<std::int16_t>(std::lround(parts.after * 32767));
    const auto part = [](int difference, std::int16_t weight) {
        return static_cast<std::int16_t>((static_cast<std::int16_t>(difference * 2) * weight) >> 16);
    };
    std::int16_t* const row = row_.data();
    const std::size_t rowValues = row_.size();
    for (std::size_t i = 0; i < rowValues; ++i)
        row[i] = static_cast<std::int16_t>(own[i] + part(before[i] - own[i], beforePart) +
                                           part(after[i] - own[i], afterPart));
    return row_;
}

} // namespace nimbrale
