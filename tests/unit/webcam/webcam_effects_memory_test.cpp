// Once its buffers are there, an effect takes no memory of a picture's or a row's size any more, and finding the person
// takes but small pieces and gives them back. This program counts every piece that any of its threads takes, by
// whatever name it is asked for.

#include "platform/opencv/model_file.h"
#include "platform/opencv/opencv_person_segmentation.h"
#include "tests/fakes/counted_memory.h"
#include "tests/fakes/fake_person_segmentation.h"
#include "webcam/webcam_effects.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <opencv2/core.hpp>
#include <thread>
#include <utility>
#include <vector>

namespace nimbrale {
namespace {

TEST(CountedMemoryTest, EveryWayToTakeMemoryIsCounted)
{
    constexpr std::size_t page = 4096;
    constexpr std::size_t size = 3 * page;
    struct Way {
        const char* name;
        std::function<void*()> take;
        std::function<void(void*)> giveBack;
        bool isCounted = true;
    };
    struct alignas(64) Line {
        std::array<char, size> bytes;
    };
    const auto give = [](void* memory) { std::free(memory); };
    const std::vector<Way> ways{
        {"malloc", [] { return std::malloc(size); }, give},
        {"calloc", [] { return std::calloc(3, page); }, give},
        {"realloc", [] { return std::realloc(nullptr, size); }, give},
        {"aligned_alloc", [] { return std::aligned_alloc(page, size); }, give, isAlignedMemoryCounted},
        {"posix_memalign",
         [] {
             void* memory = nullptr;
             return posix_memalign(&memory, page, size) == 0 ? memory : nullptr;
         },
         give, isAlignedMemoryCounted},
        {"new", [] { return ::operator new(size); }, [](void* memory) { ::operator delete(memory); }},
        {"aligned new", [] { return static_cast<void*>(new Line); },
         [](void* memory) { delete static_cast<Line*>(memory); }},
        {"the library's own", [] { return cv::fastMalloc(size); }, [](void* memory) { cv::fastFree(memory); }},
    };
    for (const Way& way : ways) {
        if (!way.isCounted)
            continue;
        const Taken taken;
        void* const memory = way.take();
        ASSERT_NE(memory, nullptr) << way.name;
        EXPECT_GE(taken.pieces(), 1U) << way.name;
        EXPECT_GE(taken.largest(), size) << way.name;
        EXPECT_EQ(taken.givenBack(), 0U) << way.name;
        way.giveBack(memory);
        EXPECT_EQ(taken.givenBack(), taken.pieces()) << way.name;
    }
    const Taken taken;
    std::thread([] { cv::fastFree(cv::fastMalloc(size)); }).join();
    EXPECT_GE(taken.largest(), size) << "another thread's";
}

class WebcamEffectsMemoryTest : public testing::TestWithParam<WebcamEffects::Background> {};

TEST_P(WebcamEffectsMemoryTest, NoPictureTakesMemoryOnceTheBuffersAreThere)
{
    const auto state = std::make_shared<FakePersonSegmentation::State>();
    state->setMask(256, 144, [](int x, int y) { return (x * y) % 256; });
    WebcamEffects effects(std::make_unique<FakePersonSegmentation>(state));
    const PixelBuffer picture(641, 361);
    const PixelBuffer other(320, 240);

    const Taken byFirst;
    auto shown = effects.process(picture, GetParam(), 1);
    EXPECT_GT(byFirst.largePieces(), 5U) << "the count sees what the first picture takes";
    shown = effects.process(picture, GetParam(), 1);

    constexpr std::size_t count = 10;
    /// What keeps a picture until all have let go of it.
    constexpr std::size_t handles = 4;
    const Taken bySmaller;
    for (std::size_t i = 0; i < count; ++i)
        shown = effects.process(picture, GetParam(), 1);
    EXPECT_EQ(bySmaller.largePieces(), 0U);
    EXPECT_LE(bySmaller.pieces(), count * handles);
    EXPECT_EQ(bySmaller.givenBack(), bySmaller.pieces());

    shown = effects.process(picture, GetParam());
    shown = effects.process(picture, GetParam());
    const Taken byWhole;
    for (std::size_t i = 0; i < count; ++i)
        shown = effects.process(picture, GetParam());
    EXPECT_EQ(byWhole.largePieces(), 0U) << "the same in the picture's own size";
    EXPECT_LE(byWhole.pieces(), count * handles);

    const Taken byOther;
    shown = effects.process(other, GetParam());
    EXPECT_GT(byOther.largePieces(), 0U) << "another size needs other buffers";
}

TEST_P(WebcamEffectsMemoryTest, FindingThePersonTakesSmallPiecesAndGivesThemBack)
{
    const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    auto segmentation = opencv::createPersonSegmentation(opencv::modelFile(folder));
    ASSERT_TRUE(segmentation) << segmentation.error().message;
    WebcamEffects effects(std::move(*segmentation));
    const PixelBuffer picture(1280, 720);

    const Taken byFirst;
    auto shown = effects.process(picture, GetParam());
    EXPECT_GT(byFirst.bytes(), 4'000'000U) << "the count sees what the first picture takes";
    shown = effects.process(picture, GetParam());

    constexpr std::size_t count = 10;
    const Taken taken;
    for (std::size_t i = 0; i < count; ++i)
        shown = effects.process(picture, GetParam());
    EXPECT_EQ(taken.givenBack(), taken.pieces()) << "nothing is kept";
    EXPECT_LE(taken.largest(), 40'000U) << "less than a row of the model's first layer";
    EXPECT_LE(taken.bytes() / count, 400'000U);
    std::cout << "[ FIGURE   ] a picture takes " << taken.pieces() / count << " pieces of " << taken.bytes() / count
              << " bytes together, the largest of " << taken.largest() << "; the first picture takes "
              << byFirst.bytes() << " bytes\n";
}

INSTANTIATE_TEST_SUITE_P(Backgrounds, WebcamEffectsMemoryTest,
                         testing::Values(WebcamEffects::Background::blurred, WebcamEffects::Background::transparent));

} // namespace
} // namespace nimbrale
