#include "platform/ffmpeg/yuv_conversion.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

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
constexpr int lumaOffset = blackLuma * one + one / 2;
/// Chroma's sums are of four pixels, hence two bits more.
constexpr int chromaOffset = noChroma * 4 * one + 2 * one;

using Bytes = const std::uint8_t* __restrict;
using Samples = std::uint8_t* __restrict;

/// What the compiler turns into vector instructions, for the processor of whichever function it is put into.
[[gnu::always_inline]] inline void lumaRow(Bytes pixels, Samples luma, int width)
{
    for (int x = 0; x < width; ++x, pixels += 4) {
        const int blue = pixels[0];
        const int green = pixels[1];
        const int red = pixels[2];
        const int sum = lumaOfBlue * blue + lumaOfGreen * green + lumaOfRed * red + lumaOffset;
        luma[x] = static_cast<std::uint8_t>(sum >> bits);
    }
}

/// `width` counts chroma samples.
[[gnu::always_inline]] inline void chromaRow(Bytes upper, Bytes lower, Samples blueChroma, Samples redChroma, int width)
{
    for (int x = 0; x < width; ++x, upper += 8, lower += 8) {
        const int blue = upper[0] + upper[4] + lower[0] + lower[4];
        const int green = upper[1] + upper[5] + lower[1] + lower[5];
        const int red = upper[2] + upper[6] + lower[2] + lower[6];
        const int blueSum = ownChroma * blue + blueChromaOfGreen * green + blueChromaOfRed * red + chromaOffset;
        const int redSum = redChromaOfBlue * blue + redChromaOfGreen * green + ownChroma * red + chromaOffset;
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
// The same sums by the instruction that multiplies two pairs of 16-bit numbers and adds the products: a pixel's blue
// and red are one pair, its green the other. What the compiler makes of the loops above multiplies in 32 bits.
#define NIMBRALE_AVX2 [[gnu::target("avx2"), gnu::always_inline]] inline

constexpr int pixelsAtOnce = 32;

/// Eight pixels, or sums of such, as pairs of 16-bit numbers.
struct ColorPairs {
    __m256i blueRed;
    __m256i green; ///< the upper number is no color and is multiplied by 0
};

/// What each pair's numbers are multiplied by.
NIMBRALE_AVX2 __m256i weights(int lower, int upper)
{
    return _mm256_set1_epi32((lower & 0xffff) | static_cast<int>(static_cast<unsigned>(upper) << 16));
}

NIMBRALE_AVX2 ColorPairs loadPixels(Bytes pixels)
{
    const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels));
    const __m256i evenBytes = _mm256_set1_epi16(0xff);
    return {_mm256_and_si256(bytes, evenBytes), _mm256_srli_epi16(bytes, 8)};
}

NIMBRALE_AVX2 __m256i weightedSum(const ColorPairs& colors, __m256i blueRedWeights, __m256i greenWeights, int offset)
{
    const __m256i sum = _mm256_add_epi32(_mm256_madd_epi16(colors.blueRed, blueRedWeights),
                                         _mm256_madd_epi16(colors.green, greenWeights));
    return _mm256_add_epi32(sum, _mm256_set1_epi32(offset));
}

NIMBRALE_AVX2 __m256i lumaOf(const ColorPairs& colors)
{
    const __m256i sum = weightedSum(colors, weights(lumaOfBlue, lumaOfRed), weights(lumaOfGreen, 0), lumaOffset);
    return _mm256_srli_epi32(sum, bits);
}

NIMBRALE_AVX2 void storeLuma(const ColorPairs (&colors)[4], Samples luma)
{
    const __m256i packed = _mm256_packus_epi16(_mm256_packus_epi32(lumaOf(colors[0]), lumaOf(colors[1])),
                                               _mm256_packus_epi32(lumaOf(colors[2]), lumaOf(colors[3])));
    // Packing works within each half of the register.
    const __m256i inOrder = _mm256_permutevar8x32_epi32(packed, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(luma), inOrder);
}

