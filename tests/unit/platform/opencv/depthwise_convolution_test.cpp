#include "platform/opencv/depthwise_convolution.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>
#include <opencv2/dnn/all_layers.hpp>
#include <optional>
#include <ostream>
#include <utility>
#include <vector>

namespace nimbrale::opencv {
namespace {

constexpr int channels = 6;

struct Convolution {
    int kernel = 5;
    int stride = 1;
    int padding = 2;
    int dilation = 1;
    int group = channels;

    friend void PrintTo(const Convolution& convolution, std::ostream* stream)
    {
        *stream << "kernel " << convolution.kernel << ", stride " << convolution.stride << ", padding "
                << convolution.padding << ", dilation " << convolution.dilation << ", groups " << convolution.group;
    }
};

cv::Mat noise(const std::vector<int>& shape, int seed)
{
    cv::Mat values(shape, CV_32F);
    cv::RNG random(static_cast<std::uint64_t>(seed));
    random.fill(values, cv::RNG::UNIFORM, -1.0, 1.0);
    return values;
}

cv::dnn::Net networkWith(const Convolution& convolution)
{
    cv::dnn::LayerParams params;
    params.name = "convolution";
    params.type = "Convolution";
    params.set("kernel_size", convolution.kernel);
    params.set("stride", convolution.stride);
    params.set("pad", convolution.padding);
    params.set("dilation", convolution.dilation);
    params.set("group", convolution.group);
    params.set("num_output", channels);
    params.blobs = {noise({channels, channels / convolution.group, convolution.kernel, convolution.kernel}, 1),
                    noise({channels}, 2)};
    cv::dnn::Net network;
    const int layer = network.addLayer(params.name, params.type, params);
    network.connect(0, 0, layer, 0);
    // The library makes the layer when it is first asked for.
    static_cast<void>(network.getLayer(layer));
    return network;
}

bool isTheLibrarys(cv::dnn::Net& network)
{
    return !network.getLayer(network.getLayerId("convolution")).dynamicCast<cv::dnn::ConvolutionLayer>().empty();
}

cv::Mat resultOf(cv::dnn::Net& network, const cv::Mat& input)
{
    network.setInput(input);
    return network.forward().clone();
}

class DepthwiseConvolutionTest : public testing::TestWithParam<Convolution> {};

TEST_P(DepthwiseConvolutionTest, GivesWhatTheLibraryGives)
{
    cv::dnn::Net expected = networkWith(GetParam());
    ASSERT_TRUE(isTheLibrarys(expected));
    std::optional<OwnDepthwiseConvolutions> own(std::in_place);
    cv::dnn::Net network = networkWith(GetParam());
    own.reset();
    ASSERT_FALSE(isTheLibrarys(network));
    // One network for all sizes, the smaller after the larger.
    for (const auto& [height, width] : {std::pair(9, 16), std::pair(21, 35), std::pair(5, 5), std::pair(6, 11)}) {
        const cv::Mat input = noise({1, channels, height, width}, height);
        const cv::Mat ours = resultOf(network, input);
        const cv::Mat theirs = resultOf(expected, input);
        ASSERT_TRUE(ours.size == theirs.size) << height << " x " << width;
        EXPECT_GT(cv::norm(theirs, cv::NORM_INF), 0.5) << "the input comes to nothing";
        EXPECT_LT(cv::norm(ours, theirs, cv::NORM_INF), 1e-5) << height << " x " << width;
    }
}

INSTANTIATE_TEST_SUITE_P(All, DepthwiseConvolutionTest,
                         testing::Values(Convolution{}, Convolution{.padding = 0}, Convolution{.stride = 2},
                                         Convolution{.stride = 2, .padding = 0}, Convolution{.padding = 1},
                                         Convolution{.stride = 3}));

TEST(OwnDepthwiseConvolutionsTest, EveryOtherConvolutionIsLeftToTheLibrary)
{
    const OwnDepthwiseConvolutions own;
    cv::dnn::Net control = networkWith({});
    ASSERT_FALSE(isTheLibrarys(control));
    for (const Convolution& convolution :
         {Convolution{.kernel = 3, .padding = 1}, Convolution{.dilation = 2}, Convolution{.group = 1}}) {
        cv::dnn::Net network = networkWith(convolution);
        EXPECT_TRUE(isTheLibrarys(network)) << testing::PrintToString(convolution);
    }
}

TEST(OwnDepthwiseConvolutionsTest, TheLibraryHasItsOwnAgainAfterwards)
{
    {
        const OwnDepthwiseConvolutions own;
        cv::dnn::Net network = networkWith({});
        ASSERT_FALSE(isTheLibrarys(network));
    }
    cv::dnn::Net network = networkWith({});
    EXPECT_TRUE(isTheLibrarys(network));
}

} // namespace
} // namespace nimbrale::opencv
