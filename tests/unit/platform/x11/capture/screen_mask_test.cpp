#include "platform/x11/capture/screen_mask.h"

#include <gtest/gtest.h>

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;

constexpr ScreenMask::Clock::time_point start{};
const PixelRegion source(0, 0, 1000, 800);
const PixelRegion button(400, 300, 20, 20);

PixelRegion without(PixelRegion region, const PixelRegion& other)
{
    region -= other;
    return region;
}

class ScreenMaskTest : public testing::Test {
protected:
    ScreenMaskTest()
    {
        (void)mask.update(button, start, start);
        (void)mask.divide(source, {});
    }

    ScreenMask mask;
};

TEST_F(ScreenMaskTest, whatIsNotMaskedComesFromTheScreen)
{
    const ScreenMask::Parts parts = mask.divide(source, {});
    EXPECT_EQ(parts.fromScreen, without(source, button));
    EXPECT_EQ(parts.fromSeen, button);
}

TEST_F(ScreenMaskTest, whatWasNeverSeenIsComposedOnce)
{
    ScreenMask fresh;
    (void)fresh.update(button, start, start);
    EXPECT_EQ(fresh.divide(source, {}).composed, button);
    EXPECT_TRUE(fresh.divide(source, {}).composed.isEmpty());
}

TEST_F(ScreenMaskTest, theSurroundingsOfTheMaskAreSeenWhenTheyChange)
{
    ScreenMask fresh;
    (void)fresh.update(button, start, start);
    const PixelRegion around(400 - ScreenMask::reach, 300 - ScreenMask::reach, 20 + 2 * ScreenMask::reach,
                             20 + 2 * ScreenMask::reach);
    EXPECT_EQ(fresh.divide(source, {}).refreshed, without(around, button));
    EXPECT_TRUE(fresh.divide(source, {}).refreshed.isEmpty()) << "they have been seen";
    fresh.noteScreenDamage(PixelRegion(390, 290, 40, 40));
    fresh.noteScreenDamage(PixelRegion(0, 0, 50, 50));
    EXPECT_EQ(fresh.divide(source, {}).refreshed, without(PixelRegion(390, 290, 40, 40), button))
        << "neither what is masked nor what is far away";
}

TEST_F(ScreenMaskTest, aMaskThatMovesCoversWhatWasSeen)
{
    const PixelRegion next(430, 300, 20, 20);
    mask.hold(button, start, {250ms});
    EXPECT_TRUE(mask.update(next, start, start).isEmpty());
    PixelRegion both(button);
    both |= next;
    const ScreenMask::Parts parts = mask.divide(source, {});
    EXPECT_EQ(parts.fromSeen, both);
    EXPECT_TRUE(parts.composed.isEmpty());
}

TEST_F(ScreenMaskTest, aMaskThatJumpsToWhatWasNotSeenIsComposed)
{
    const PixelRegion far(800, 600, 20, 20);
    (void)mask.update(far, start, start);
    EXPECT_EQ(mask.divide(source, {}).composed, far);
}

TEST_F(ScreenMaskTest, aPlaceIsLeftWhenItIsHeldNoLonger)
{
    mask.hold(button, start, {250ms});
    EXPECT_TRUE(mask.update({}, start + 249ms, start + 249ms).isEmpty());
    EXPECT_EQ(mask.nextRelease(), start + 250ms);
    EXPECT_EQ(mask.update({}, start + 250ms, start + 250ms), button);
    EXPECT_TRUE(mask.region().isEmpty());
    EXPECT_EQ(mask.divide(button, {}).fromScreen, button);
    // What was below is not what was seen before.
    (void)mask.update(button, start + 300ms, start + 300ms);
    EXPECT_EQ(mask.divide(button, {}).composed, button);
}

TEST_F(ScreenMaskTest, whatTheFrameBeforeShowsIsTakenFromThere)
{
    const PixelRegion far(800, 600, 20, 20);
    const PixelRegion shown(0, 0, 810, 800);
    (void)mask.update(far, start, start);
    const ScreenMask::Parts parts = mask.divide(PixelRegion(805, 600, 10, 20), shown);
    EXPECT_EQ(parts.fromBefore, PixelRegion(800, 600, 10, 20)) << "dirty or not: later frames have it no more";
    EXPECT_EQ(parts.composed, PixelRegion(810, 600, 5, 20));
    EXPECT_TRUE(mask.divide(far, shown).fromBefore.isEmpty()) << "it has been seen";
}

TEST_F(ScreenMaskTest, whatChangesBelowIsComposedEvenWhereItWasSeen)
{
    const PixelRegion change(405, 305, 4, 4);
    mask.noteWindowChange(change);
    EXPECT_EQ(mask.divide(change, {}).composed, change);
    EXPECT_TRUE(mask.divide(change, {}).composed.isEmpty());
}

TEST_F(ScreenMaskTest, damageBelowTheMaskIsNotWhatTheWindowsShow)
{
    mask.noteScreenDamage(button);
    EXPECT_TRUE(mask.divide(source, {}).composed.isEmpty());
}

TEST_F(ScreenMaskTest, whatIsDistrustedIsComposedWhenItIsMasked)
{
    const PixelRegion next(430, 300, 20, 20);
    mask.distrust(next);
    (void)mask.update(next, start, start);
    EXPECT_EQ(mask.divide(source, {}).composed, next);
}

TEST_F(ScreenMaskTest, whatIsDistrustedIsNotTakenFromTheFrameBefore)
{
    mask.distrust(PixelRegion(400, 300, 10, 20));
    const ScreenMask::Parts parts = mask.divide(source, source);
    EXPECT_EQ(parts.composed, PixelRegion(400, 300, 10, 20));
    mask.distrustAll();
    EXPECT_EQ(mask.divide(source, source).composed, button);
    (void)mask.update(PixelRegion(0, 0, 10, 10), start, start);
    EXPECT_EQ(mask.divide(source, source).fromBefore, PixelRegion(0, 0, 10, 10)) << "the next frame can be trusted";
}

TEST_F(ScreenMaskTest, whatWasSeenBeforeTheMaskCameIsKeptBelowIt)
{
    ScreenMask fresh;
    fresh.noteSeen(PixelRegion(0, 0, 410, 800));
    (void)fresh.update(button, start, start);
    EXPECT_EQ(fresh.divide(source, {}).composed, PixelRegion(410, 300, 10, 20));
}

TEST_F(ScreenMaskTest, whatIsBelowTheMaskIsTrustedWhenTheScreenWasNot)
{
    const PixelRegion next(450, 300, 20, 20);
    mask.distrustOutside(button);
    EXPECT_TRUE(mask.divide(button, {}).composed.isEmpty());
    mask.distrustOutside(button);
    (void)mask.update(next, start, start);
    EXPECT_EQ(mask.divide(next, source).composed, next) << "not from the frame before either";
}

TEST_F(ScreenMaskTest, aResetForgetsAll)
{
    mask.hold(button, start, {250ms});
    mask.noteWindowChange(button);
    mask.reset();
    EXPECT_TRUE(mask.region().isEmpty());
    EXPECT_FALSE(mask.nextRelease());
    EXPECT_EQ(mask.divide(source, {}).fromScreen, source);
}

} // namespace
} // namespace nimbrale::x11
