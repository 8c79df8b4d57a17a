#include "platform/x11/displays/desktop_settings.h"

#include <gmock/gmock.h>
#include <vector>

namespace nimbrale::x11 {
namespace {

using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using Bytes = std::vector<std::uint8_t>;

// A text, a color and two whole numbers, one below 0, as a settings manager writes them.
const Bytes leastSignificantFirst{
    0, 0, 0, 0, 9,   0,   0,   0,   4,   0, 0, 0, // order, serial, count
    1, 0, 3, 0, 'N', '/', 'T', 0,   0,   0, 0, 0, 5,    0,    0,    0,   'D', 'a', 'r', 'k', 's', 0, 0, 0, // a text
    2, 0, 1, 0, 'C', 0,   0,   0,   0,   0, 0, 0, 1,    0,    2,    0,   3,   0,   4,   0,                 // a color
    0, 0, 5, 0, 'G', '/', 'W', 'S', 'F', 0, 0, 0, 0,    0,    0,    0,   2,   0,   0,   0,                 // 2
    0, 0, 2, 0, 'I', 'n', 0,   0,   7,   0, 0, 0, 0xff, 0xff, 0xff, 0xff};                                 // -1

const Bytes mostSignificantFirst{1, 0, 0, 0, 0,   0,   0, 9, 0, 0, 0, 1, // order, serial, count
                                 0, 0, 0, 2, 'I', 'n', 0, 0, 0, 0, 0, 7, 0, 0, 1, 2};

TEST(DesktopSettingsTest, WholeNumbersAreFoundByTheirNames)
{
    EXPECT_THAT(integersOf(leastSignificantFirst), UnorderedElementsAre(Pair("G/WSF", 2), Pair("In", -1)));
    EXPECT_THAT(integersOf(mostSignificantFirst), UnorderedElementsAre(Pair("In", 258)));
}

TEST(DesktopSettingsTest, WhatIsCutOffAnywhereIsReadAsFarAsItGoes)
{
    for (std::size_t length = 0; length < leastSignificantFirst.size(); ++length) {
        const auto found = integersOf(std::span(leastSignificantFirst).first(length));
        EXPECT_EQ(found.count("In"), 0U) << length;
        EXPECT_EQ(found.count("G/WSF"), length >= leastSignificantFirst.size() - 16 ? 1U : 0U) << length;
    }
}

TEST(DesktopSettingsTest, AnUnknownTypeEndsTheReading)
{
    Bytes settings = leastSignificantFirst;
    settings.at(12) = 3;
    EXPECT_THAT(integersOf(settings), IsEmpty());
}

TEST(DesktopSettingsTest, LengthsAndCountsBeyondTheEndAreRefused)
{
    Bytes settings = leastSignificantFirst;
    for (const std::size_t place : {8U, 9U, 10U, 11U}) // the count
        settings.at(place) = 0xff;
    EXPECT_THAT(integersOf(settings), UnorderedElementsAre(Pair("G/WSF", 2), Pair("In", -1)));
    for (const std::size_t place : {24U, 25U, 26U, 27U}) // the text's length
        settings.at(place) = 0xff;
    EXPECT_THAT(integersOf(settings), IsEmpty());
}

} // namespace
} // namespace nimbrale::x11
