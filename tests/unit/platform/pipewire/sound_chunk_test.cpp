#include "platform/pipewire/sound_chunk.h"

#include <array>
#include <cstdint>
#include <gtest/gtest.h>
#include <vector>

namespace nimbrale::pipewire {
namespace {

class SoundChunkTest : public testing::Test {
protected:
    SoundChunkTest()
    {
        chunk_.size = sizeof memory_;
        data_.data = memory_.data();
        data_.maxsize = sizeof memory_;
        data_.chunk = &chunk_;
        buffer_.n_datas = 1;
        buffer_.datas = &data_;
    }

    [[nodiscard]] std::vector<float> samples(int channels) const
    {
        const std::span<const float> found = samplesIn(buffer_, channels);
        return {found.begin(), found.end()};
    }

    std::array<float, 5> memory_{1, 2, 3, 4, 5};
    spa_chunk chunk_{};
    spa_data data_{};
    spa_buffer buffer_{};
};

TEST_F(SoundChunkTest, allOfAFullBufferIsRead)
{
    EXPECT_EQ(samples(1), (std::vector<float>{1, 2, 3, 4, 5}));
}

TEST_F(SoundChunkTest, onlyWholeSamplesOfAllChannelsAreRead)
{
    EXPECT_EQ(samples(2), (std::vector<float>{1, 2, 3, 4}));
}

TEST_F(SoundChunkTest, readingBeginsAtTheOffset)
{
    chunk_.offset = sizeof(float);
    chunk_.size = 2 * sizeof(float);
    EXPECT_EQ(samples(1), (std::vector<float>{2, 3}));
}

TEST_F(SoundChunkTest, nothingIsReadPastTheMemory)
{
    chunk_.offset = 3 * sizeof(float);
    chunk_.size = UINT32_MAX;
    EXPECT_EQ(samples(1), (std::vector<float>{4, 5}));
    chunk_.offset = UINT32_MAX;
    EXPECT_TRUE(samples(1).empty());
}

TEST_F(SoundChunkTest, nothingIsReadFromBetweenTwoSamples)
{
    chunk_.offset = 2;
    chunk_.size = 2 * sizeof(float);
    EXPECT_TRUE(samples(1).empty());
}

TEST_F(SoundChunkTest, nothingIsReadWhereNothingCanBe)
{
    EXPECT_TRUE(samples(0).empty());
    data_.chunk = nullptr;
    EXPECT_TRUE(samples(1).empty());
    data_.chunk = &chunk_;
    data_.data = nullptr;
    EXPECT_TRUE(samples(1).empty());
    buffer_.n_datas = 0;
    EXPECT_TRUE(samples(1).empty());
}

} // namespace
} // namespace nimbrale::pipewire
