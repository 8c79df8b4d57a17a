#include "platform/x11/displays/edid.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace nimbrale::x11 {
namespace {

constexpr std::size_t firstDescriptor = 54;
constexpr std::size_t descriptorSize = 18;

/// A block whose descriptor of that index holds the name.
std::vector<std::uint8_t> block(std::size_t index, const std::string& name)
{
    std::vector<std::uint8_t> edid(128, 0);
    const auto descriptor = edid.begin() + static_cast<std::ptrdiff_t>(firstDescriptor + index * descriptorSize);
    descriptor[3] = 0xfc;
    std::copy(name.begin(), name.end(), descriptor + 5);
    return edid;
}

TEST(ModelNameTest, IsReadFromTheIdentificationBlock)
{
    for (const std::size_t index : {0, 1, 2, 3})
        EXPECT_EQ(modelNameFromEdid(block(index, "DELL U2720Q\n ")), "DELL U2720Q") << index;
    EXPECT_EQ(modelNameFromEdid(block(1, "Thirteen char")), "Thirteen char");
    EXPECT_EQ(modelNameFromEdid(std::vector<std::uint8_t>(128, 0)), "");
}

TEST(ModelNameTest, ATimingIsNoNameWhateverItLooksLike)
{
    std::vector<std::uint8_t> edid = block(1, "LG\n");
    edid[firstDescriptor + 3] = 0xfc;
    edid[firstDescriptor + 5] = 'X';
    edid[firstDescriptor] = 0x4d;
    EXPECT_EQ(modelNameFromEdid(edid), "LG");
    edid[firstDescriptor] = 0;
    edid[firstDescriptor + 1] = 0x10;
    EXPECT_EQ(modelNameFromEdid(edid), "LG");
}

TEST(ModelNameTest, UnprintableCharactersAndTrailingBlanksAreLeftOut)
{
    EXPECT_EQ(modelNameFromEdid(block(0, "\x1b[A ~ \x7f\xff  \n")), "[A ~");
    EXPECT_EQ(modelNameFromEdid(block(0, "   \n")), "");
}

TEST(ModelNameTest, AShortBlockHasNoName)
{
    std::vector<std::uint8_t> edid = block(0, "LG\n");
    edid.resize(127);
    EXPECT_EQ(modelNameFromEdid(edid), "");
    EXPECT_EQ(modelNameFromEdid({}), "");
}

} // namespace
} // namespace nimbrale::x11
