#include "platform/buffer_surface.h"
#include "platform/surface_changes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <utility>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr PixelRect first{0, 0, 10, 10};
constexpr PixelRect second{20, 0, 5, 5};
constexpr PixelRect third{0, 40, 3, 3};

TEST(SurfaceNumberTest, NoTwoAreEqualAndNoneIsZeroOnAnyThread)
{
    std::set<std::uint64_t> numbers[2];
    const auto take = [](std::set<std::uint64_t>& taken) {
        for (int count = 0; count < 1000; ++count)
            taken.insert(newSurfaceNumber());
    };
    std::thread other([&] { take(numbers[1]); });
    take(numbers[0]);
    other.join();
    std::set<std::uint64_t> all(numbers[0]);
    all.insert(numbers[1].begin(), numbers[1].end());
    EXPECT_EQ(all.size(), 2000);
    EXPECT_FALSE(all.contains(0));
}

TEST(SurfaceChangesTest, KnowsNothingBeforeTheFirstPicture)
{
    const SurfaceChanges changes;
    EXPECT_EQ(changes.identifier(), 0);
    EXPECT_EQ(changes.since(0), std::nullopt);
}

TEST(SurfaceChangesTest, AddUpOverThePicturesThatAConsumerMissed)
{
    SurfaceChanges changes;
    changes.advance({first});
    const std::uint64_t shown = changes.identifier();
    EXPECT_THAT(*changes.since(shown), IsEmpty());
    changes.advance({second});
    EXPECT_THAT(*changes.since(shown), ElementsAre(second));
    changes.advance({third, second});
    EXPECT_THAT(*changes.since(shown), ElementsAre(second, third));
}

TEST(SurfaceChangesTest, OfAnEarlierPictureStayAsTheyWere)
{
    SurfaceChanges changes;
    changes.advance({});
    const std::uint64_t shown = changes.identifier();
    changes.advance({second});
    const SurfaceChanges ofThePicture = changes;
    changes.advance({third});
    EXPECT_THAT(*ofThePicture.since(shown), ElementsAre(second));
    EXPECT_EQ(ofThePicture.since(changes.identifier()), std::nullopt) << "a later picture is none to compare with";
}

TEST(SurfaceChangesTest, AreRememberedForSixteenPicturesAndNoMore)
{
    SurfaceChanges changes;
    changes.advance({first});
    const std::uint64_t shown = changes.identifier();
    for (int x = 0; x < 16; ++x)
        changes.advance({{x, 0, 1, 1}});
    ASSERT_TRUE(changes.since(shown));
    EXPECT_EQ(changes.since(shown)->size(), 16);
    changes.advance({third});
    EXPECT_EQ(changes.since(shown), std::nullopt);
}

TEST(SurfaceChangesTest, OfAnotherProducerAreUnknown)
{
    SurfaceChanges changes;
    changes.advance({first});
    SurfaceChanges others;
    others.advance({second});
    EXPECT_EQ(changes.since(others.identifier()), std::nullopt);
}

TEST(BufferSurfaceTest, TellsWhatItIs)
{
    const BufferSurface surface(std::make_shared<PixelBuffer>(30, 20), SurfaceAlpha::premultiplied);
    EXPECT_EQ(surface.width(), 30);
    EXPECT_EQ(surface.height(), 20);
    EXPECT_EQ(surface.pixelFormat(), PixelFormat::bgra);
    EXPECT_EQ(surface.alpha(), SurfaceAlpha::premultiplied);
    EXPECT_EQ(surface.pixels().stride(), 120);
    EXPECT_NE(surface.storage(), 0);
    EXPECT_NE(surface.identifier(), 0);
}

TEST(BufferSurfaceTest, DiffersFromEveryPictureButItself)
{
    const BufferSurface surface(std::make_shared<PixelBuffer>(30, 20), SurfaceAlpha::opaque);
    const BufferSurface other(std::make_shared<PixelBuffer>(30, 20), SurfaceAlpha::opaque);
    EXPECT_THAT(surface.changedSince(surface.identifier()), IsEmpty());
    EXPECT_THAT(surface.changedSince(other.identifier()), ElementsAre(PixelRect{0, 0, 30, 20}));
    EXPECT_THAT(surface.changedSince(0), ElementsAre(PixelRect{0, 0, 30, 20}));
    EXPECT_NE(surface.storage(), other.storage());
}

