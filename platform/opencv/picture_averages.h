#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

namespace nimbrale::opencv {

/// Makes pictures as small as a model wants them, each pixel the mean of the area that it covers. One thread at a time.
class PictureAverages {
public:
    /// `from` has four bytes a pixel; `to` becomes a picture of that size. It is what `cv::resize` makes with
    /// `INTER_AREA`, in less than half of its time where the one size is a whole multiple of the other.
    void reduce(const cv::Mat& from, cv::Mat& to, cv::Size size);

private:
    void addRows(const cv::Mat& from, int first, int count);

    /// Of several rows, for each byte of a row.
    std::vector<std::uint16_t> sums_;
};

} // namespace nimbrale::opencv
