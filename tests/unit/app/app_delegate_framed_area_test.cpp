// What Settings shows of the frame: where it is stored to be.

#include "tests/unit/app/app_delegate_fixture.h"

#include <gtest/gtest.h>

namespace nimbrale {
namespace {

TEST_F(AppDelegateTest, ATopOfMinusOneStandsForTheEdgeOfADisplayWithoutAPanelAndStays)
{
    launch();
    delegate_->capture()->setRegion({100, 0, 640, 480});
    delegate_->editor()->onRegionChange({100, 0, 640, 480});
    delegate_->editor()->onRegionChangeEnded();
    EXPECT_EQ(settings_.top(), -1);
    for (const std::int64_t typed : {-1, -40}) {
        settings_.setTop(typed);
        settle();
        EXPECT_EQ(delegate_->capture()->region(), (Rect{100, 0, 640, 480})) << typed;
        EXPECT_EQ(settings_.top(), -1) << typed;
    }
}

} // namespace
} // namespace nimbrale
