#include "platform/x11/server/hidden_window_rule.h"

#include <gtest/gtest.h>

namespace nimbrale::x11 {
namespace {

constexpr xcb_window_t client = 7;

bool isHidden(const ManagedState& state, std::optional<std::uint32_t> currentWorkspace = 1)
{
    return isHiddenByManager(state, currentWorkspace, Compositing::running);
}

TEST(HiddenWindowRuleTest, aWindowOfTheCurrentWorkspaceIsSeen)
{
    EXPECT_FALSE(isHidden({client, false, 1}));
}

TEST(HiddenWindowRuleTest, aMinimizedWindowIsHiddenWhereverItIs)
{
    EXPECT_TRUE(isHidden({client, true, 1}));
    EXPECT_TRUE(isHidden({client, true, everyWorkspace}));
    EXPECT_TRUE(isHidden({client, true, std::nullopt}));
}

TEST(HiddenWindowRuleTest, aWindowOfAnotherWorkspaceIsHidden)
{
    EXPECT_TRUE(isHidden({client, false, 0}));
    EXPECT_TRUE(isHidden({client, false, 2}));
    EXPECT_FALSE(isHidden({client, false, everyWorkspace}));
}

TEST(HiddenWindowRuleTest, withoutWorkspacesNoneIsElsewhere)
{
    EXPECT_FALSE(isHidden({client, false, std::nullopt}));
    EXPECT_FALSE(isHidden({client, false, 0}, std::nullopt));
}

TEST(HiddenWindowRuleTest, whatNobodyManagesIsSeenWhateverItSays)
{
    EXPECT_FALSE(isHidden({XCB_NONE, true, 0}));
}

TEST(HiddenWindowRuleTest, withoutACompositingManagerWhatIsMappedIsShown)
{
    EXPECT_FALSE(isHiddenByManager({client, true, 0}, 1, Compositing::absent));
}

} // namespace
} // namespace nimbrale::x11
