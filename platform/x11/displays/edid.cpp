#include "platform/x11/displays/edid.h"

#include <cstddef>

namespace nimbrale::x11 {

namespace {

constexpr std::size_t blockSize = 128;
constexpr std::size_t firstDescriptor = 54;
constexpr std::size_t descriptorSize = 18;
constexpr std::size_t descriptorCount = 4;
constexpr std::size_t textOffset = 5;
constexpr std::uint8_t modelNameTag = 0xfc;

} // namespace

std::string modelNameFromEdid(const std::vector<std::uint8_t>& edid)
{
    if (edid.size() < blockSize)
        return {};
    for (std::size_t index = 0; index < descriptorCount; ++index) {
        const std::uint8_t* const descriptor = edid.data() + firstDescriptor + index * descriptorSize;
        // Two zero bytes tell a text from a timing.
        if (descriptor[0] != 0 || descriptor[1] != 0 || descriptor[3] != modelNameTag)
            continue;
        std::string name;
        for (std::size_t offset = textOffset; offset < descriptorSize && descriptor[offset] != '\n'; ++offset) {
            const bool isPrintable = descriptor[offset] >= 0x20 && descriptor[offset] < 0x7f;
            if (isPrintable)
                name.push_back(static_cast<char>(descriptor[offset]));
        }
        name.erase(name.find_last_not_of(' ') + 1);
        return name;
    }
    return {};
}

} // namespace nimbrale::x11
