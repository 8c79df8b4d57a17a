#include "platform/ffmpeg/yuv_conversion.h"

namespace nimbrale::ffmpeg {

namespace {

// The coefficients of BT.709 for the limited range, times 2^14: 219/255 of each color's weight for luma, and 224/255 of
// its share in the color differences for chroma. Those of luma add up to white's 219/255, those of chroma to nothing,
// so that grays stay gray.
constexpr int bits = 14;
constexpr int one = 1 << bits;
constexpr int lumaOfBlue = 1016;
constexpr int lumaOfGreen = 10064;
constexpr int lumaOfRed = 2991;
constexpr int ownChroma = 7196;
constexpr int blueChromaOfGreen = -5547;
constexpr int blueChromaOfRed = -1649;
constexpr int redChromaOfBlue = -660;
constexpr int redChromaOfGreen = -6536;
constexpr int blackLuma = 16;
constexpr int noChroma = 128;

using Bytes = const std::uint8_t* __restrict;
using Samples = std::uint8_t* __restrict;

/// What the compiler turns into vector instructions, for the processor of whichever function it is put into.
[[gnu::always_inline]] inline void lumaRow(Bytes pixels, Samples luma, int width)
{
    for (int x = 0; x < width; ++x, pixels += 4) {
        const int blue = pixels[0];
        const int green = pixels[1];
        const int red = pixels[2];
        const int sum = lumaOfBlue * blue + lumaOfGreen * green + lumaOfRed * red + blackLuma * one + one / 2;
        luma[x] = static_cast<std::uint8_t>(sum >> bits);
    }
}

/// `width` counts chroma samples; the sums are of four pixels, hence two bits more.
[[gnu::always_inline]] inline void chromaRow(Bytes upper, Bytes lower, Samples blueChroma, Samples redChroma, int width)
{
    for (int x = 0; x < width; ++x, upper += 8, lower += 8) {
        const int blue = upper[0] + upper[4] + lower[0] + lower[4];
        const int green = upper[1] + upper[5] + lower[1] + lower[5];
        const int red = upper[2] + upper[6] + lower[2] + lower[6];
        const int offset = noChroma * 4 * one + 2 * one;
        const int blueSum = ownChroma * blue + blueChromaOfGreen * green + blueChromaOfRed * red + offset;
        const int redSum = redChromaOfBlue * blue + redChromaOfGreen * green + ownChroma * red + offset;
        blueChroma[x] = static_cast<std::uint8_t>(blueSum >> (bits + 2));
        redChroma[x] = static_cast<std::uint8_t>(redSum >> (bits + 2));
    }
}

struct RowPair {
    Bytes upper;
    Bytes lower;
    Samples upperLuma;
    Samples lowerLuma;
    Samples blueChroma;
    Samples redChroma;
    int width;
};

[[gnu::always_inline]] inline void convertPair(const RowPair& rows)
{
    lumaRow(rows.upper, rows.upperLuma, rows.width);
    lumaRow(rows.lower, rows.lowerLuma, rows.width);
    chromaRow(rows.upper, rows.lower, rows.blueChroma, rows.redChroma, rows.width / 2);
}

void convertForAny(const RowPair& rows)
{
    convertPair(rows);
}

using Converter = void (*)(const RowPair&);

#if defined(__x86_64__)
[[gnu::target("avx2")]] void convertForAvx2(const RowPair& rows)
{
    convertPair(rows);
}

Converter converterOfThisProcessor()
{
    return __builtin_cpu_supports("avx2") ? convertForAvx2 : convertForAny;
}
#else
Converter converterOfThisProcessor()
{
    return convertForAny;
}
#endif

} // namespace

void convertToYuv(const PixelBuffer& pixels, const PixelRect& rect, const YuvPlanes& planes)
{
    static const Converter convert = converterOfThisProcessor();
    const PixelRect inside = rect.intersectedWith({0, 0, pixels.width(), pixels.height()});
    const int left = inside.x & ~1;
    const int right = static_cast<int>((inside.right() + 1) & ~std::int64_t{1});
    const int bottom = static_cast<int>(inside.bottom());
    for (int y = inside.y & ~1; y < bottom; y += 2) {
        const auto row = [&](int number) {
            return reinterpret_cast<Bytes>(pixels.row(number)) + std::ptrdiff_t{left} * PixelBuffer::bytesPerPixel;
        };
        std::uint8_t* const luma = planes.luma + y * planes.lumaStride + left;
        convert({row(y), row(y + 1), luma, luma + planes.lumaStride,
                 planes.blueChroma + (y / 2) * planes.blueChromaStride + left / 2,
                 planes.redChroma + (y / 2) * planes.redChromaStride + left / 2, right - left});
    }
}

} // namespace nimbrale::ffmpeg
