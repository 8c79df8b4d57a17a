#pragma once

#include "platform/file_watch.h"
#include "platform/result.h"
#include "settings/app_settings_document.h"
#include "settings/app_settings_file.h"

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace nimbrale {

/// The settings file: an INI file, as QSettings writes them, whose keys stand in its general section. Main thread only.
///
/// QSettings itself is not used, because a process that is killed while QSettings writes leaves a lock that holds up
/// the next one for half a minute, and because it takes any text for an INI file.
///
/// The file's values are kept and read again when the file may have changed, whoever changed it: a reading without such
/// a change goes to no disk. A write starts from what the file holds at that time and replaces it in one step, so that
/// a crash, a full disk or a loss of power leaves the old or the new file. What could not be written is logged, is
/// still read through this object, and is tried again with the next write, unless another object has written the same
/// key since. Two processes that write at the same moment may lose one of the two values, but nothing else.
///
/// A file that can no longer be understood or read, or was cut off, takes nothing away: the values that were last read
/// or written stay in use and are in the file again with the next write. Cut off is a file that holds the beginning of
/// what it held before and no more, an empty file too; another program may change values, add keys and remove keys that
/// others follow. Whoever removes the file brings the defaults back.
class SettingsStore {
public:
    using Value = SettingsDocument::Value;

    /// A file that is there but is no INI file in UTF-8 is renamed with the ending ".damaged-" and the date. The file's
    /// folder is made, so that it can be watched.
    explicit SettingsStore(std::filesystem::path path);

    [[nodiscard]] std::optional<Value> value(std::string_view key);
    /// Takes effect at once and is written at once; inside of a group, it is written when the group ends.
    void setValue(std::string_view key, Value value);

    /// What is assigned between the two is in the file as a whole or not at all. Groups may stand in one another.
    void beginGroup();
    void endGroup();

private:
    using Values = std::map<std::string, Value, std::less<>>;

    void open();
    void load();
    [[nodiscard]] bool isCutOff(const SettingsFile& file) const;
    void adopt(SettingsDocument document);
    void write();
    [[nodiscard]] Result<void> replaceFile();

    std::filesystem::path path_;
    FileWatch watch_;
    /// What the file held when it could last be understood; absent while it never could.
    std::optional<SettingsDocument> document_;
    /// Of the last reading.
    SettingsFileState state_ = SettingsFileState::absent;
    /// Whether what was read last could be taken for `document_`; with false, that was logged.
    bool isTaken_ = true;
    int openGroups_ = 0;
    /// Values of the group that has not ended.
    Values assigned_;
    /// Values that could not be written.
    Values unwritten_;
};

} // namespace nimbrale
