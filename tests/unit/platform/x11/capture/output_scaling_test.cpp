// Which pixels of a scaled picture depend on which pixels of its source.

#include "platform/x11/capture/output_scaling.h"

#include <cmath>
#include <gtest/gtest.h>
#include <vector>

namespace nimbrale::x11 {
namespace {

struct Sizes {
    int source;
    int output;
};

/// The source pixels that an output pixel is taken from, by the definition of the filter.
std::vector<int> supportOf(int output, const Sizes& sizes)
{
    const double position = (output + 0.5) * sizes.source / sizes.output - 0.5;
    const int first = static_cast<int>(std::floor(position));
    return {first, first + 1};
}

class ScalingOfSizes : public testing::TestWithParam<Sizes> {};

TEST_P(ScalingOfSizes, EveryPixelThatDependsOnTheChangeIsDrawnAndFewMore)
{
    const Sizes sizes = GetParam();
    const OutputScaling scaling(sizes.source, sizes.source, sizes.output, sizes.output);
    for (int begin = 0; begin < sizes.source; ++begin) {
        for (int end = begin + 1; end <= sizes.source; end += 1 + end / 3) {
            const PixelRect drawn = scaling.outputOf({begin, begin, end - begin, end - begin}).bounds();
            ASSERT_GE(drawn.x, 0);
            ASSERT_LE(drawn.right(), sizes.output);
            int first = sizes.output;
            int last = -1;
            for (int output = 0; output < sizes.output; ++output) {
                for (const int source : supportOf(output, sizes)) {
                    if (source >= begin && source < end) {
                        first = std::min(first, output);
                        last = std::max(last, output);
                    }
                }
            }
            if (last < 0)
                continue;
            ASSERT_LE(drawn.x, first) << begin << "…" << end;
            ASSERT_GT(drawn.right(), last) << begin << "…" << end;
            ASSERT_GE(drawn.x, first - 3) << begin << "…" << end;
            ASSERT_LE(drawn.right(), last + 4) << begin << "…" << end;
            ASSERT_EQ(drawn.y, drawn.x);
            ASSERT_EQ(drawn.height, drawn.width);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, ScalingOfSizes,
                         testing::Values(Sizes{100, 50}, Sizes{50, 100}, Sizes{97, 41}, Sizes{41, 97}, Sizes{64, 63},
                                         Sizes{63, 64}, Sizes{1, 7}, Sizes{7, 1}, Sizes{40, 3}));

TEST(OutputScaling, SidesAreScaledEachByItsOwnFactor)
{
    const OutputScaling scaling(200, 100, 100, 200);
    EXPECT_FALSE(scaling.isExact());
    EXPECT_DOUBLE_EQ(scaling.horizontalStep(), 2);
    EXPECT_DOUBLE_EQ(scaling.verticalStep(), 0.5);
    const PixelRect drawn = scaling.outputOf({100, 50, 20, 10}).bounds();
    EXPECT_TRUE(drawn.x >= 46 && drawn.x <= 50 && drawn.right() >= 60 && drawn.right() <= 64);
    EXPECT_TRUE(drawn.y >= 95 && drawn.y <= 100 && drawn.bottom() >= 120 && drawn.bottom() <= 125);
}

TEST(OutputScaling, APixelMoreThanTheFilterReachesIsDrawnOnEitherSide)
{
    const OutputScaling scaling(200, 200, 100, 100);
    // The filter reaches from 49.25 to 54.75; the server's arithmetic may be a little off.
    EXPECT_EQ(scaling.outputOf({100, 100, 10, 10}).bounds(), (PixelRect{48, 48, 8, 8}));
}

TEST(OutputScaling, WhereNothingIsScaledTheChangeIsTheSame)
{
    const OutputScaling scaling(300, 200, 300, 200);
    EXPECT_TRUE(scaling.isExact());
    PixelRegion changed(3, 4, 5, 6);
    changed.add(100, 100, 1, 1);
    EXPECT_EQ(scaling.outputOf(changed).rects(), changed.rects());
    EXPECT_FALSE(OutputScaling(300, 200, 300, 201).isExact());
    EXPECT_FALSE(OutputScaling(300, 200, 301, 200).isExact());
}

TEST(OutputScaling, AWiderSourceStandsBetweenBarsAboveAndBelow)
{
    const OutputScaling scaling(400, 100, 200, 200, OutputFit::inside);
    EXPECT_TRUE(scaling.hasBars());
    EXPECT_EQ(scaling.picture(), (PixelRect{0, 75, 200, 50}));
    EXPECT_DOUBLE_EQ(scaling.horizontalStep(), 2);
    EXPECT_DOUBLE_EQ(scaling.verticalStep(), 2);
    EXPECT_EQ(scaling.outputOf({0, 0, 400, 100}).bounds(), (PixelRect{0, 75, 200, 50})) << "never in the bars";
    EXPECT_EQ(scaling.outputOf({200, 50, 10, 10}).bounds(), (PixelRect{98, 98, 8, 8}));
}

TEST(OutputScaling, ATallerSourceStandsBetweenBarsOnItsSides)
{
    const OutputScaling scaling(100, 400, 640, 360, OutputFit::inside);
    EXPECT_EQ(scaling.picture(), (PixelRect{275, 0, 90, 360}));
    EXPECT_EQ(OutputScaling(100, 400, 641, 360, OutputFit::inside).picture(), (PixelRect{275, 0, 90, 360}))
        << "of an odd rest the right bar has the pixel more";
    EXPECT_FALSE(OutputScaling(100, 400, 640, 360).hasBars());
}

TEST(OutputScaling, WithinAPixelOfItsProportionTheSourceIsStretched)
{
    EXPECT_FALSE(OutputScaling(1367, 769, 1366, 768, OutputFit::inside).hasBars());
    EXPECT_FALSE(OutputScaling(5120, 2881, 2560, 1440, OutputFit::inside).hasBars());
    EXPECT_FALSE(OutputScaling(300, 200, 300, 200, OutputFit::inside).hasBars());
    EXPECT_FALSE(OutputScaling(300, 200, 300, 201, OutputFit::inside).hasBars());
    EXPECT_FALSE(OutputScaling(300, 200, 301, 200, OutputFit::inside).hasBars());
    EXPECT_TRUE(OutputScaling(300, 200, 300, 202, OutputFit::inside).hasBars());
    EXPECT_TRUE(OutputScaling(300, 200, 302, 200, OutputFit::inside).hasBars());
    EXPECT_TRUE(OutputScaling(300, 200, 304, 200, OutputFit::inside).hasBars());
}

TEST(OutputScaling, TheThinnestSourceIsStillShown)
{
    EXPECT_EQ(OutputScaling(4000, 1, 100, 100, OutputFit::inside).picture(), (PixelRect{0, 49, 100, 1}));
}

TEST(OutputScaling, ChangesApartStayApart)
{
    const OutputScaling scaling(1000, 1000, 500, 500);
    PixelRegion changed(10, 10, 4, 4);
    changed.add(900, 900, 4, 4);
    EXPECT_EQ(scaling.outputOf(changed).count(), 2);
    EXPECT_TRUE(scaling.outputOf({}).isEmpty());
}

} // namespace
} // namespace nimbrale::x11
