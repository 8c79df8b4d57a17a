#include "platform/pipewire/sound_ring.h"

#include <gmock/gmock.h>
#include <numeric>
#include <thread>

namespace nimbrale::pipewire {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using testing::ElementsAre;

/// Samples that tell which ones they are.
std::vector<float> counting(std::size_t first, std::size_t count)
{
    std::vector<float> samples(count);
    std::iota(samples.begin(), samples.end(), static_cast<float>(first));
    return samples;
}

TEST(SoundRingTest, PiecesComeOutAsTheyWentIn)
{
    SoundRing ring;
    EXPECT_FALSE(ring.read());
    EXPECT_TRUE(ring.write(7ns, 2, counting(1, 4)));
    EXPECT_TRUE(ring.write(9ns, 1, counting(5, 1)));
    const auto first = ring.read();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->time, 7ns);
    EXPECT_EQ(first->channels, 2);
    EXPECT_THAT(first->samples, ElementsAre(1, 2, 3, 4));
    const auto second = ring.read();
    ASSERT_TRUE(second);
    EXPECT_EQ(second->time, 9ns);
    EXPECT_THAT(second->samples, ElementsAre(5));
    EXPECT_FALSE(ring.read());
}

TEST(SoundRingTest, APieceMayLieAcrossTheEnd)
{
    SoundRing ring;
    constexpr std::size_t size = 1000;
    for (std::size_t piece = 0; piece < 1000; ++piece) {
        ASSERT_TRUE(ring.write(nanoseconds{piece}, 1, counting(piece * size, size)));
        const auto out = ring.read();
        ASSERT_TRUE(out);
        ASSERT_EQ(out->samples, counting(piece * size, size)) << "piece " << piece;
    }
}

TEST(SoundRingTest, AFullRingTakesNothingAndKeepsWhatItHas)
{
    SoundRing large;
    std::size_t kept = 0;
    while (large.write(nanoseconds{kept}, 1, counting(kept, 3000)))
        ++kept;
    EXPECT_GE(kept * 3000, 2U * 2 * 48000) << "two seconds of two channels";
    SoundRing small;
    std::size_t pieces = 0;
    while (small.write(nanoseconds{pieces}, 1, counting(pieces, 1)))
        ++pieces;
    EXPECT_GE(pieces, 1000U);
    for (std::size_t piece = 0; piece < kept; ++piece)
        ASSERT_EQ(large.read()->samples, counting(piece, 3000));
    EXPECT_TRUE(large.write(0ns, 1, counting(0, 3000))) << "there is room again";
    EXPECT_TRUE(small.read() && small.write(0ns, 1, counting(0, 1)));
}

TEST(SoundRingTest, APieceThatIsLargerThanTheRingIsRefused)
{
    SoundRing ring;
    EXPECT_FALSE(ring.write(0ns, 1, std::vector<float>(1U << 20U)));
    EXPECT_TRUE(ring.write(0ns, 1, counting(0, 10)));
    EXPECT_EQ(ring.read()->samples, counting(0, 10));
}

TEST(SoundRingTest, OneMayWriteWhileAnotherReads)
{
    SoundRing ring;
    constexpr std::size_t pieces = 20'000;
    std::jthread writer([&ring] {
        for (std::size_t piece = 0; piece < pieces;) {
            if (ring.write(nanoseconds{piece}, 1, counting(piece % 1000, piece % 700 + 1)))
                ++piece;
            else
                std::this_thread::yield();
        }
    });
    for (std::size_t piece = 0; piece < pieces;) {
        const auto out = ring.read();
        if (!out) {
            std::this_thread::yield();
            continue;
        }
        ASSERT_EQ(out->time, nanoseconds{piece});
        ASSERT_EQ(out->samples, counting(piece % 1000, piece % 700 + 1));
        ++piece;
    }
}

} // namespace
} // namespace nimbrale::pipewire