/// The sum of each two neighbors among sixteen pixels: of 0 1, 2 3, 8 9, 10 11, then 4 5, 6 7, 12 13, 14 15.
NIMBRALE_AVX2 __m256i neighborSums(__m256i first, __m256i second)
{
    const __m256 left = _mm256_castsi256_ps(first);
    const __m256 right = _mm256_castsi256_ps(second);
    return _mm256_add_epi16(_mm256_castps_si256(_mm256_shuffle_ps(left, right, _MM_SHUFFLE(2, 0, 2, 0))),
                            _mm256_castps_si256(_mm256_shuffle_ps(left, right, _MM_SHUFFLE(3, 1, 3, 1))));
}

/// Of sixteen columns.
NIMBRALE_AVX2 ColorPairs sumsOfFour(const ColorPairs (&upper)[4], const ColorPairs (&lower)[4], std::size_t first)
{
    const std::size_t second = first + 1;
    return {neighborSums(_mm256_add_epi16(upper[first].blueRed, lower[first].blueRed),
                         _mm256_add_epi16(upper[second].blueRed, lower[second].blueRed)),
            neighborSums(_mm256_add_epi16(upper[first].green, lower[first].green),
                         _mm256_add_epi16(upper[second].green, lower[second].green))};
}

NIMBRALE_AVX2 __m256i chromaOf(const ColorPairs& left, const ColorPairs& right, __m256i blueRedWeights,
                               __m256i greenWeights)
{
    const __m256i first = weightedSum(left, blueRedWeights, greenWeights, chromaOffset);
    const __m256i second = weightedSum(right, blueRedWeights, greenWeights, chromaOffset);
    return _mm256_packus_epi32(_mm256_srli_epi32(first, bits + 2), _mm256_srli_epi32(second, bits + 2));
}

NIMBRALE_AVX2 void storeChroma(const ColorPairs& left, const ColorPairs& right, Samples blueChroma, Samples redChroma)
{
    const __m256i blue = chromaOf(left, right, weights(ownChroma, blueChromaOfRed), weights(blueChromaOfGreen, 0));
    const __m256i red = chromaOf(left, right, weights(redChromaOfBlue, ownChroma), weights(redChromaOfGreen, 0));
    // Back into the order of the columns: the halves of both colors first, then pairs of samples.
    const __m256i halves = _mm256_permute4x64_epi64(_mm256_packus_epi16(blue, red), _MM_SHUFFLE(3, 1, 2, 0));
    const __m256i pairs =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15));
    const __m256i inOrder = _mm256_shuffle_epi8(halves, pairs);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(blueChroma), _mm256_castsi256_si128(inOrder));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(redChroma), _mm256_extracti128_si256(inOrder, 1));
}

NIMBRALE_AVX2 void convertAtOnce(const RowPair& rows)
{
    ColorPairs upper[4];
    ColorPairs lower[4];
    for (std::size_t index = 0; index < 4; ++index) {
        upper[index] = loadPixels(rows.upper + index * sizeof(__m256i));
        lower[index] = loadPixels(rows.lower + index * sizeof(__m256i));
    }
    storeLuma(upper, rows.upperLuma);
    storeLuma(lower, rows.lowerLuma);
    storeChroma(sumsOfFour(upper, lower, 0), sumsOfFour(upper, lower, 2), rows.blueChroma, rows.redChroma);
}

#undef NIMBRALE_AVX2

[[gnu::target("avx2")]] void convertForAvx2(const RowPair& rows)
{
    RowPair rest = rows;
    for (; rest.width >= pixelsAtOnce; rest.width -= pixelsAtOnce) {
        convertAtOnce(rest);
        rest.upper += 4 * sizeof(__m256i);
        rest.lower += 4 * sizeof(__m256i);
        rest.upperLuma += pixelsAtOnce;
        rest.lowerLuma += pixelsAtOnce;
        rest.blueChroma += pixelsAtOnce / 2;
        rest.redChroma += pixelsAtOnce / 2;
    }
    convertPair(rest);
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
