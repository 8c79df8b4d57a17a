// The shared screen has the region's size in pixels and shows exactly what is framed.

#include "tests/support/meeting.h"

#include <gtest/gtest.h>

namespace nimbrale::test {

namespace {

using Server = PrivateDesktop::Server;
using WindowManager = PrivateDesktop::WindowManager;
using Compositor = PrivateDesktop::Compositor;

struct Place {
    std::string name;
    QRect region;
};

/// The corners of 1600×900 points, an edge, and sizes that no codec likes.
const std::vector<Place> places = {
    {"TopLeft", {0, 0, 400, 300}},
    {"TopRight", {1600 - 401, 0, 401, 301}},
    {"BottomLeft", {0, 900 - 299, 397, 299}},
    {"BottomRight", {1600 - 500, 900 - 333, 500, 333}},
    {"RightEdge", {1600 - 351, 300, 351, 273}},
};

/// Between the places, so that the browser is in none of them.
const QRect browserWindow(640, 330, 320, 240);

class SharedRegion : public testing::TestWithParam<Place> {};

void expectToShareExactly(const Meeting::Options& options)
{
    const auto meeting = requireMeeting(options);
    const QRect region = meeting->pixels(options.application.region);
    const auto display = meeting->desktop().monitorNamed("Nimbrale");
    ASSERT_TRUE(display);
    EXPECT_EQ(display->geometry.size(), region.size());
    const BrowserCall::State state = meeting->call().state();
    EXPECT_EQ(state.surface, "monitor");
    EXPECT_EQ(state.settingsSize, Meeting::sharedPart(region).size());
    EXPECT_TRUE(meeting->displayShowsContentOf(region))
        << "the application says: " << meeting->application().process().output();
    EXPECT_TRUE(meeting->showsContentOf(region));
    EXPECT_EQ(meeting->call().state().received.size, Meeting::sharedPart(region).size());
    EXPECT_EQ(meeting->application().quit(), 0);
}

TEST_P(SharedRegion, AtScaleOne)
{
    expectToShareExactly({.application = {.region = GetParam().region}, .call = {.window = browserWindow}});
}

TEST_P(SharedRegion, AtScaleTwo)
{
    const QRect& region = GetParam().region;
    // The same places on a display of half as many points.
    const QRect halved(region.x() / 2 + region.x() % 2, region.y() / 2 + region.y() % 2, region.width() / 2,
                       region.height() / 2);
    expectToShareExactly(
        {.desktop = {.width = 1600, .height = 900, .dotsPerInch = 192, .windowManager = WindowManager::openbox},
         .application = {.region = halved},
         .call = {.window = browserWindow}});
}

INSTANTIATE_TEST_SUITE_P(Places, SharedRegion, testing::ValuesIn(places),
                         [](const testing::TestParamInfo<Place>& place) { return place.param.name; });

class SharedRegionAtFractionalScale : public testing::TestWithParam<int> {};

TEST_P(SharedRegionAtFractionalScale, IsExact)
{
    expectToShareExactly(
        {.desktop = {.width = 1600, .height = 900, .dotsPerInch = GetParam(), .windowManager = WindowManager::openbox},
         .application = {.region = {11, 7, 267, 201}},
         .call = {.window = browserWindow}});
}

INSTANTIATE_TEST_SUITE_P(DotsPerInch, SharedRegionAtFractionalScale, testing::Values(120, 144, 168));

TEST(SharedRegionOnServers, XorgWithADummyCard)
{
    expectToShareExactly({.desktop = {.server = Server::xorgDummy,
                                      .width = 1600,
                                      .height = 900,
                                      .windowManager = WindowManager::openbox},
                          .application = {.region = {300, 200, 401, 301}},
                          .call = {.window = {1200, 600, 320, 240}}});
}

struct Manager {
    std::string name;
    WindowManager manager;
    Compositor compositor;
};

class SharedRegionUnder : public testing::TestWithParam<Manager> {};

TEST_P(SharedRegionUnder, IsExact)
{
    expectToShareExactly({.desktop = {.width = 1600,
                                      .height = 900,
                                      .windowManager = GetParam().manager,
                                      .compositor = GetParam().compositor},
                          .application = {.region = {300, 200, 401, 301}},
                          .call = {.window = {1200, 600, 320, 240}}});
}

INSTANTIATE_TEST_SUITE_P(
    WindowManagers, SharedRegionUnder,
    testing::Values(Manager{"NoWindowManager", WindowManager::none, Compositor::none},
                    Manager{"Picom", WindowManager::openbox, Compositor::picom},
                    Manager{"Xfwm4", WindowManager::xfwm4, Compositor::none},
                    Manager{"Xfwm4Compositing", WindowManager::xfwm4, Compositor::windowManagersOwn},
                    Manager{"Kwin", WindowManager::kwin, Compositor::none},
                    Manager{"KwinCompositing", WindowManager::kwin, Compositor::windowManagersOwn},
                    Manager{"Marco", WindowManager::marco, Compositor::none},
                    Manager{"MarcoCompositing", WindowManager::marco, Compositor::windowManagersOwn}),
    [](const testing::TestParamInfo<Manager>& manager) { return manager.param.name; });

} // namespace

} // namespace nimbrale::test
