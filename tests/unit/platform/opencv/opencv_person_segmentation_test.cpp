#include "platform/opencv/opencv_person_segmentation.h"

#include "platform/opencv/model_file.h"

#include <QTemporaryDir>

#include <algorithm>
#include <fstream>
#include <gmock/gmock.h>
#include <vector>

namespace nimbrale::opencv {
namespace {

using testing::HasSubstr;

std::filesystem::path builtModel()
{
    return modelFile(std::filesystem::read_symlink("/proc/self/exe").parent_path());
}

PixelBuffer stripes(int width, int height)
{
    PixelBuffer picture(width, height);
    for (int y = 0; y < height; ++y) {
        for (std::size_t i = 0; i < picture.stride(); ++i)
            picture.row(y)[i] = static_cast<std::byte>((i * 7 + static_cast<std::size_t>(y) * 3) & 0xff);
    }
    return picture;
}

TEST(OpenCvPersonSegmentationTest, TheMaskHasTheModelsSizeWhateverThePictures)
{
    const auto segmentation = createPersonSegmentation(builtModel());
    ASSERT_TRUE(segmentation) << segmentation.error().message;
    for (const auto& [width, height] : std::vector<std::pair<int, int>>{
             {1280, 720}, {640, 480}, {641, 361}, {256, 144}, {100, 1000}, {17, 3}, {1, 1}}) {
        const auto mask = (*segmentation)->findPerson(stripes(width, height));
        ASSERT_TRUE(mask) << mask.error().message;
        EXPECT_EQ(mask->width, 256);
        EXPECT_EQ(mask->height, 144);
        EXPECT_EQ(mask->values.size(), 256 * 144);
    }
}

TEST(OpenCvPersonSegmentationTest, TheSamePictureGivesTheSameMask)
{
    const auto segmentation = createPersonSegmentation(builtModel());
    ASSERT_TRUE(segmentation);
    const auto values = [&](const PixelBuffer& picture) {
        const auto mask = (*segmentation)->findPerson(picture);
        return mask ? std::vector<std::uint8_t>{mask->values.begin(), mask->values.end()} : std::vector<std::uint8_t>{};
    };
    const auto first = values(stripes(640, 480));
    ASSERT_FALSE(first.empty());
    EXPECT_NE(values(stripes(320, 180)), first);
    EXPECT_EQ(values(stripes(640, 480)), first);
}

TEST(OpenCvPersonSegmentationTest, TheAlphaIsNotLookedAt)
{
    const auto segmentation = createPersonSegmentation(builtModel());
    ASSERT_TRUE(segmentation);
    std::vector<std::vector<std::uint8_t>> masks;
    for (const std::byte alpha : {std::byte{0}, std::byte{255}}) {
        PixelBuffer picture = stripes(256, 144);
        for (int y = 0; y < picture.height(); ++y) {
            for (std::size_t i = 3; i < picture.stride(); i += PixelBuffer::bytesPerPixel)
                picture.row(y)[i] = alpha;
        }
        const auto mask = (*segmentation)->findPerson(picture);
        ASSERT_TRUE(mask);
        masks.emplace_back(mask->values.begin(), mask->values.end());
    }
    EXPECT_EQ(masks[0], masks[1]);
}

TEST(OpenCvPersonSegmentationTest, WithoutAModelItIsAnError)
{
    const auto segmentation = createPersonSegmentation("/nowhere/model.onnx");
    ASSERT_FALSE(segmentation);
    EXPECT_THAT(segmentation.error().message, HasSubstr("cannot be read: /nowhere/model.onnx"));
}

TEST(OpenCvPersonSegmentationTest, WithADamagedModelItIsAnError)
{
    const QTemporaryDir folder;
    const std::filesystem::path file = std::filesystem::path(folder.path().toStdString()) / "model.onnx";
    std::filesystem::copy_file(builtModel(), file);
    std::filesystem::resize_file(file, 300000);
    const auto segmentation = createPersonSegmentation(file);
    ASSERT_FALSE(segmentation);
    EXPECT_THAT(segmentation.error().message, HasSubstr("is damaged"));
}

} // namespace
} // namespace nimbrale::opencv
