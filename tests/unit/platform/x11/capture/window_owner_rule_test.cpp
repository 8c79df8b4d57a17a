#include "platform/x11/capture/window_owner_rule.h"

#include <gtest/gtest.h>
#include <vector>

namespace nimbrale::x11 {
namespace {

constexpr ProcessID ownProcess = 700;
constexpr ProcessID ownProcessAtServer = 12;

/// A top-level and, one below the other, the windows in it.
WindowOwner ownerOf(const std::vector<WindowFacts>& windows, const WindowOwnerRule& rule = {ownProcess, ownProcess})
{
    WindowOwner owner;
    for (const WindowFacts& facts : windows)
        rule.consider(owner, facts);
    return owner;
}

WindowFacts window(int depth, std::optional<ProcessID> client, std::optional<ProcessID> named = std::nullopt)
{
    WindowFacts facts;
    facts.client = client;
    facts.namedProcess = named;
    facts.depth = depth;
    return facts;
}

WindowFacts notification(int depth)
{
    WindowFacts facts = window(depth, 90);
    facts.isNotification = true;
    return facts;
}

TEST(WindowOwnerRuleTest, aManagedNotificationCountsHoweverManyFramesItIsIn)
{
    WindowFacts client = notification(2);
    EXPECT_FALSE(ownerOf({window(0, 90), window(1, 90), client}).isNotification);
    client.isClient = true;
    EXPECT_TRUE(ownerOf({window(0, 90), window(1, 90), client}).isNotification);
}

TEST(WindowOwnerRuleTest, aWindowOfAnotherProcessIsTheirs)
{
    EXPECT_EQ(ownerOf({window(0, 90)}), (WindowOwner{.process = 90, .isOwn = false, .isNotification = false}));
}

TEST(WindowOwnerRuleTest, aWindowOfThisProcessIsOwn)
{
    EXPECT_EQ(ownerOf({window(0, ownProcess)}),
              (WindowOwner{.process = ownProcess, .isOwn = true, .isNotification = false}));
}

TEST(WindowOwnerRuleTest, theServersWordCountsMoreThanTheWindows)
{
    EXPECT_FALSE(ownerOf({window(0, 90, ownProcess)}).isOwn);
    EXPECT_EQ(ownerOf({window(0, 90, 91)}).process, 90);
    EXPECT_TRUE(ownerOf({window(0, ownProcess, 90)}).isOwn);
}

TEST(WindowOwnerRuleTest, theWindowsWordCountsWhereTheServerHasNone)
{
    EXPECT_TRUE(ownerOf({window(0, std::nullopt, ownProcess)}).isOwn);
    EXPECT_EQ(ownerOf({window(0, std::nullopt, 91)}).process, 91);
    EXPECT_EQ(ownerOf({window(0, std::nullopt)}), WindowOwner{});
}

TEST(WindowOwnerRuleTest, whereTheServerDoesNotKnowThisProcessTheWindowsWordCounts)
{
    const WindowOwnerRule rule(ownProcess, 0);
    EXPECT_TRUE(ownerOf({window(0, 90, ownProcess)}, rule).isOwn);
    EXPECT_FALSE(ownerOf({window(0, ownProcess, 90)}, rule).isOwn);
}

TEST(WindowOwnerRuleTest, inASandboxTheServersNumberIsMeant)
{
    const WindowOwnerRule rule(ownProcess, ownProcessAtServer);
    const WindowOwner owner = ownerOf({window(0, ownProcessAtServer)}, rule);
    EXPECT_TRUE(owner.isOwn);
    EXPECT_EQ(owner.process, ownProcess) << "filters name this process as it knows itself";
    EXPECT_FALSE(ownerOf({window(0, ownProcess)}, rule).isOwn);
}

TEST(WindowOwnerRuleTest, aFrameAroundAnOwnWindowIsOwn)
{
    EXPECT_EQ(ownerOf({window(0, 90), window(1, ownProcess)}),
              (WindowOwner{.process = ownProcess, .isOwn = true, .isNotification = false}));
    EXPECT_TRUE(ownerOf({window(0, 90), window(1, 90), window(2, ownProcess)}).isOwn);
    EXPECT_TRUE(ownerOf({window(0, ownProcess), window(1, 90)}).isOwn) << "what comes later takes nothing back";
}

TEST(WindowOwnerRuleTest, aPanelWithAnOwnIconIsTheirs)
{
    WindowFacts panel = window(0, 90);
    panel.isDock = true;
    EXPECT_FALSE(ownerOf({panel, window(1, ownProcess)}).isOwn);
    EXPECT_FALSE(ownerOf({panel, window(1, 90), window(2, ownProcess)}).isOwn);
    EXPECT_EQ(ownerOf({panel, window(1, ownProcess)}).process, 90);
    WindowFacts ownPanel = window(0, ownProcess);
    ownPanel.isDock = true;
    EXPECT_TRUE(ownerOf({ownPanel}).isOwn);
    WindowFacts innerDock = window(1, ownProcess);
    innerDock.isDock = true;
    EXPECT_TRUE(ownerOf({window(0, 90), innerDock}).isOwn) << "a frame around an own window of that type";
}

TEST(WindowOwnerRuleTest, innerWindowsOfOthersChangeNothing)
{
    EXPECT_EQ(ownerOf({window(0, 90), window(1, 91), window(2, 92)}),
              (WindowOwner{.process = 90, .isOwn = false, .isNotification = false}));
}

TEST(WindowOwnerRuleTest, aNotificationIsOneByItselfOrInAFrame)
{
    EXPECT_TRUE(ownerOf({notification(0)}).isNotification);
    EXPECT_TRUE(ownerOf({window(0, 80), notification(1)}).isNotification);
    EXPECT_FALSE(ownerOf({window(0, 80), window(1, 80), notification(2)}).isNotification);
    EXPECT_TRUE(ownerOf({notification(0), window(1, 80)}).isNotification) << "what comes later takes nothing back";
}

} // namespace
} // namespace nimbrale::x11
