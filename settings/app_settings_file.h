#pragma once

#include "platform/result.h"
#include "settings/app_settings_document.h"

#include <filesystem>
#include <string>

namespace nimbrale {

/// What stands in the place of a settings file.
enum class SettingsFileState {
    absent,
    unreadable, ///< not a file, or none that may be read
    damaged,    ///< a file that is no settings file, or is larger than any settings are
    readable,
};

struct SettingsFile {
    SettingsFileState state = SettingsFileState::absent;
    /// Empty unless the file is readable.
    SettingsDocument document;
    /// What `document` was read from.
    std::string content;
};

/// Whatever stands at `path`, this neither waits for it nor reads more of it than settings could be.
[[nodiscard]] SettingsFile readSettingsFile(const std::filesystem::path& path);

/// Renames a damaged file to a name that nothing has yet, with the ending ".damaged-" and the date; returns that name.
[[nodiscard]] Result<std::filesystem::path> setAsideDamagedFile(const std::filesystem::path& path);

} // namespace nimbrale
