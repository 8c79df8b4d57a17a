#include "platform/opencv/picture_averages.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <opencv2/imgproc.hpp>

namespace nimbrale::opencv {
namespace {

constexpr int channels = 4;
/// So many bytes have a sum of 16 bits.
constexpr int mostRows = std::numeric_limits<std::uint16_t>::max() / std::numeric_limits<std::uint8_t>::max();

/// The means of `columns` pixels next to each other, of each of which `sums` has the sum of `rows`.
void averageColumns(const std::uint16_t* sums, int columns, int rows, std::uint8_t* to, int width)
{
    const float share = 1.0F / static_cast<float>(columns * rows);
    for (int x = 0; x < width; ++x) {
        std::array<std::uint32_t, channels> whole{};
        for (int column = 0; column < columns; ++column, sums += channels) {
            for (std::size_t channel = 0; channel < channels; ++channel)
                whole[channel] += sums[channel];
        }
        for (std::size_t channel = 0; channel < channels; ++channel)
            *to++ = cv::saturate_cast<std::uint8_t>(static_cast<float>(whole[channel]) * share);
    }
}

} // namespace

void PictureAverages::reduce(const cv::Mat& from, cv::Mat& to, cv::Size size)
{
    const int columns = from.cols / size.width;
    const int rows = from.rows / size.height;
    const bool isWholeMultiple = columns * size.width == from.cols && rows * size.height == from.rows;
    if (!isWholeMultiple || rows > mostRows) {
        cv::resize(from, to, size, 0, 0, cv::INTER_AREA);
        return;
    }
    to.create(size, from.type());
    sums_.resize(static_cast<std::size_t>(from.cols) * channels);
    for (int y = 0; y < size.height; ++y) {
        addRows(from, y * rows, rows);
        averageColumns(sums_.data(), columns, rows, to.ptr(y), size.width);
    }
}

void PictureAverages::addRows(const cv::Mat& from, int first, int count)
{
    std::fill(sums_.begin(), sums_.end(), std::uint16_t{0});
    for (int y = first; y < first + count; ++y) {
        const std::uint8_t* const row = from.ptr(y);
        std::uint16_t* __restrict sums = sums_.data();
        for (std::size_t i = 0; i < sums_.size(); ++i)
            sums[i] = static_cast<std::uint16_t>(sums[i] + row[i]);
    }
}

} // namespace nimbrale::opencv
