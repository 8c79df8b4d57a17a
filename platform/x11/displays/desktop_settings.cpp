#include "platform/x11/displays/desktop_settings.h"

#include <cstddef>
#include <optional>

namespace nimbrale::x11 {

namespace {

/// Reads on through what a settings manager has written; absent beyond its end.
class SettingsReader {
public:
    explicit SettingsReader(std::span<const std::uint8_t> rest) : rest_(rest) {}

    void setMostSignificantFirst(bool isFirst) { isMostSignificantFirst_ = isFirst; }

    [[nodiscard]] std::optional<std::uint32_t> number(std::size_t bytes)
    {
        if (rest_.size() < bytes)
            return std::nullopt;
        std::uint32_t value = 0;
        for (std::size_t place = 0; place < bytes; ++place) {
            const std::size_t index = isMostSignificantFirst_ ? place : bytes - 1 - place;
            value = value << 8U | rest_[index];
        }
        rest_ = rest_.subspan(bytes);
        return value;
    }

    /// Texts fill up whole numbers of four bytes.
    [[nodiscard]] std::optional<std::string> text(std::size_t length)
    {
        const std::size_t filled = (length + 3) / 4 * 4;
        if (rest_.size() < filled)
            return std::nullopt;
        std::string value(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(length));
        rest_ = rest_.subspan(filled);
        return value;
    }

private:
    std::span<const std::uint8_t> rest_;
    bool isMostSignificantFirst_ = false;
};

enum class SettingType : std::uint8_t { integer = 0, text = 1, color = 2 };

/// Goes past the value of a setting that is no whole number; false where it is cut off or of an unknown type.
bool passOver(SettingsReader& reader, std::uint32_t type)
{
    if (type == static_cast<std::uint32_t>(SettingType::text)) {
        const auto length = reader.number(4);
        return length && reader.text(*length);
    }
    constexpr std::size_t colorLength = 8;
    return type == static_cast<std::uint32_t>(SettingType::color) && reader.text(colorLength);
}

} // namespace

std::map<std::string, std::int32_t> integersOf(std::span<const std::uint8_t> settings)
{
    std::map<std::string, std::int32_t> found;
    SettingsReader reader(settings);
    constexpr std::size_t headLength = 4;
    const auto byteOrder = reader.number(1);
    reader.setMostSignificantFirst(byteOrder == 1);
    const auto count = reader.number(headLength - 1) && reader.number(4) ? reader.number(4) : std::nullopt;
    for (std::uint32_t index = 0; index < count.value_or(0); ++index) {
        const auto type = reader.number(1);
        const auto nameLength = reader.number(1) ? reader.number(2) : std::nullopt;
        const auto name = nameLength ? reader.text(*nameLength) : std::nullopt;
        if (!name || !reader.number(4))
            break;
        if (type != static_cast<std::uint32_t>(SettingType::integer)) {
            if (!passOver(reader, *type))
                break;
            continue;
        }
        const auto value = reader.number(4);
        if (!value)
            break;
        found[*name] = static_cast<std::int32_t>(*value);
    }
    return found;
}

} // namespace nimbrale::x11
