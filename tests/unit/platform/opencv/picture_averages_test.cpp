#include "platform/opencv/picture_averages.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>
#include <utility>

namespace nimbrale::opencv {
namespace {

/// A part of a wider picture, so that there is something between its rows that must not be counted.
cv::Mat noise(cv::Size size)
{
    cv::Mat whole(size.height, size.width + 3, CV_8UC4);
    cv::RNG random(1);
    random.fill(whole, cv::RNG::UNIFORM, 0, 256);
    return whole.colRange(0, size.width);
}

double farthestFromTheLibrarys(PictureAverages& averages, const cv::Mat& picture, cv::Size size)
{
    cv::Mat ours;
    averages.reduce(picture, ours, size);
    cv::Mat theirs;
    cv::resize(picture, theirs, size, 0, 0, cv::INTER_AREA);
    if (ours.size() != size || ours.type() != picture.type()) {
        ADD_FAILURE() << "not the size or kind of picture that was asked for";
        return -1;
    }
    return cv::norm(ours, theirs, cv::NORM_INF);
}

TEST(PictureAveragesTest, AreThoseOfTheLibrary)
{
    PictureAverages averages;
    const cv::Size size(16, 9);
    // Whole multiples, others, and smaller pictures; a narrow one after a wide one.
    for (const cv::Size from : {cv::Size(80, 45), cv::Size(160, 27), cv::Size(16, 9), cv::Size(16, 90),
                                cv::Size(81, 45), cv::Size(80, 46), cv::Size(41, 23), cv::Size(7, 3), cv::Size(1, 1)})
        EXPECT_EQ(farthestFromTheLibrarys(averages, noise(from), size), 0) << from;
}

TEST(PictureAveragesTest, TheBrightestPixelsDoNotOverflow)
{
    PictureAverages averages;
    // The second has more rows for one than a sum of 16 bits can hold.
    for (const int height : {257, 258}) {
        const cv::Mat white(height, 10, CV_8UC4, cv::Scalar::all(255));
        cv::Mat small;
        averages.reduce(white, small, {2, 1});
        EXPECT_EQ(cv::norm(small, cv::Mat(1, 2, CV_8UC4, cv::Scalar::all(255)), cv::NORM_INF), 0) << height;
    }
}

} // namespace
} // namespace nimbrale::opencv
