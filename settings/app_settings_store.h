#pragma once

#include "settings/app_settings_document.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nimbrale {

/// A value that could not be written, and what the file held for its key at that time.
struct UnwrittenSetting {
    SettingsDocument::Value value;
    /// With false the file could not be read, and whether it changed since cannot be told.
    bool wasFileKnown = false;
    std::optional<SettingsDocument::Value> inFile;
};

/// The settings file: an INI file, as QSettings writes them, whose keys stand in its general section. Values are read
/// strictly: one that is not wholly of the asked type counts as absent. Main thread only.
///
/// QSettings itself is not used, because a process that is killed while QSettings writes leaves a lock that holds up
/// the next one for half a minute, and because it takes any text for an INI file.
///
/// Every read goes to the file. A write replaces it in one step, so that a crash, a full disk or a loss of power
/// leaves the old or the new file. What could not be written is logged, is still read through this object, and is
/// tried again with the next write, unless another object has written the same key since. Two processes that write at
/// the same moment may lose one of the two values, but nothing else.
class SettingsStore {
public:
    /// A file that is there but is no INI file in UTF-8 is renamed with the ending ".damaged-" and the date.
    explicit SettingsStore(std::string filePath);

    /// Decimal digits with an optional minus sign, within 64 bits.
    [[nodiscard]] std::optional<std::int64_t> integer(std::string_view key) const;
    /// "true" or "false". Numbers are not taken for Booleans: they are never written for one.
    [[nodiscard]] std::optional<bool> boolean(std::string_view key) const;
    /// A decimal number, with an exponent or without; finite.
    [[nodiscard]] std::optional<double> number(std::string_view key) const;
    /// UTF-8.
    [[nodiscard]] std::optional<std::string> text(std::string_view key) const;
    [[nodiscard]] std::optional<std::vector<std::byte>> bytes(std::string_view key) const;

    void setInteger(std::string_view key, std::int64_t value);
    void setBoolean(std::string_view key, bool value);
    void setNumber(std::string_view key, double value);
    void setText(std::string_view key, const std::string& value);
    void setBytes(std::string_view key, const std::vector<std::byte>& value);

private:
    [[nodiscard]] std::optional<SettingsDocument::Value> stored(std::string_view key) const;
    void write(std::string_view key, SettingsDocument::Value value);

    std::string filePath_;
    std::map<std::string, UnwrittenSetting, std::less<>> unwritten_;
};

} // namespace nimbrale
