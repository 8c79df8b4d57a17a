#include "platform/geometry.h"

#include <gtest/gtest.h>
#include <random>

namespace nimbrale {
namespace {

Rect randomRect(std::mt19937& random)
{
    std::uniform_real_distribution<double> position(-500, 500);
    std::uniform_real_distribution<double> extent(0, 400);
    return {position(random), position(random), extent(random), extent(random)};
}

bool encloses(const Rect& outer, const Rect& inner)
{
    return outer.minX() <= inner.minX() && outer.minY() <= inner.minY() && outer.maxX() >= inner.maxX() &&
           outer.maxY() >= inner.maxY();
}

TEST(GeometryTest, AccessorsTellTheEdgesAndTheMiddle)
{
    const Rect rect{10, 20, 30, 50};
    EXPECT_EQ(rect.minX(), 10);
    EXPECT_EQ(rect.midX(), 25);
    EXPECT_EQ(rect.maxX(), 40);
    EXPECT_EQ(rect.minY(), 20);
    EXPECT_EQ(rect.midY(), 45);
    EXPECT_EQ(rect.maxY(), 70);
    EXPECT_EQ(rect.origin(), (Point{10, 20}));
    EXPECT_EQ(rect.size(), (Size{30, 50}));
}

TEST(GeometryTest, IntegralRoundsTheOriginDownAndTheFarEdgesUp)
{
    EXPECT_EQ((Rect{10.4, 20.6, 100.2, 50.1}).integral(), (Rect{10, 20, 101, 51}));
    EXPECT_EQ((Rect{-0.5, -1.5, 1, 1}).integral(), (Rect{-1, -2, 2, 2}));
    EXPECT_EQ((Rect{3, 4, 5, 6}).integral(), (Rect{3, 4, 5, 6}));
}

TEST(GeometryTest, NullRectangleIsEmptyAndStaysNull)
{
    EXPECT_TRUE(Rect::null().isNull());
    EXPECT_TRUE(Rect::null().isEmpty());
    EXPECT_TRUE(Rect::null().integral().isNull());
    EXPECT_TRUE(Rect::null().intersectedWith({0, 0, 1, 1}).isNull());
    EXPECT_EQ(Rect::null().unitedWith({1, 2, 3, 4}), (Rect{1, 2, 3, 4}));
    EXPECT_EQ((Rect{1, 2, 3, 4}).unitedWith(Rect::null()), (Rect{1, 2, 3, 4}));
}

TEST(GeometryTest, RectanglesWithoutAreaAreEmptyButNotNull)
{
    EXPECT_TRUE((Rect{1, 1, 0, 5}).isEmpty());
    EXPECT_TRUE((Rect{1, 1, 5, -1}).isEmpty());
    EXPECT_FALSE((Rect{1, 1, 0, 5}).isNull());
    EXPECT_FALSE((Rect{1, 1, 0.5, 0.5}).isEmpty());
}

TEST(GeometryTest, TouchingRectanglesMeetInAnEmptyOneAndDoNotIntersect)
{
    const Rect left{0, 0, 10, 10};
    EXPECT_EQ(left.intersectedWith({10, 0, 10, 10}), (Rect{10, 0, 0, 10}));
    EXPECT_FALSE(left.intersects({10, 0, 10, 10}));
    EXPECT_TRUE(left.intersectedWith({10.5, 0, 10, 10}).isNull());
    EXPECT_TRUE(left.intersects({9.5, 9.5, 10, 10}));
}

TEST(GeometryTest, ContainsItsNearEdgesAndNotItsFarOnes)
{
    const Rect rect{10, 10, 5, 5};
    EXPECT_TRUE(rect.contains({10, 10}));
    EXPECT_TRUE(rect.contains({14.9, 14.9}));
    EXPECT_FALSE(rect.contains({15, 12}));
    EXPECT_FALSE(rect.contains({12, 15}));
    EXPECT_FALSE(rect.contains({9.9, 12}));
}

TEST(GeometryTest, InsetsAndGrowthMoveEverySide)
{
    EXPECT_EQ((Rect{10, 10, 20, 20}).insetBy(2, 3), (Rect{12, 13, 16, 14}));
    EXPECT_EQ((Rect{10, 10, 20, 20}).grownBy(5), (Rect{5, 5, 30, 30}));
    EXPECT_EQ((Rect{10, 10, 20, 20}).movedBy(-1, 2), (Rect{9, 12, 20, 20}));
}

TEST(GeometryTest, HalvesRoundAwayFromZero)
{
    EXPECT_EQ(roundHalfAwayFromZero(2.5), 3);
    EXPECT_EQ(roundHalfAwayFromZero(-2.5), -3);
    EXPECT_EQ(roundHalfAwayFromZero(0.5), 1);
    EXPECT_EQ(roundHalfAwayFromZero(2.4999), 2);
}

TEST(GeometryTest, IntersectionLiesInBothAndUnionAroundBoth)
{
    std::mt19937 random(20);
    for (int round = 0; round < 2000; ++round) {
        const Rect first = randomRect(random);
        const Rect second = randomRect(random);
        const Rect common = first.intersectedWith(second);
        EXPECT_EQ(common, second.intersectedWith(first));
        if (!common.isEmpty()) {
            EXPECT_TRUE(encloses(first.grownBy(1e-9), common));
            EXPECT_TRUE(encloses(second.grownBy(1e-9), common));
        }
        const Rect both = first.unitedWith(second).grownBy(1e-9);
        EXPECT_TRUE(encloses(both, first));
        EXPECT_TRUE(encloses(both, second));
        const Rect whole = first.integral();
        EXPECT_TRUE(encloses(whole, first));
        EXPECT_EQ(whole.integral(), whole);
        EXPECT_LT(whole.width - first.width, 2);
    }
}

} // namespace
} // namespace nimbrale
