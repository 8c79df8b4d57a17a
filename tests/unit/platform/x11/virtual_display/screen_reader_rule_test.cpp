#include "platform/x11/virtual_display/screen_reader_rule.h"

#include <gtest/gtest.h>

namespace nimbrale::x11 {
namespace {

constexpr ReaderFacts share{
    .hasWindows = false, .hasSharedMemory = true, .hasDamage = false, .followsPointerImage = true};

TEST(ScreenReaderRuleTest, aBrowsersShareReadsTheScreen)
{
    EXPECT_TRUE(readsScreen(share));
}

TEST(ScreenReaderRuleTest, soDoesAProgramThatHearsOfWhatIsDrawn)
{
    ReaderFacts client = share;
    client.followsPointerImage = false;
    client.hasDamage = true;
    EXPECT_TRUE(readsScreen(client));
}

TEST(ScreenReaderRuleTest, aProgramWithWindowsDoesNot)
{
    ReaderFacts client = share;
    client.hasDamage = true;
    client.hasWindows = true;
    EXPECT_FALSE(readsScreen(client));
}

TEST(ScreenReaderRuleTest, aProgramWithoutMemoryToFetchPicturesThroughDoesNot)
{
    ReaderFacts client = share;
    client.hasDamage = true;
    client.hasSharedMemory = false;
    EXPECT_FALSE(readsScreen(client));
}

TEST(ScreenReaderRuleTest, aBrowsersConnectionThatDrawsOrListsScreensDoesNot)
{
    ReaderFacts client = share;
    client.followsPointerImage = false;
    EXPECT_FALSE(readsScreen(client));
}

} // namespace
} // namespace nimbrale::x11
