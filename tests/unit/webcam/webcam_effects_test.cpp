#include "webcam/webcam_effects.h"

#include "tests/fakes/fake_person_segmentation.h"
#include "tests/fakes/halved_picture.h"
#include "tests/fakes/log_capture.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <random>
#include <set>
#include <utility>

namespace nimbrale {
namespace {

using Background = WebcamEffects::Background;
using State = FakePersonSegmentation::State;
using testing::ElementsAre;
using testing::IsEmpty;

PixelBuffer filled(int width, int height, std::array<int, 4> color)
{
    PixelBuffer picture(width, height);
    for (int y = 0; y < height; ++y) {
        for (std::size_t i = 0; i < picture.stride(); ++i)
            picture.row(y)[i] = static_cast<std::byte>(color[i % 4]);
    }
    return picture;
}

std::array<int, 4> pixel(const BufferSurface& surface, int x, int y)
{
    std::array<int, 4> bytes{};
    for (std::size_t channel = 0; channel < 4; ++channel)
        bytes[channel] = std::to_integer<int>(surface.pixels().row(y)[static_cast<std::size_t>(x) * 4 + channel]);
    return bytes;
}

class WebcamEffectsTest : public testing::Test {
protected:
    /// The person fills the right half.
    WebcamEffectsTest()
    {
        state->setMask(64, 36, [](int x, int) { return x < 32 ? 0 : 255; });
    }

