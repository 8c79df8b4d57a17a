#include "platform/x11/capture/window_order.h"

#include <algorithm>
#include <ctime>
#include <gtest/gtest.h>
#include <vector>

namespace nimbrale::x11 {
namespace {

using Ids = std::vector<xcb_window_t>;

class WindowOrderTest : public testing::Test {
protected:
    WindowOrderTest()
    {
        for (const xcb_window_t id : {1, 2, 3, 4})
            order.add(id);
    }

    [[nodiscard]] Ids all()
    {
        Ids ids;
        for (const CapturedWindow& window : order.all())
            ids.push_back(window.id);
        return ids;
    }
    [[nodiscard]] Ids mapped()
    {
        Ids ids;
        for (const CapturedWindow* const window : order.mapped())
            ids.push_back(window->id);
        return ids;
    }
    void setMapped(xcb_window_t id, bool isMapped = true) { order.setMapped(*order.find(id), isMapped); }

    WindowOrder order;
};

TEST_F(WindowOrderTest, newWindowsAreOnTop)
{
    EXPECT_EQ(all(), Ids({1, 2, 3, 4}));
    EXPECT_EQ(order.below(1), XCB_NONE);
    EXPECT_EQ(order.below(4), 3u);
    EXPECT_EQ(order.find(5), nullptr);
}

TEST_F(WindowOrderTest, aWindowGoesAboveItsSibling)
{
    order.placeAbove(1, 3);
    EXPECT_EQ(all(), Ids({2, 3, 1, 4}));
    order.placeAbove(4, 2);
    EXPECT_EQ(all(), Ids({2, 4, 3, 1}));
    order.placeAbove(3, XCB_NONE);
    EXPECT_EQ(all(), Ids({3, 2, 4, 1}));
    order.placeAbove(2, 99);
    EXPECT_EQ(all(), Ids({3, 4, 1, 2})) << "above a window that is not listed";
    order.placeOnTop(3);
    EXPECT_EQ(all(), Ids({4, 1, 2, 3}));
}

TEST_F(WindowOrderTest, aWindowAboveItselfOrWhatItIsAboveStays)
{
    order.placeAbove(3, 3);
    order.placeAbove(3, 2);
    order.placeAbove(1, XCB_NONE);
    order.placeOnTop(4);
    EXPECT_EQ(all(), Ids({1, 2, 3, 4}));
}

TEST_F(WindowOrderTest, mappedWindowsFollowEveryChange)
{
    EXPECT_EQ(mapped(), Ids());
    setMapped(3);
    setMapped(1);
    EXPECT_EQ(mapped(), Ids({1, 3}));
    order.placeOnTop(1);
    EXPECT_EQ(mapped(), Ids({3, 1}));
    setMapped(2);
    EXPECT_EQ(mapped(), Ids({2, 3, 1})) << "a window has its place while it is not mapped";
    order.placeAbove(4, XCB_NONE);
    EXPECT_EQ(mapped(), Ids({2, 3, 1}));
    order.remove(3);
    EXPECT_EQ(mapped(), Ids({2, 1}));
    setMapped(2, false);
    EXPECT_EQ(mapped(), Ids({1}));
    EXPECT_EQ(all(), Ids({4, 2, 1}));
}

TEST_F(WindowOrderTest, twoWindowsThatPassEachOtherForeverStayInOrder)
{
    for (const xcb_window_t id : {1, 2, 3, 4})
        setMapped(id);
    for (int count = 0; count < 200; ++count) {
        order.placeAbove(2, 1);
        ASSERT_EQ(mapped(), all());
        order.placeAbove(3, 1);
        ASSERT_EQ(mapped(), all());
        order.placeAbove(4, XCB_NONE);
        order.placeAbove(1, XCB_NONE);
        ASSERT_EQ(mapped(), Ids({1, 4, 3, 2}));
        order.placeOnTop(4);
    }
}

TEST_F(WindowOrderTest, windowsThatAreNotMappedMakeAMoveNoDearer)
{
    setMapped(1);
    setMapped(2);
    const auto timeOfMoves = [this] {
        const std::clock_t start = std::clock();
        std::size_t seen = 0;
        for (int count = 0; count < 1000; ++count) {
            order.placeOnTop(count % 2 == 0 ? 1 : 2);
            seen += mapped().size();
        }
        EXPECT_EQ(seen, 2000u);
        return double(std::clock() - start) / CLOCKS_PER_SEC;
    };
    const double alone = timeOfMoves();
    for (xcb_window_t id = 100; id < 40100; ++id)
        order.add(id);
    EXPECT_LT(timeOfMoves(), 10 * alone + 0.02) << "in seconds of the processor";
}

TEST_F(WindowOrderTest, aRemovedWindowMayComeAgain)
{
    setMapped(2);
    order.remove(2);
    order.remove(2);
    EXPECT_EQ(order.find(2), nullptr);
    EXPECT_FALSE(order.add(2).isMapped);
    EXPECT_EQ(all(), Ids({1, 3, 4, 2}));
    EXPECT_EQ(mapped(), Ids());
}

} // namespace
} // namespace nimbrale::x11
