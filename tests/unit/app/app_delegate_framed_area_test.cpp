// What Settings shows of the frame: where it is stored to be and which area is shared.

#include "tests/unit/app/app_delegate_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace nimbrale {
namespace {

using testing::ElementsAre;

TEST_F(AppDelegateTest, TellsOfEveryChangeOfTheFramedArea)
{
    std::vector<Rect> areas;
    delegate_->onFramedAreaChange = [this, &areas] {
        areas.push_back(delegate_->sharedScreen().isActive() ? delegate_->capture()->region() : Rect{});
    };
    launch();
    EXPECT_THAT(areas, ElementsAre(Rect{0, 1, 800, 600}));
    delegate_->capture()->setRegion({100, 101, 640, 480});
    delegate_->editor()->onRegionChange({100, 101, 640, 480});
    EXPECT_THAT(areas, ElementsAre(testing::_, Rect{100, 101, 640, 480}));

    areas.clear();
    settings_.setWidth(500);
    settle();
    EXPECT_THAT(areas, ElementsAre(Rect{0, 1, 500, 600}));
    settings_.setDisplayID(otherDisplay);
    settle();
    EXPECT_THAT(areas, ElementsAre(testing::_, Rect{})) << "the restart ends the sharing";
    capture().stream().completeStop();
    finishStart();
    EXPECT_THAT(areas, ElementsAre(testing::_, testing::_, Rect{0, 1, 500, 600}));
}

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