    std::shared_ptr<State> state = std::make_shared<State>();
    WebcamEffects effects{std::make_unique<FakePersonSegmentation>(state)};
};

TEST_F(WebcamEffectsTest, TheOriginalBackgroundNeedsNoEffect)
{
    const LogCapture log;
    EXPECT_FALSE(effects.process(filled(64, 36, {1, 2, 3, 255}), Background::original));
    EXPECT_EQ(state->calls, 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WebcamEffectsTest, ATransparentBackgroundLeavesThePersonAlone)
{
    const auto surface = effects.process(filled(160, 90, {10, 20, 30, 0}), Background::transparent);
    ASSERT_TRUE(surface);
    EXPECT_EQ(surface->width(), 160);
    EXPECT_EQ(surface->height(), 90);
    EXPECT_EQ(surface->alpha(), SurfaceAlpha::premultiplied);
    for (int y = 0; y < 90; ++y) {
        for (int x = 0; x < 70; ++x)
            ASSERT_THAT(pixel(*surface, x, y), ElementsAre(0, 0, 0, 0)) << x << ", " << y;
        for (int x = 90; x < 160; ++x)
            ASSERT_THAT(pixel(*surface, x, y), ElementsAre(10, 20, 30, 255)) << x << ", " << y;
    }
}

TEST_F(WebcamEffectsTest, ColorsNeverExceedTheAlphaTheyAreMultipliedBy)
{
    const auto surface = effects.process(filled(160, 90, {255, 254, 1, 7}), Background::transparent);
    ASSERT_TRUE(surface);
    std::set<int> alphas;
    for (int x = 0; x < 160; ++x) {
        const auto [blue, green, red, alpha] = pixel(*surface, x, 45);
        EXPECT_LE(std::max({blue, green, red}), alpha) << x;
        alphas.insert(alpha);
    }
    EXPECT_GE(alphas.size(), 5) << "the outline is soft";
}

TEST_F(WebcamEffectsTest, ABlurredBackgroundIsOpaqueWhateverTheCamerasAlphaSays)
{
    for (const int alpha : {0, 100, 255}) {
        const auto surface = effects.process(filled(160, 90, {10, 20, 30, alpha}), Background::blurred);
        ASSERT_TRUE(surface);
        EXPECT_EQ(surface->alpha(), SurfaceAlpha::opaque);
        for (int y = 0; y < 90; ++y) {
            for (int x = 0; x < 160; ++x)
                ASSERT_THAT(pixel(*surface, x, y), ElementsAre(10, 20, 30, 255)) << x << ", " << y;
        }
    }
}

TEST_F(WebcamEffectsTest, ThePersonStaysSharpBeforeTheBlur)
{
    PixelBuffer stripes(640, 360);
    for (int y = 0; y < 360; ++y) {
        for (std::size_t i = 0; i < stripes.stride(); ++i)
            stripes.row(y)[i] = i / 4 % 2 == 0 ? std::byte{0} : std::byte{255};
    }
    const auto surface = effects.process(stripes, Background::blurred);
    ASSERT_TRUE(surface);
    EXPECT_THAT(pixel(*surface, 500, 100), ElementsAre(0, 0, 0, 255));
    EXPECT_THAT(pixel(*surface, 501, 100), ElementsAre(255, 255, 255, 255));
    EXPECT_NEAR(pixel(*surface, 100, 100)[0], 127.5, 2);
    EXPECT_NEAR(pixel(*surface, 101, 100)[0], 127.5, 2);
}

TEST_F(WebcamEffectsTest, AFailureIsLoggedAndTheNextPictureTried)
{
    const PixelBuffer picture = filled(64, 36, {1, 2, 3, 255});
    {
        const LogCapture log;
        state->failure = "the model is tired";
        EXPECT_FALSE(effects.process(picture, Background::blurred));
        EXPECT_THAT(log.lines(),
                    ElementsAre(errorLine("Nimbrale.webcam", "Finding the person failed: the model is tired")));
    }
    const LogCapture log;
    state->failure.clear();
    EXPECT_TRUE(effects.process(picture, Background::blurred));
    EXPECT_EQ(state->calls, 2);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WebcamEffectsTest, AResultHalvedOnTheWayIsTheOneHalvedAfterwards)
{
    state->setMask(64, 36, [](int x, int y) { return (x * 5 + y * 3) % 256; });
    PixelBuffer picture(75, 43);
    std::mt19937 random(4); // NOLINT(bugprone-random-generator-seed): the same noise each time.
    std::generate_n(picture.row(0), picture.stride() * 43, [&] { return static_cast<std::byte>(random() & 0xff); });
    for (const Background background : {Background::blurred, Background::transparent}) {
        for (const int halvings : {1, 2, 3}) {
            // Masks are steadied from one picture to the next, so each has its own effects.
            const auto process = [&](int count) {
                return WebcamEffects(std::make_unique<FakePersonSegmentation>(state))
                    .process(picture, background, count);
            };
            const auto expected = halved(*process(0), halvings);
            const auto made = process(halvings);
            ASSERT_EQ(std::pair(made->width(), made->height()), std::pair(expected->width(), expected->height()));
            EXPECT_EQ(made->alpha(), expected->alpha());
            const std::size_t size = made->pixels().stride() * static_cast<std::size_t>(made->height());
            EXPECT_TRUE(std::equal(made->pixels().row(0), made->pixels().row(0) + size, expected->pixels().row(0)))
                << halvings;
        }
    }
}

TEST_F(WebcamEffectsTest, PicturesTakeTurnsInTheSameBuffers)
{
    const PixelBuffer picture = filled(64, 36, {1, 2, 3, 255});
    std::set<std::uint64_t> storages;
    std::shared_ptr<const BufferSurface> shown;
    for (int count = 0; count < 20; ++count) {
        const auto next = effects.process(picture, Background::blurred);
        ASSERT_TRUE(next);
        EXPECT_TRUE(!shown || next->storage() != shown->storage()) << "nobody draws into what is shown";
        storages.insert(next->storage());
        shown = next;
    }
    EXPECT_EQ(storages.size(), 2);
}

TEST_F(WebcamEffectsTest, AnotherSizeGetsBuffersOfItsOwnOnce)
{
    const auto storageFor = [&](int width, int height) {
        return effects.process(filled(width, height, {1, 2, 3, 255}), Background::transparent)->storage();
    };
    const std::uint64_t first = storageFor(64, 36);
    EXPECT_EQ(storageFor(64, 36), first);
    const std::uint64_t second = storageFor(36, 64);
    EXPECT_NE(second, first);
    EXPECT_EQ(storageFor(36, 64), second);
}

TEST_F(WebcamEffectsTest, MasksAreSteadiedFromPictureToPicture)
{
    WebcamEffects::TimePoint time;
    WebcamEffects timed(std::make_unique<FakePersonSegmentation>(state), [&] { return time; });
    const PixelBuffer picture = filled(64, 36, {200, 200, 200, 255});
    const auto alphaFor = [&](int value) {
        state->setMask(64, 36, [value](int, int) { return value; });
        return pixel(*timed.process(picture, Background::transparent), 32, 18)[3];
    };
    EXPECT_EQ(alphaFor(100), 100);
    EXPECT_LT(alphaFor(140), 120);
    time += SteadyMask::longestPause;
    EXPECT_EQ(alphaFor(180), 180);
}

} // namespace
} // namespace nimbrale
