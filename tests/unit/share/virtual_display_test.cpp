#include "share/virtual_display.h"

#include "tests/fakes/fake_main_queue.h"
#include "tests/fakes/fake_screens.h"
#include "tests/fakes/fake_virtual_displays.h"
#include "tests/fakes/log_capture.h"

#include <gmock/gmock.h>

#include <chrono>
#include <limits>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* category = "Nimbrale.virtual-display";
constexpr DisplayID realDisplay = 1;
constexpr DisplayID otherDisplay = 2;

class VirtualDisplayTest : public testing::Test {
protected:
    VirtualDisplayTest()
    {
        addDisplay(realDisplay, {0, 0, 1920, 1080});
        displays.boundsOf[displays.nextDisplayID] = {5000, 0, 1, 1};
    }

    void addDisplay(DisplayID displayID, const PixelRect& bounds)
    {
        screens.list.push_back(makeScreen(displayID, {}));
        displays.boundsOf[displayID] = bounds;
    }
    [[nodiscard]] std::shared_ptr<VirtualDisplay> make()
    {
        auto display = VirtualDisplay::create(displays, screens, queue);
        EXPECT_TRUE(display.has_value());
        return display.value_or(nullptr);
    }
    [[nodiscard]] std::vector<VirtualDisplayMode> askedModes() const
    {
        std::vector<VirtualDisplayMode> modes;
        for (const VirtualDisplaySettings& settings : displays.device().appliedSettings) {
            EXPECT_FALSE(settings.hiDPI);
            EXPECT_THAT(settings.modes, SizeIs(1));
            modes.insert(modes.end(), settings.modes.begin(), settings.modes.end());
        }
        return modes;
    }

    LogCapture log;
    FakeMainQueue queue;
    FakeScreens screens;
    FakeVirtualDisplays displays;
};

using VirtualDisplayDeathTest = VirtualDisplayTest;

TEST_F(VirtualDisplayTest, DescribesItselfToTheSystem)
{
    const auto display = make();

    ASSERT_THAT(displays.descriptors, SizeIs(1));
    const VirtualDisplayDescriptor& descriptor = displays.descriptors.front();
    EXPECT_EQ(descriptor.name, "Nimbrale");
    EXPECT_EQ(descriptor.maxPixelsWide, 7680);
    EXPECT_EQ(descriptor.maxPixelsHigh, 4320);
    EXPECT_EQ(descriptor.sizeInMillimeters, (Size{600, 340}));
    EXPECT_EQ(descriptor.vendorID, 21328u);
    EXPECT_EQ(descriptor.productID, 21328u);
    EXPECT_EQ(descriptor.serialNumber, 1u);
}

