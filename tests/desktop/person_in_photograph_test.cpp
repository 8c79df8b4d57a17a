// The person in a photograph, found by the model that is delivered.

#include "platform/opencv/model_file.h"
#include "platform/opencv/opencv_person_segmentation.h"
#include "tests/support/photographs.h"
#include "tests/support/process.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <utility>

namespace nimbrale::test {
namespace {

class PersonInPhotographTest : public testing::Test {
protected:
    void SetUp() override
    {
        auto created = opencv::createPersonSegmentation(opencv::modelFile(buildFolder()));
        ASSERT_TRUE(created) << created.error().message;
        segmentation_ = std::move(*created);
    }

    [[nodiscard]] PersonMask find(const PixelBuffer& picture)
    {
        const auto mask = segmentation_->findPerson(picture);
        if (!mask)
            ADD_FAILURE() << mask.error().message;
        return mask.value_or(PersonMask{});
    }
    /// A value by its place in parts of the picture.
    [[nodiscard]] static int at(const PersonMask& mask, double x, double y)
    {
        const int column = static_cast<int>(x * mask.width);
        const int row = static_cast<int>(y * mask.height);
        return mask.values[static_cast<std::size_t>(row) * mask.width + column];
    }
    [[nodiscard]] static double area(const PersonMask& mask, int above = 127)
    {
        const auto sure =
            std::count_if(mask.values.begin(), mask.values.end(), [above](int value) { return value > above; });
        return static_cast<double>(sure) / static_cast<double>(mask.values.size());
    }

    std::unique_ptr<PersonSegmentation> segmentation_;
};

TEST_F(PersonInPhotographTest, IsWhereThePersonIsAndNowhereElse)
{
    const PersonMask mask = find(requirePhotograph("messi5.jpg", 1280, 720));
    ASSERT_FALSE(mask.values.empty());
    EXPECT_GT(area(mask), 0.08);
    EXPECT_LT(area(mask), 0.25);
    EXPECT_GT(at(mask, 0.43, 0.30), 250) << "the head";
    EXPECT_GT(at(mask, 0.45, 0.50), 250) << "the chest";
    EXPECT_LT(at(mask, 0.66, 0.91), 30) << "the ball";
    for (const double x : {0.0, 0.2, 0.8, 0.999}) {
        for (const double y : {0.0, 0.999})
            EXPECT_LT(at(mask, x, y), 10) << x << ", " << y;
    }
}

TEST_F(PersonInPhotographTest, IsFoundInEverySizeOfTheSamePhotograph)
{
    const double expected = area(find(requirePhotograph("messi5.jpg", 1280, 720)));
    ASSERT_GT(expected, 0.08);
    for (const auto& [width, height] : {std::pair{640, 360}, {641, 361}, {1920, 1080}, {256, 144}})
        EXPECT_NEAR(area(find(requirePhotograph("messi5.jpg", width, height))), expected, 0.1 * expected) << width;
}

TEST_F(PersonInPhotographTest, IsFoundMoreSurelyThanWithRedAndBlueExchanged)
{
    PixelBuffer picture = requirePhotograph("messi5.jpg", 1280, 720);
    constexpr int surely = 250;
    const double right = area(find(picture), surely);
    for (int y = 0; y < picture.height(); ++y) {
        std::byte* const row = picture.row(y);
        for (std::size_t i = 0; i < picture.stride(); i += PixelBuffer::bytesPerPixel)
            std::swap(row[i], row[i + 2]);
    }
    EXPECT_GT(right, 1.03 * area(find(picture), surely));
}

} // namespace
} // namespace nimbrale::test
