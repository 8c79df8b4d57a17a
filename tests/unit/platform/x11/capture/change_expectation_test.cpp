// What is known of a change before the server is asked for it.

#include "tests/unit/platform/x11/capture/change_collector_fixture.h"

namespace nimbrale::x11 {
namespace {

TEST_F(ChangeCollectorTest, damageThatCanBeSeenIsExpectedForCertain)
{
    const CapturedWindow& below = addWindow({110, 110, 100, 100});
    addWindow({110, 110, 100, 50});
    const auto expectationOf = [&](const PixelRect& area) {
        changes.clearExpectation();
        changes.expectDamage(windows, below, PixelRegion(area), Compositing::absent);
        return changes.expectation();
    };
    EXPECT_EQ(expectationOf({110, 160, 10, 10}), ChangeExpectation::certain);
    EXPECT_EQ(expectationOf({110, 110, 10, 10}), ChangeExpectation::possible)
        << "more of it may be damaged by the time that it is asked";
    EXPECT_EQ(expectationOf({500, 160, 10, 10}), ChangeExpectation::possible) << "outside the window";
    addWindow({110, 160, 100, 50});
    EXPECT_EQ(expectationOf({110, 110, 10, 10}), ChangeExpectation::none) << "nothing of the window can be seen";
}

TEST_F(ChangeCollectorTest, damageOfAWindowThatNobodyKnowsYetIsPossible)
{
    CapturedWindow& window = addWindow({110, 110, 100, 100});
    window.needsClassification = true;
    changes.expectDamage(windows, window, PixelRegion(110, 110, 10, 10), Compositing::absent);
    EXPECT_EQ(changes.expectation(), ChangeExpectation::possible);
}

TEST_F(ChangeCollectorTest, damageOfAWindowThatIsLeftOutIsNotExpected)
{
    const CapturedWindow& window = addWindow({110, 110, 100, 100});
    excluded.insert(window.id);
    changes.expectDamage(windows, window, PixelRegion(110, 110, 10, 10), Compositing::absent);
    EXPECT_EQ(changes.expectation(), ChangeExpectation::none);
}

TEST_F(ChangeCollectorTest, damageOfTheScreenIsCertainInTheSourceAndNothingElsewhere)
{
    changes.expectScreenDamage(PixelRegion(0, 0, 50, 50));
    EXPECT_EQ(changes.expectation(), ChangeExpectation::none);
    changes.expectScreenDamage(PixelRegion(90, 90, 20, 20));
    EXPECT_EQ(changes.expectation(), ChangeExpectation::certain);
}

TEST_F(ChangeCollectorTest, anExpectationOnlyRisesUntilItIsCleared)
{
    EXPECT_EQ(changes.expectation(), ChangeExpectation::none);
    changes.expectChange();
    EXPECT_EQ(changes.expectation(), ChangeExpectation::possible);
    changes.expectDamage(windows, addWindow({110, 110, 100, 100}), PixelRegion(110, 110, 10, 10), Compositing::absent);
    EXPECT_EQ(changes.expectation(), ChangeExpectation::certain);
    changes.expectChange();
    EXPECT_EQ(changes.expectation(), ChangeExpectation::certain);
    changes.clearExpectation();
    EXPECT_EQ(changes.expectation(), ChangeExpectation::none);
}

TEST_F(ChangeCollectorTest, whatIsKnownToBeDirtyIsACertainChange)
{
    changes.add(PixelRegion(110, 110, 10, 10));
    EXPECT_EQ(changes.expectation(), ChangeExpectation::certain);
    changes.clearExpectation();
    EXPECT_EQ(changes.expectation(), ChangeExpectation::certain);
    (void)changes.take();
    EXPECT_EQ(changes.expectation(), ChangeExpectation::none);
}

} // namespace
} // namespace nimbrale::x11
