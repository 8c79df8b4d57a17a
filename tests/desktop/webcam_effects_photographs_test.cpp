// The effects on photographs, with the person that the model finds, held against the same computed in double precision.

#include "platform/opencv/model_file.h"
#include "platform/opencv/opencv_person_segmentation.h"
#include "tests/fakes/fake_person_segmentation.h"
#include "tests/support/exact_effects.h"
#include "tests/support/photographs.h"
#include "tests/support/process.h"
#include "webcam/webcam_effects.h"

#include <gmock/gmock.h>

namespace nimbrale::test {
namespace {

using Background = WebcamEffects::Background;

struct Photograph {
    const char* name;
    int width;
    int height;
};

void PrintTo(const Photograph& photograph, std::ostream* stream)
{
    *stream << photograph.name << ", " << photograph.width << " x " << photograph.height;
}

class WebcamEffectsPhotographsTest : public testing::TestWithParam<Photograph> {
protected:
    void SetUp() override
    {
        auto created = opencv::createPersonSegmentation(opencv::modelFile(buildFolder()));
        ASSERT_TRUE(created) << created.error().message;
        segmentation_ = std::move(*created);
    }

    std::unique_ptr<PersonSegmentation> segmentation_;
};

TEST_P(WebcamEffectsPhotographsTest, AreAsExactAsEyesCanTell)
{
    const auto [name, width, height] = GetParam();
    const PixelBuffer picture = requirePhotograph(name, width, height);
    const auto mask = segmentation_->findPerson(picture);
    ASSERT_TRUE(mask) << mask.error().message;
    const auto found = std::make_shared<FakePersonSegmentation::State>();
    found->width = mask->width;
    found->height = mask->height;
    found->values.assign(mask->values.begin(), mask->values.end());

    const ExactEffects exact(picture);
    for (const Background background : {Background::blurred, Background::transparent}) {
        WebcamEffects effects(std::make_unique<FakePersonSegmentation>(found));
        const auto surface = effects.process(picture, background);
        ASSERT_TRUE(surface);
        EXPECT_LE(exact.farthest(surface->pixels(), found->mask(), background), 1.0);
    }
}

INSTANTIATE_TEST_SUITE_P(Photographs, WebcamEffectsPhotographsTest,
                         testing::Values(Photograph{"messi5.jpg", 1280, 720}, Photograph{"messi5.jpg", 641, 361},
                                         Photograph{"left01.jpg", 640, 480}, Photograph{"fruits.jpg", 1280, 720},
                                         Photograph{"home.jpg", 640, 480}, Photograph{"graf1.png", 800, 640},
                                         Photograph{"baboon.jpg", 512, 512}));

TEST_F(WebcamEffectsPhotographsTest, ThePersonIsInFrontAndTheRestIsGone)
{
    const PixelBuffer picture = requirePhotograph("messi5.jpg", 1280, 720);
    WebcamEffects effects(std::move(segmentation_));
    const auto surface = effects.process(picture, Background::transparent);
    ASSERT_TRUE(surface);
    const auto pixel = [](const PixelBuffer& pixels, int x, int y) {
        std::array<int, 4> bytes{};
        for (std::size_t channel = 0; channel < 4; ++channel)
            bytes[channel] = std::to_integer<int>(pixels.row(y)[static_cast<std::size_t>(x) * 4 + channel]);
        return bytes;
    };
    const std::array<int, 4> chest = pixel(surface->pixels(), 576, 360);
    EXPECT_EQ(chest, pixel(picture, 576, 360));
    for (const int x : {0, 200, 1100, 1279}) {
        for (const int y : {0, 719})
            EXPECT_LE(pixel(surface->pixels(), x, y)[3], 5) << x << ", " << y;
    }
}

} // namespace
} // namespace nimbrale::test
