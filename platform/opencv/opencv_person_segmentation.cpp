#include "platform/opencv/opencv_person_segmentation.h"

#include "platform/opencv/depthwise_convolution.h"
#include "platform/opencv/model_file.h"
#include "platform/opencv/picture_averages.h"

#include <opencv2/core/utils/logger.hpp>
#include <opencv2/dnn.hpp>

namespace nimbrale::opencv {
namespace {

/// What the model takes and gives.
constexpr int modelWidth = 256;
constexpr int modelHeight = 144;

class OpenCvPersonSegmentation final : public PersonSegmentation {
public:
    explicit OpenCvPersonSegmentation(const cv::dnn::Net& network)
        : network_(network), result_(network_.getLayerNames().back()), input_({1, 3, modelHeight, modelWidth}, CV_32F)
    {}

    Result<PersonMask> findPerson(const PixelBuffer& picture) override
    {
        try {
            takePicture(picture);
            network_.setInput(input_);
            network_.forward(probabilities_, result_);
            if (!probabilities_.isContinuous() ||
                probabilities_.total() != static_cast<std::size_t>(modelWidth) * modelHeight)
                return fail(ErrorCode::temporary, "The model gave a mask of another size.");
            const cv::Mat plane(modelHeight, modelWidth, CV_32F, probabilities_.ptr());
            plane.convertTo(mask_, CV_8U, 255);
        } catch (const std::exception& exception) {
            return fail(ErrorCode::temporary, exception.what());
        }
        return PersonMask{modelWidth, modelHeight, {mask_.ptr(), mask_.total()}};
    }

private:
    /// The picture in the model's size, as planes of red, green and blue from 0 to 1.
    void takePicture(const PixelBuffer& picture)
    {
        // The library takes no constant pixels, and only reads these.
        auto* const pixels = const_cast<std::byte*>(picture.row(0));
        const cv::Mat whole(picture.height(), picture.width(), CV_8UC4, pixels, picture.stride());
        // Averages over areas halve the mask's flicker beside single samples.
        averages_.reduce(whole, small_, {modelWidth, modelHeight});
        constexpr float scale = 1.0F / 255.0F;
        constexpr std::size_t count = static_cast<std::size_t>(modelWidth) * modelHeight;
        float* const red = input_.ptr<float>();
        float* const green = red + count;
        float* const blue = green + count;
        const std::uint8_t* pixel = small_.ptr();
        for (std::size_t i = 0; i < count; ++i, pixel += PixelBuffer::bytesPerPixel) {
            blue[i] = static_cast<float>(pixel[0]) * scale;
            green[i] = static_cast<float>(pixel[1]) * scale;
            red[i] = static_cast<float>(pixel[2]) * scale;
        }
    }

    cv::dnn::Net network_;
    /// Without this name the library would list the names of all layers for each picture.
    cv::String result_;
    PictureAverages averages_;
    cv::Mat small_;
    cv::Mat input_;
    cv::Mat probabilities_;
    cv::Mat mask_;
};

/// Errors come as exceptions; the library would print them as well.
void silenceLibrary()
{
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
    cv::redirectError([](int, const char*, const char*, const char*, int, void*) { return 0; });
}

} // namespace

Result<std::unique_ptr<PersonSegmentation>> createPersonSegmentation(const std::filesystem::path& modelFile)
{
    const auto model = readModel(modelFile);
    if (!model)
        return tl::make_unexpected(model.error());
    silenceLibrary();
    cv::setNumThreads(1);
    try {
        const OwnDepthwiseConvolutions convolutions;
        return std::make_unique<OpenCvPersonSegmentation>(
            cv::dnn::readNetFromONNX(model->constData(), static_cast<std::size_t>(model->size())));
    } catch (const std::exception& exception) {
        return fail(ErrorCode::permanent,
                    std::string("The model that finds people cannot be used: ") + exception.what());
    }
}

} // namespace nimbrale::opencv