TEST_F(VirtualDisplayTest, FailedCreationKeepsItsReasonAndLogsNothing)
{
    displays.createResult = fail(ErrorCode::unsupported, "no such thing here");

    const auto display = VirtualDisplay::create(displays, screens, queue);

    ASSERT_FALSE(display.has_value());
    EXPECT_EQ(display.error(), (Error{ErrorCode::unsupported, "no such thing here"}));
    EXPECT_EQ(VirtualDisplay::currentDisplayID(), std::nullopt);
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(VirtualDisplayTest, DisplayWithoutIdentifierCountsAsFailure)
{
    displays.nextDisplayID = 0;

    EXPECT_FALSE(VirtualDisplay::create(displays, screens, queue).has_value());
    EXPECT_FALSE(displays.device().isAlive);
    EXPECT_EQ(VirtualDisplay::currentDisplayID(), std::nullopt);
}

TEST_F(VirtualDisplayTest, IsKnownToTheProcessWhileItExists)
{
    EXPECT_EQ(VirtualDisplay::currentDisplayID(), std::nullopt);
    auto display = make();
    EXPECT_EQ(VirtualDisplay::currentDisplayID(), displays.nextDisplayID);

    display.reset();

    EXPECT_EQ(VirtualDisplay::currentDisplayID(), std::nullopt);
    EXPECT_FALSE(displays.device().isAlive);
}

TEST_F(VirtualDisplayTest, AsksForTheAreaInPixelsRoundedToTheNearest)
{
    const auto display = make();

    display->resize({1000.5, 600.25}, 2);

    EXPECT_THAT(askedModes(), ElementsAre(VirtualDisplayMode{2001, 1201, 60}));
}

TEST_F(VirtualDisplayTest, AsksForNoMoreThanTheLargestMode)
{
    const auto display = make();

    display->resize({5000, 3000}, 2);

    EXPECT_THAT(askedModes(), ElementsAre(VirtualDisplayMode{7680, 4320, 60}));
}

TEST_F(VirtualDisplayTest, IgnoresASizeThatRoundsToNothing)
{
    const auto display = make();

    display->resize({0.2, 100}, 2);
    display->resize({100, 0.2}, 2);

    EXPECT_THAT(askedModes(), IsEmpty());
    EXPECT_EQ(queue.pendingTimers(), 0u);
}

TEST_F(VirtualDisplayTest, ASidePixelIsEnough)
{
    const auto display = make();

    display->resize({1, 600}, 1);
    display->resize({800, 0.5}, 1);

    EXPECT_THAT(askedModes(), ElementsAre(VirtualDisplayMode{1, 600, 60}, VirtualDisplayMode{800, 1, 60}));
}

TEST_F(VirtualDisplayTest, AsksAgainForAnUnchangedSize)
{
    const auto display = make();

    display->resize({800, 600}, 1);
    display->resize({800, 600}, 1);

    EXPECT_THAT(askedModes(), SizeIs(2));
}

TEST_F(VirtualDisplayTest, MovesBeyondTheBottomRightCornerOfTheOnlyDisplay)
{
    const auto display = make();

    display->resize({800, 600}, 2);
    queue.advance(499ms);
    EXPECT_THAT(displays.device().origins, IsEmpty());
    queue.advance(1ms);

    EXPECT_THAT(displays.device().origins, ElementsAre(Point{1920, 1080}));
    EXPECT_THAT(askedModes(), SizeIs(1));
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(VirtualDisplayTest, OnlyAMoveThatIsRefusedIsLogged)
{
    const auto display = make();
    display->resize({800, 600}, 1);
    queue.advance(500ms);
    ASSERT_THAT(displays.device().origins, SizeIs(1));
    EXPECT_THAT(log.lines(), IsEmpty());

    displays.boundsOf[displays.nextDisplayID] = {5000, 0, 1, 1};
    displays.device().originResult = fail(ErrorCode::unsupported, "not there");
    display->resize({800, 600}, 1);
    queue.advance(500ms);
    EXPECT_THAT(displays.device().origins, SizeIs(2));
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{QtInfoMsg, category, "Couldn't move the display: not there"}));
}

TEST_F(VirtualDisplayTest, MovesBeyondAllDisplaysButItself)
{
    addDisplay(otherDisplay, {-1280, 500, 1280, 1024});
    screens.list.push_back(makeScreen(displays.nextDisplayID, {5000, 0, 800, 600}));
    const auto display = make();

    display->resize({800, 600}, 1);
    queue.advance(500ms);

    EXPECT_THAT(displays.device().origins, ElementsAre(Point{1920, 1524}));
}

TEST_F(VirtualDisplayTest, StaysWhereItAlreadyLiesOutOfTheWay)
{
    displays.boundsOf[displays.nextDisplayID] = {1920, 1080, 1, 1};
    const auto display = make();

    display->resize({800, 600}, 1);
    queue.advance(500ms);

    EXPECT_THAT(displays.device().origins, IsEmpty());
}

TEST_F(VirtualDisplayTest, StaysWhereItIsWithoutOtherDisplays)
{
    screens.list.clear();
    const auto display = make();

    display->resize({800, 600}, 1);
    queue.advance(500ms);

    EXPECT_THAT(displays.device().origins, IsEmpty());
}

TEST_F(VirtualDisplayTest, ScreenWithUnknownBoundsDoesNotDecideThePlace)
{
    displays.boundsOf[realDisplay] = {-1920, -1080, 1000, 500};
    screens.list.push_back(makeScreen(otherDisplay, {0, 0, 1280, 1024}));
    const auto display = make();

    display->resize({800, 600}, 1);
    queue.advance(500ms);

    EXPECT_THAT(displays.device().origins, ElementsAre(Point{-920, -580}));
}

TEST_F(VirtualDisplayTest, AppliesAtMostFourTimesHalfASecondApartThenSaysThatItIsStuck)
{
    const auto display = make();
    displays.device().followsSettings = false;
    displays.boundsOf[displays.nextDisplayID] = {0, 0, 640, 480};

    display->resize({800, 600}, 2);
    for (std::size_t applications = 1; applications <= 4; ++applications) {
        EXPECT_THAT(askedModes(), SizeIs(applications));
        EXPECT_THAT(log.errors(), IsEmpty());
        queue.advance(500ms);
    }
    queue.advance(10s);

    EXPECT_THAT(askedModes(), SizeIs(4));
    EXPECT_THAT(log.errors(), ElementsAre(errorLine(category, "Stuck at 640×480, wanted 1600×1200")));
    EXPECT_THAT(displays.device().origins, IsEmpty());
}

