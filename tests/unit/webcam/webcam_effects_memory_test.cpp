// Once its buffers are there, an effect takes no memory of a picture's or a row's size any more. This program counts
// what it takes.

#include "tests/fakes/fake_person_segmentation.h"
#include "webcam/webcam_effects.h"

#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>

namespace {

/// Handles of shared pictures are smaller, everything that is made of pixels is larger.
constexpr std::size_t small = 256;
std::atomic<int> largePieces = 0;

} // namespace

void* operator new(std::size_t size)
{
    if (size > small)
        ++largePieces;
    if (void* const memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}

namespace nimbrale {
namespace {

class WebcamEffectsMemoryTest : public testing::TestWithParam<WebcamEffects::Background> {};

TEST_P(WebcamEffectsMemoryTest, NoPictureTakesMemoryOnceTheBuffersAreThere)
{
    const auto state = std::make_shared<FakePersonSegmentation::State>();
    state->setMask(256, 144, [](int x, int y) { return (x * y) % 256; });
    WebcamEffects effects(std::make_unique<FakePersonSegmentation>(state));
    const PixelBuffer picture(641, 361);
    const PixelBuffer other(320, 240);

    int before = largePieces;
    auto shown = effects.process(picture, GetParam(), 1);
    EXPECT_GT(largePieces - before, 5) << "the count sees what the first picture takes";
    shown = effects.process(picture, GetParam(), 1);

    before = largePieces;
    for (int count = 0; count < 10; ++count)
        shown = effects.process(picture, GetParam(), 1);
    EXPECT_EQ(largePieces - before, 0);

    shown = effects.process(picture, GetParam());
    shown = effects.process(picture, GetParam());
    before = largePieces;
    for (int count = 0; count < 10; ++count)
        shown = effects.process(picture, GetParam());
    EXPECT_EQ(largePieces - before, 0) << "the same in the picture's own size";

    before = largePieces;
    shown = effects.process(other, GetParam());
    EXPECT_GT(largePieces - before, 0) << "another size needs other buffers";
}

INSTANTIATE_TEST_SUITE_P(Backgrounds, WebcamEffectsMemoryTest,
                         testing::Values(WebcamEffects::Background::blurred, WebcamEffects::Background::transparent));

} // namespace
} // namespace nimbrale
