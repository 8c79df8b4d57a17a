// Once its buffers are there, no picture of a camera takes memory of a picture's or a row's size any more.

#include "tests/fakes/counted_memory.h"
#include "tests/unit/platform/camera_pictures/camera_bytes.h"

#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>

namespace nimbrale {
namespace {

struct MemoryCase {
    friend void PrintTo(const MemoryCase& test, std::ostream* stream) { *stream << test.name; }

    const char* name;
    PictureEncoding encoding;
    ColorCoding colors = ColorCoding::bt601Limited;
    /// Each JPEG brings tables, of which the decoder makes some of its own.
    std::size_t largest = smallPiece;
};

class CameraPictureMemoryTest : public testing::TestWithParam<MemoryCase> {};

TEST_P(CameraPictureMemoryTest, NoPictureTakesMemoryOnceTheBuffersAreThere)
{
    constexpr int width = 640;
    constexpr int height = 360;
    for (const int halvings : {0, 1}) {
        PictureMaker maker([halvings](int, int) { return halvings; });
        const CameraFormat format{GetParam().encoding, width, height, GetParam().colors};
        const bool isJpeg = GetParam().encoding == PictureEncoding::motionJpeg;
        const Bytes small = isJpeg ? noisyJpeg(width, height, 30) : Bytes(std::size_t{width} * height * 4, 90);
        const Bytes large = isJpeg ? noisyJpeg(width, height, 90) : small;

        const Taken byFirst;
        auto shown = maker.make(format, std::array{CameraPlane{large, 0}});
        ASSERT_TRUE(shown);
        EXPECT_GE(byFirst.largest(), static_cast<std::size_t>(width >> halvings) * (height >> halvings) * 4)
            << "the count sees what the first picture takes";
        for (int count = 0; count < 4; ++count)
            shown = maker.make(format, std::array{CameraPlane{count % 2 == 0 ? small : large, 0}});

        const Taken taken;
        for (int count = 0; count < 10; ++count) {
            shown = maker.make(format, std::array{CameraPlane{count % 2 == 0 ? small : large, 0}});
            ASSERT_TRUE(shown);
        }
        EXPECT_LE(taken.largest(), GetParam().largest) << halvings << " halvings";
        // The decoder asks for memory by its alignment.
        if (isAlignedMemoryCounted || !isJpeg) {
            EXPECT_EQ(taken.givenBack(), taken.pieces());
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, CameraPictureMemoryTest,
                         testing::Values(MemoryCase{"YUY2", PictureEncoding::yuy2},
                                         MemoryCase{"UYVY", PictureEncoding::uyvy},
                                         MemoryCase{"YUY2OfOtherColors", PictureEncoding::yuy2, ColorCoding::bt709Full},
                                         MemoryCase{"NV12", PictureEncoding::nv12},
                                         MemoryCase{"I420", PictureEncoding::i420},
                                         MemoryCase{"BGRx", PictureEncoding::bgrx},
                                         MemoryCase{"MJPG", PictureEncoding::motionJpeg, ColorCoding::bt601Full, 4096}),
                         [](const auto& test) { return test.param.name; });

} // namespace
} // namespace nimbrale