TEST_F(VirtualDisplayTest, StopsAskingOnceTheSizeIsThere)
{
    const auto display = make();
    displays.device().followsSettings = false;

    display->resize({800, 600}, 1);
    displays.device().followsSettings = true;
    queue.advance(10s);

    EXPECT_THAT(askedModes(), SizeIs(2));
    EXPECT_THAT(displays.device().origins, ElementsAre(Point{1920, 1080}));
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(VirtualDisplayTest, OnlyTheSecondOfTwoQuickResizesIsFollowedUp)
{
    const auto display = make();
    displays.device().followsSettings = false;
    displays.boundsOf[displays.nextDisplayID] = {0, 0, 800, 600}; // What the first one asks for.

    display->resize({800, 600}, 1);
    queue.advance(300ms);
    display->resize({1000, 700}, 1);
    queue.advance(200ms); // The first one's check falls due and must neither place nor apply.
    EXPECT_THAT(displays.device().origins, IsEmpty());
    EXPECT_THAT(askedModes(), SizeIs(2));
    queue.advance(10s);

    EXPECT_THAT(log.errors(), ElementsAre(errorLine(category, "Stuck at 800×600, wanted 1000×700")));
    EXPECT_THAT(askedModes(), SizeIs(5));
    EXPECT_THAT(displays.device().origins, IsEmpty());
}

TEST_F(VirtualDisplayTest, RefusedSizeIsLoggedAndCheckedAllTheSame)
{
    const auto display = make();
    displays.device().applyResult = fail(ErrorCode::temporary, "busy");

    display->resize({800, 600}, 1);
    EXPECT_THAT(log.errors(), ElementsAre(errorLine(category, "Couldn't apply size 800×600")));
    displays.device().applyResult = {};
    queue.advance(10s);

    EXPECT_THAT(askedModes(), SizeIs(2));
    EXPECT_THAT(log.errors(), SizeIs(1));
    EXPECT_THAT(displays.device().origins, SizeIs(1));
}

TEST_F(VirtualDisplayTest, CheckAfterTheEndDoesNothing)
{
    auto display = make();
    display->resize({800, 600}, 1);

    display.reset();
    queue.advance(10s);

    EXPECT_THAT(displays.device().appliedSettings, SizeIs(1));
    EXPECT_THAT(displays.device().origins, IsEmpty());
}

TEST_F(VirtualDisplayTest, HasAScreenOnceTheSystemListsIt)
{
    const auto display = make();
    EXPECT_EQ(display->screen(), std::nullopt);

    const Screen screen = makeScreen(displays.nextDisplayID, {1920, -600, 800, 600});
    screens.list.push_back(screen);

    EXPECT_EQ(display->screen(), screen);
}

TEST_F(VirtualDisplayTest, MayBeReleasedWhenItTurnsOutUnusable)
{
    auto display = make();
    std::vector<Error> reasons;
    display->onUnusable = [&](const Error& error) {
        reasons.push_back(error);
        display.reset();
    };

    displays.device().becomeUnusable({ErrorCode::permanent, "nothing is shown"});
    EXPECT_THAT(reasons, IsEmpty()) << "must be told through the main queue";
    queue.runPosted();

    EXPECT_THAT(reasons, ElementsAre(Error{ErrorCode::permanent, "nothing is shown"}));
    EXPECT_FALSE(displays.device().isAlive);
}

TEST_F(VirtualDisplayTest, UnusableWithoutAListenerIsHarmless)
{
    const auto display = make();
    displays.device().becomeUnusable({ErrorCode::permanent, "nothing is shown"});
    queue.runPosted();
    EXPECT_TRUE(displays.device().isAlive) << "whoever hears of it decides";
}

TEST_F(VirtualDisplayDeathTest, SizeThatIsNoNumberIsAProgrammingError)
{
    const auto display = make();

    EXPECT_DEATH(display->resize({std::numeric_limits<double>::quiet_NaN(), 100}, 1), "programming error");
    EXPECT_DEATH(display->resize({100, std::numeric_limits<double>::infinity()}, 1), "programming error");
    EXPECT_DEATH(display->resize({1e18, 100}, 10), "programming error");
}

} // namespace
} // namespace nimbrale
