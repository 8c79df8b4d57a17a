#include "platform/x11/displays/randr_rules.h"

#include <gtest/gtest.h>

namespace nimbrale::x11 {
namespace {

constexpr xcb_atom_t ours = 100;
constexpr xcb_atom_t leftOne = 101;
constexpr xcb_atom_t rightOne = 102;

RandrMonitor monitor(xcb_atom_t name, const PixelRect& pixels, std::vector<xcb_randr_output_t> outputs)
{
    return {.name = name, .outputs = std::move(outputs), .pixels = pixels};
}

TEST(PixelPitchTest, IsMillimetersByPixels)
{
    const PixelPitch pitch = pitchOf(1000, 500, {250, 250});
    EXPECT_EQ(pitch.horizontal, 0.25);
    EXPECT_EQ(pitch.vertical, 0.5);
}

TEST(PixelPitchTest, IsThatOf96DotsAnInchWhereMillimetersAreMissing)
{
    for (const SizeInMillimeters& size : {SizeInMillimeters{0, 250}, SizeInMillimeters{250, 0}}) {
        const PixelPitch pitch = pitchOf(1000, 500, size);
        EXPECT_EQ(pitch.horizontal, 25.4 / 96);
        EXPECT_EQ(pitch.vertical, 25.4 / 96);
    }
}

TEST(MillimetersTest, AreWholeAndAtLeastOne)
{
    EXPECT_EQ(millimeters(1000, 500, {0.25, 0.5}), (SizeInMillimeters{250, 250}));
    EXPECT_EQ(millimeters(10, 10, {0.24, 0.26}), (SizeInMillimeters{2, 3}));
    EXPECT_EQ(millimeters(10, 10, {0.001, 0.001}), (SizeInMillimeters{1, 1}));
}

TEST(RandrBoundsTest, HoldAllThatIsLitAndAllMonitorsOfOthers)
{
    const std::vector<PixelRect> lit = {{0, 0, 1280, 720}, {1280, 100, 800, 600}};
    const std::vector<RandrMonitor> monitors = {monitor(leftOne, {0, 0, 1280, 720}, {1}),
                                                monitor(rightOne, {1280, 100, 800, 900}, {}),
                                                monitor(ours, {2080, 1000, 640, 400}, {})};
    EXPECT_EQ(boundsOf(lit, monitors, ours), (PixelRect{0, 0, 2080, 1000}));
    EXPECT_EQ(boundsOf(lit, {}, ours), (PixelRect{0, 0, 2080, 720}));
    EXPECT_EQ(boundsOf(lit, monitors, XCB_ATOM_NONE), (PixelRect{0, 0, 2720, 1400}));
    EXPECT_TRUE(boundsOf({}, {}, ours).isEmpty());
}

TEST(OutputForPrimaryTest, IsOfTheLeftmostMonitorAndThenOfTheTopmost)
{
    const RandrMonitor left = monitor(leftOne, {0, 100, 1280, 720}, {11, 12});
    const RandrMonitor right = monitor(rightOne, {1280, 0, 800, 600}, {21});
    EXPECT_EQ(outputForPrimary({left, right}, ours), 11U);
    EXPECT_EQ(outputForPrimary({right, left}, ours), 11U);
    const RandrMonitor above = monitor(rightOne, {0, 0, 800, 100}, {31});
    EXPECT_EQ(outputForPrimary({left, above}, ours), 31U);
    EXPECT_EQ(outputForPrimary({above, left}, ours), 31U);
    EXPECT_EQ(outputForPrimary({left, monitor(rightOne, left.pixels, {41})}, ours), 11U) << "the first of two alike";
}

TEST(OutputForPrimaryTest, IsNoneOfOursNorOfMonitorsWithoutOutputs)
{
    const RandrMonitor right = monitor(rightOne, {1280, 0, 800, 600}, {21});
    EXPECT_EQ(outputForPrimary({monitor(ours, {0, 0, 640, 400}, {1}), right}, ours), 21U);
    EXPECT_EQ(outputForPrimary({monitor(leftOne, {0, 0, 640, 400}, {}), right}, ours), 21U);
    EXPECT_EQ(outputForPrimary({monitor(ours, {0, 0, 640, 400}, {1})}, ours), xcb_randr_output_t{XCB_NONE});
    EXPECT_EQ(outputForPrimary({}, ours), xcb_randr_output_t{XCB_NONE});
}

TEST(UnborneOutputTest, IsThePreferredOneOrTheLast)
{
    EXPECT_EQ(unborneOutput({1, 2, 3}, {}, ours, 2), 2U);
    EXPECT_EQ(unborneOutput({1, 2, 3}, {}, ours, 9), 3U) << "not idle";
    EXPECT_EQ(unborneOutput({1, 2, 3}, {}, ours, XCB_NONE), 3U);
    EXPECT_EQ(unborneOutput({}, {}, ours, 2), xcb_randr_output_t{XCB_NONE});
}

TEST(UnborneOutputTest, IsBorneByNoMonitorOfOthers)
{
    const RandrMonitor other = monitor(leftOne, {0, 0, 640, 400}, {8, 3});
    EXPECT_EQ(unborneOutput({1, 2, 3}, {other}, ours, 3), 2U);
    EXPECT_EQ(unborneOutput({3}, {other}, ours, 3), xcb_randr_output_t{XCB_NONE});
    EXPECT_EQ(unborneOutput({1, 2, 3}, {monitor(ours, {0, 0, 640, 400}, {3})}, ours, 3), 3U);
}

} // namespace
} // namespace nimbrale::x11
