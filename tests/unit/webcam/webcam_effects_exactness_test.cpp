// How near the effects come to the same computed plainly in double precision.

#include "tests/fakes/fake_person_segmentation.h"
#include "tests/support/exact_effects.h"
#include "webcam/webcam_effects.h"

#include <gmock/gmock.h>
#include <random>

namespace nimbrale {
namespace {

using Background = WebcamEffects::Background;
using State = FakePersonSegmentation::State;

/// In steps of 1/255; rounding to bytes alone takes half a one.
constexpr double tolerance = 1;

/// Patches of what is hard to blur: noise, lines and squares of single pixels and of several, slopes and edges.
PixelBuffer patchwork(int width, int height)
{
    PixelBuffer picture(width, height);
    std::mt19937 random(7);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const int patch = (x * 4 / width) + 4 * (y * 3 / height);
            const int noise = static_cast<int>(random() % 256);
            const std::array<int, 12> patterns{noise,
                                               noise < 128 ? 0 : 255,
                                               (x + y) % 2 * 255,
                                               (x / 5 + y / 5) % 2 * 255,
                                               x % 5 < 2 ? 255 : 0,
                                               y % 2 * 255,
                                               x * 255 / width,
                                               (x - y) % 97 < 40 ? 255 : 0,
                                               255,
                                               x % 37 == 0 ? 255 : 0,
                                               (x / 3 + y / 4) % 2 * 255,
                                               noise / 16 * 16};
            std::byte* const pixel = picture.row(y) + static_cast<std::ptrdiff_t>(x) * 4;
            pixel[0] = static_cast<std::byte>(patterns[patch % 12]);
            pixel[1] = static_cast<std::byte>(patterns[(patch + 5) % 12]);
            pixel[2] = static_cast<std::byte>(255 - patterns[(patch + 2) % 12]);
            // Whatever a camera leaves there.
            pixel[3] = static_cast<std::byte>(noise);
        }
    }
    return picture;
}

/// Black and white pixels by chance, with edges of the one or the other.
PixelBuffer blackAndWhite(int width, int height)
{
    PixelBuffer picture(width, height);
    std::mt19937 random(3);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            for (int channel = 0; channel < 4; ++channel) {
                const bool isEdge = x == 0 || x == width - 1 || y == 0 || y == height - 1;
                const bool isWhite = isEdge ? channel == 0 : random() % 2 == 0;
                picture.row(y)[x * 4 + channel] = isWhite ? std::byte{255} : std::byte{0};
            }
        }
    }
    return picture;
}

/// A disk with a sharp outline, and doubt beside it.
int person(int x, int y)
{
    if ((x - 110) * (x - 110) + (y - 70) * (y - 70) < 2500)
        return 255;
    return x > 200 ? (x * 7 + y * 13) % 256 : 0;
}

struct Size {
    int width;
    int height;
};

void PrintTo(const Size& size, std::ostream* stream)
{
    *stream << size.width << " x " << size.height;
}

class WebcamEffectsExactnessTest : public testing::TestWithParam<Size> {
protected:
    WebcamEffectsExactnessTest() { state->setMask(256, 144, person); }

    void expectExact(const PixelBuffer& picture, Background background)
    {
        const auto surface = effects.process(picture, background);
        ASSERT_TRUE(surface);
        const double farthest = test::ExactEffects(picture).farthest(surface->pixels(), state->mask(), background);
        EXPECT_LE(farthest, tolerance);
    }

    std::shared_ptr<State> state = std::make_shared<State>();
    // Each picture comes long after the one before, so that each mask is taken as it is.
    WebcamEffects::TimePoint time;
    WebcamEffects effects{std::make_unique<FakePersonSegmentation>(state),
                          [this] { return time += std::chrono::hours{1}; }};
};

TEST_P(WebcamEffectsExactnessTest, BlursPatches)
{
    expectExact(patchwork(GetParam().width, GetParam().height), Background::blurred);
}

TEST_P(WebcamEffectsExactnessTest, BlursBlackAndWhite)
{
    expectExact(blackAndWhite(GetParam().width, GetParam().height), Background::blurred);
}

TEST_P(WebcamEffectsExactnessTest, LeavesNothingBehindThePerson)
{
    expectExact(patchwork(GetParam().width, GetParam().height), Background::transparent);
}

INSTANTIATE_TEST_SUITE_P(Sizes, WebcamEffectsExactnessTest,
                         testing::Values(Size{1280, 720}, Size{640, 480}, Size{641, 361}, Size{640, 360},
                                         Size{501, 499}, Size{320, 240}, Size{256, 144}, Size{129, 73}, Size{33, 200},
                                         Size{17, 3}, Size{1000, 1}, Size{1, 1000}, Size{2, 2}, Size{1, 1}),
                         [](const auto& description) {
                             return std::to_string(description.param.width) + "x" +
                                    std::to_string(description.param.height);
                         });

using WebcamEffectsOtherSizesTest = WebcamEffectsExactnessTest;

TEST_P(WebcamEffectsOtherSizesTest, AMaskMayHaveAnySize)
{
    const PixelBuffer picture = patchwork(150, 100);
    state->setMask(GetParam().width, GetParam().height, [](int x, int y) { return (x * 31 + y * 57) % 256; });
    expectExact(picture, Background::blurred);
    expectExact(picture, Background::transparent);
}

INSTANTIATE_TEST_SUITE_P(Masks, WebcamEffectsOtherSizesTest,
                         testing::Values(Size{1, 1}, Size{1, 9}, Size{9, 1}, Size{150, 100}, Size{300, 200},
                                         Size{33, 77}));

TEST_F(WebcamEffectsExactnessTest, TheComparisonSeesAnotherBlurAndAnotherMask)
{
    const PixelBuffer picture = patchwork(640, 360);
    const auto surface = effects.process(picture, Background::blurred);
    ASSERT_TRUE(surface);
    const test::ExactEffects exact(picture);
    EXPECT_GT(exact.farthest(surface->pixels(), state->mask(), Background::blurred, 0.0126), tolerance);
    EXPECT_GT(exact.farthest(surface->pixels(), state->mask(), Background::blurred, 0.0114), tolerance);
    state->setMask(256, 144, [](int x, int y) { return person(x + 1, y); });
    EXPECT_GT(exact.farthest(surface->pixels(), state->mask(), Background::blurred), tolerance);
}

} // namespace
} // namespace nimbrale
