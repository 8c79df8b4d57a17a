#include "platform/opencv/picture_averages.h"

#include "platform/pixel_channels.h"
#include "platform/vector_clones.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <opencv2/imgproc.hpp>

namespace nimbrale::opencv {
namespace {

constexpr int channels = 4;
/// So many bytes have a sum of 16 bits.
constexpr int mostRows = std::numeric_limits<std::uint16_t>::max() / std::numeric_limits<std::uint8_t>::max();

/// The means of `columns` pixels next to each other, of each of which `sums` has the sum of `rows`.
NIMBRALE_VECTOR_CLONES void averageColumns(const std::uint16_t* sums, int columns, int rows, std::uint8_t* to,
                                           int width)
{
    const float share = 1.0F / static_cast<float>(columns * rows);
    for (int x = 0; x < width; ++x) {
        ChannelSums whole{};
        for (int column = 0; column < columns; ++column, sums += channels)
            whole += channelsAt(sums);
        // The sum is rounded to the nearest, and halves to the even one, where a float's last bit stands for one.
        constexpr float roundsToOnes = 0x1.8p23F;
        const ChannelValues mean = __builtin_convertvector(whole, ChannelValues) * share;
        storeChannels(__builtin_convertvector((mean + roundsToOnes) - roundsToOnes, ChannelSums), to);
        to += channels;
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

NIMBRALE_VECTOR_CLONES void PictureAverages::addRows(const cv::Mat& from, int first, int count)
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
