#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace nimbrale {

/// The text of a settings file: lines of keys and values, in the INI dialect of QSettings, whose general section is
/// the only one that is read and written here. All other lines stay as they are. UTF-8.
class SettingsDocument {
public:
    /// What a value can be: bytes are written apart from text, everything else is text.
    using Value = std::variant<std::string, std::vector<std::byte>>;

    /// No settings are longer than this, in bytes.
    static constexpr std::size_t largestSize = std::size_t{4} * 1024 * 1024;

    SettingsDocument() = default;
    /// Absent when `content` is no such text, or is longer than any settings are.
    [[nodiscard]] static std::optional<SettingsDocument> parse(std::string_view content);

    /// Absent also for a value that is neither text nor bytes, such as a list. Of equal keys the last one counts.
    [[nodiscard]] std::optional<Value> value(std::string_view key) const;
    void setValue(std::string_view key, const Value& value);

    [[nodiscard]] std::string text() const;

private:
    [[nodiscard]] bool hasGeneralSection() const;

    /// Without line ends.
    std::vector<std::string> lines_;
};

} // namespace nimbrale
