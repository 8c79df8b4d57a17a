// The outlines of the controls' symbols, measured at the point size that they are built for.

#include "controls/control_symbols.h"

#include <gtest/gtest.h>

namespace nimbrale {
namespace {

TEST(ControlSymbolsTest, ResizeReachesAsFarAsItsLinesAreThick)
{
    const QRectF bounds = controlSymbolPath(ControlSymbol::resize, 100).boundingRect();
    // The lines' middle, and half of their thickness around it.
    constexpr double reach = 48 + 17 / 2.0;
    EXPECT_NEAR(bounds.left(), -reach, 0.05);
    EXPECT_NEAR(bounds.top(), -reach, 0.05);
    EXPECT_NEAR(bounds.right(), reach, 0.05);
    EXPECT_NEAR(bounds.bottom(), reach, 0.05);
}

TEST(ControlSymbolsTest, ResizeHasHeadsOfItsLength)
{
    const QPainterPath path = controlSymbolPath(ControlSymbol::resize, 100);
    // Forty along the edge from the corner, and the round end.
    constexpr double end = -48 + 40 + 17 / 2.0;
    for (const double sign : {1.0, -1.0}) {
        EXPECT_TRUE(path.contains(QPointF(end - 0.2, -48) * sign));
        EXPECT_FALSE(path.contains(QPointF(end + 0.2, -48) * sign));
        EXPECT_TRUE(path.contains(QPointF(-48, end - 0.2) * sign));
        EXPECT_FALSE(path.contains(QPointF(-48, end + 0.2) * sign));
    }
}

} // namespace
} // namespace nimbrale
