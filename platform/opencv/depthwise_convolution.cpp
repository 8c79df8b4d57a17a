#include "platform/opencv/depthwise_convolution.h"

#include "platform/vector_clones.h"

#include <algorithm>
#include <cstddef>
#include <opencv2/dnn.hpp>
#include <opencv2/dnn/all_layers.hpp>
#include <vector>

namespace nimbrale::opencv {
namespace {

constexpr const char* convolution = "Convolution";
constexpr int kernelSide = 5;
constexpr int kernelSize = kernelSide * kernelSide;

/// The one number that a parameter has for all directions; `fallback` where it is absent, -1 where they differ.
int numberFor(const cv::dnn::LayerParams& params, const char* name, int fallback)
{
    if (!params.has(name))
        return fallback;
    const cv::dnn::DictValue& values = params.get(name);
    const int first = values.get<int>(0);
    for (int index = 1; index < values.size(); ++index) {
        if (values.get<int>(index) != first)
            return -1;
    }
    return first;
}

/// One plane in, one plane out, each with a kernel of its own. Other sizes of one network may follow each other.
class DepthwiseConvolution final : public cv::dnn::Layer {
public:
    [[nodiscard]] static bool canDo(const cv::dnn::LayerParams& params)
    {
        if (params.blobs.size() != 2 || params.has("pad_mode"))
            return false;
        const cv::Mat& kernels = params.blobs[0];
        const bool isDepthwise = kernels.dims == 4 && kernels.size[1] == 1 && kernels.size[2] == kernelSide &&
                                 kernels.size[3] == kernelSide && params.get<int>("group", 1) == kernels.size[0];
        const bool isPlain = kernels.type() == CV_32F && kernels.isContinuous() && params.blobs[1].type() == CV_32F &&
                             params.blobs[1].isContinuous();
        return isDepthwise && isPlain && numberFor(params, "stride", 1) > 0 && numberFor(params, "pad", 0) >= 0 &&
               numberFor(params, "dilation", 1) == 1;
    }

    explicit DepthwiseConvolution(const cv::dnn::LayerParams& params)
        : Layer(params), stride_(numberFor(params, "stride", 1)), padding_(numberFor(params, "pad", 0))
    {}

    bool getMemoryShapes(const std::vector<cv::dnn::MatShape>& inputs, int /*requiredOutputs*/,
                         std::vector<cv::dnn::MatShape>& outputs,
                         std::vector<cv::dnn::MatShape>& /*internals*/) const override
    {
        cv::dnn::MatShape shape = inputs.at(0);
        for (const std::size_t side : {2U, 3U})
            shape.at(side) = (shape.at(side) + 2 * padding_ - kernelSide) / stride_ + 1;
        outputs.assign(1, shape);
        return false;
    }

    void forward(cv::InputArrayOfArrays inputs, cv::OutputArrayOfArrays outputs,
                 cv::OutputArrayOfArrays /*internals*/) override
    {
        inputs.getMatVector(from_);
        const cv::Mat& from = from_.front();
        cv::Mat& to = outputs.getMatRef(0);
        // What is around the planes is zero, and stays so from one plane to the next.
        part_ = (from.size[3] + 2 * padding_ + stride_ - 1) / stride_;
        const int rows = from.size[2] + 2 * padding_;
        padded_.assign(static_cast<std::size_t>(rows) * rowLength(), 0);
        for (int image = 0; image < from.size[0]; ++image) {
            for (int channel = 0; channel < from.size[1]; ++channel) {
                takePlane(from.ptr<float>(image, channel), {from.size[3], from.size[2]});
                convolve(channel, to.ptr<float>(image, channel), {to.size[3], to.size[2]});
            }
        }
    }

private:
    [[nodiscard]] std::size_t rowLength() const { return static_cast<std::size_t>(part_) * stride_; }

    /// Columns that one tap of the kernel meets in turn lie next to each other: with a stride of two, all even ones
    /// come before the odd ones.
    [[nodiscard]] std::ptrdiff_t placeOf(int column) const
    {
        return static_cast<std::ptrdiff_t>(column % stride_) * part_ + column / stride_;
    }

    void takePlane(const float* plane, cv::Size size)
    {
        for (int y = 0; y < size.height; ++y, plane += size.width) {
            float* const row = padded_.data() + static_cast<std::size_t>(y + padding_) * rowLength();
            for (int first = 0; first < stride_; ++first) {
                float* const part = row + placeOf(first + padding_);
                for (int x = first, i = 0; x < size.width; x += stride_, ++i)
                    part[i] = plane[x];
            }
        }
    }

    NIMBRALE_VECTOR_CLONES void convolve(int channel, float* plane, cv::Size size) const
    {
        const float* const kernel = blobs[0].ptr<float>() + static_cast<std::ptrdiff_t>(channel) * kernelSize;
        const float bias = blobs[1].ptr<float>()[channel];
        for (int y = 0; y < size.height; ++y) {
            float* const result = plane + static_cast<std::ptrdiff_t>(y) * size.width;
            std::fill_n(result, size.width, bias);
            for (int kernelRow = 0; kernelRow < kernelSide; ++kernelRow) {
                const float* const row =
                    padded_.data() + static_cast<std::size_t>(y * stride_ + kernelRow) * rowLength();
                addRow(kernel + static_cast<std::ptrdiff_t>(kernelRow) * kernelSide, row, result, size.width);
            }
        }
    }

    /// All five taps at once, so that the compiler computes several columns together.
    void addRow(const float* taps, const float* row, float* __restrict result, int width) const
    {
        const float* const first = row + placeOf(0);
        const float* const second = row + placeOf(1);
        const float* const third = row + placeOf(2);
        const float* const fourth = row + placeOf(3);
        const float* const fifth = row + placeOf(4);
        for (int x = 0; x < width; ++x)
            result[x] += taps[0] * first[x] + taps[1] * second[x] + taps[2] * third[x] + taps[3] * fourth[x] +
                         taps[4] * fifth[x];
    }

    int stride_;
    int padding_;
    /// Kept, since a matrix of four dimensions takes memory for its size alone.
    std::vector<cv::Mat> from_;
    int part_ = 0; ///< columns of a row that one tap meets
    std::vector<float> padded_;
};

cv::Ptr<cv::dnn::Layer> makeConvolution(cv::dnn::LayerParams& params)
{
    if (DepthwiseConvolution::canDo(params))
        return cv::makePtr<DepthwiseConvolution>(params);
    return cv::dnn::ConvolutionLayer::create(params);
}

} // namespace

OwnDepthwiseConvolutions::OwnDepthwiseConvolutions()
{
    cv::dnn::LayerFactory::registerLayer(convolution, makeConvolution);
}

OwnDepthwiseConvolutions::~OwnDepthwiseConvolutions()
{
    cv::dnn::LayerFactory::unregisterLayer(convolution);
}

} // namespace nimbrale::opencv