TEST(BufferSurfacePoolTest, DrawsIntoNothingThatAConsumerHolds)
{
    BufferSurfacePool pool;
    auto held = BufferSurfacePool::finish(pool.take(4, 4), SurfaceAlpha::opaque);
    const std::byte* const heldPixels = held->pixels().row(0);
    const std::uint64_t storage = held->storage();
    const auto consumer = held;
    for (int picture = 0; picture < 5; ++picture) {
        auto canvas = pool.take(4, 4);
        EXPECT_NE(canvas.pixels().row(0), heldPixels);
        held = BufferSurfacePool::finish(std::move(canvas), SurfaceAlpha::opaque);
        EXPECT_NE(held->storage(), storage);
    }
}

TEST(BufferSurfacePoolTest, DrawsAgainIntoWhatEveryConsumerHasReleased)
{
    BufferSurfacePool pool;
    auto surface = BufferSurfacePool::finish(pool.take(4, 4), SurfaceAlpha::opaque);
    const std::byte* const pixels = surface->pixels().row(0);
    const std::uint64_t storage = surface->storage();
    const std::uint64_t identifier = surface->identifier();
    surface.reset();
    auto canvas = pool.take(4, 4);
    EXPECT_EQ(canvas.pixels().row(0), pixels);
    const auto next = BufferSurfacePool::finish(std::move(canvas), SurfaceAlpha::opaque);
    EXPECT_EQ(next->storage(), storage);
    EXPECT_NE(next->identifier(), identifier);
    EXPECT_THAT(next->changedSince(identifier), ElementsAre(PixelRect{0, 0, 4, 4}));
}

TEST(BufferSurfacePoolTest, GivesACanvasThatWasNotFinishedAgain)
{
    BufferSurfacePool pool;
    const std::byte* pixels = nullptr;
    {
        auto canvas = pool.take(4, 4);
        pixels = canvas.pixels().row(0);
    }
    EXPECT_EQ(pool.take(4, 4).pixels().row(0), pixels);
}

TEST(BufferSurfacePoolTest, ChangesItsSize)
{
    BufferSurfacePool pool;
    static_cast<void>(BufferSurfacePool::finish(pool.take(4, 4), SurfaceAlpha::opaque));
    for (const auto& [width, height] : {std::pair{8, 4}, std::pair{8, 2}, std::pair{1, 1}}) {
        auto canvas = pool.take(width, height);
        EXPECT_EQ(canvas.pixels().width(), width);
        EXPECT_EQ(canvas.pixels().height(), height);
        EXPECT_EQ(canvas.pixels().stride(), static_cast<std::size_t>(width) * 4);
    }
}

TEST(BufferSurfacePoolTest, MayEndBeforeItsSurfaces)
{
    std::shared_ptr<const BufferSurface> surface;
    {
        BufferSurfacePool pool;
        auto canvas = pool.take(4, 4);
        canvas.pixels().row(3)[15] = std::byte{7};
        surface = BufferSurfacePool::finish(std::move(canvas), SurfaceAlpha::opaque);
    }
    EXPECT_EQ(surface->pixels().row(3)[15], std::byte{7});
}

TEST(BufferSurfacePoolTest, KeepsPicturesWholeWhileAnotherThreadReadsThem)
{
    BufferSurfacePool pool;
    std::mutex mutex;
    std::shared_ptr<const BufferSurface> newest;
    bool isOver = false;
    int torn = 0;
    int read = 0;
    std::thread consumer([&] {
        for (;;) {
            std::shared_ptr<const BufferSurface> surface;
            {
                const std::lock_guard lock(mutex);
                if (isOver)
                    return;
                surface = std::move(newest);
            }
            if (!surface)
                continue;
            ++read;
            const std::byte* const pixels = surface->pixels().row(0);
            for (std::size_t index = 1; index < 64 * 64 * 4; ++index)
                torn += pixels[index] != pixels[0] ? 1 : 0;
        }
    });
    for (int picture = 0; picture < 500; ++picture) {
        auto canvas = pool.take(64, 64);
        std::fill_n(canvas.pixels().row(0), 64 * 64 * 4, static_cast<std::byte>(picture));
        auto surface = BufferSurfacePool::finish(std::move(canvas), SurfaceAlpha::opaque);
        const std::lock_guard lock(mutex);
        newest = std::move(surface);
    }
    for (;;) {
        const std::lock_guard lock(mutex);
        if (newest)
            continue;
        isOver = true;
        break;
    }
    consumer.join();
    EXPECT_EQ(torn, 0);
    EXPECT_GT(read, 0);
}

} // namespace
} // namespace nimbrale
