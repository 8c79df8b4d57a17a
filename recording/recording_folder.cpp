#include "recording/recording_folder.h"

#include <QStandardPaths>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <fcntl.h>
#include <optional>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace nimbrale::recording_folder {

namespace {

namespace fs = std::filesystem;

// Of the stored form; another number would stand for another form.
constexpr const char* magic = "nimbrale-folder-1";
/// Enough for a home folder in daily use, and looked through in well under a second.
constexpr int mostFoldersLookedAt = 4000;

/// What a folder stays when it is renamed. Numbers of files are used again for new ones, hence the time of birth; a
/// file system that does not know it leaves 0, and such a folder is known by its path alone.
struct Identity {
    std::uint64_t inode = 0;
    std::int64_t birthSeconds = 0;
    std::uint32_t birthNanoseconds = 0;

    bool operator==(const Identity&) const = default;
};

struct Place {
    Identity identity;
    fs::path path;
};

struct FolderStatus {
    Identity identity;
    std::uint64_t device = 0;
};

std::optional<FolderStatus> folderStatus(const fs::path& folder, int flags = 0)
{
    struct statx status {};
    if (statx(AT_FDCWD, folder.c_str(), flags, STATX_TYPE | STATX_INO | STATX_BTIME, &status) != 0 ||
        !S_ISDIR(status.stx_mode))
        return std::nullopt;
    FolderStatus result;
    result.device = (std::uint64_t{status.stx_dev_major} << 32) | status.stx_dev_minor;
    result.identity.inode = status.stx_ino;
    if ((status.stx_mask & STATX_BTIME) != 0) {
        result.identity.birthSeconds = status.stx_btime.tv_sec;
        result.identity.birthNanoseconds = status.stx_btime.tv_nsec;
    }
    return result;
}

bool canBeEntered(const fs::path& folder)
{
    return access(folder.c_str(), R_OK | X_OK) == 0;
}

std::optional<Place> parse(const Bookmark& bookmark)
{
    const std::string text(reinterpret_cast<const char*>(bookmark.data()), bookmark.size());
    std::istringstream stream(text);
    std::string form;
    Place place;
    Identity& identity = place.identity;
    stream >> form >> identity.inode >> identity.birthSeconds >> identity.birthNanoseconds;
    std::string path;
    if (!stream || form != magic || stream.get() != '\n' || !std::getline(stream, path, '\0') || !path.starts_with('/'))
        return std::nullopt;
    place.path = path;
    return place;
}

fs::path nearestExisting(fs::path folder)
{
    while (!folderStatus(folder) && folder.has_relative_path())
        folder = folder.parent_path();
    return folder;
}

/// Hidden folders are not the user's to record to; one of them is the trash.
bool isLookedInto(const fs::directory_entry& entry)
{
    std::error_code error;
    return entry.symlink_status(error).type() == fs::file_type::directory &&
           !entry.path().filename().string().starts_with('.');
}

/// Breadth first from `start`, on its file system alone and without following links.
std::optional<fs::path> findBelow(const fs::path& start, const Identity& wanted)
{
    const std::optional<FolderStatus> startStatus = folderStatus(start);
    if (!startStatus)
        return std::nullopt;
    std::deque<fs::path> waiting{start};
    for (int lookedAt = 0; !waiting.empty();) {
        const fs::path folder = waiting.front();
        waiting.pop_front();
        std::error_code error;
        for (fs::directory_iterator entry(folder, fs::directory_options::skip_permission_denied, error), end;
             !error && entry != end; entry.increment(error)) {
            if (!isLookedInto(*entry))
                continue;
            if (++lookedAt > mostFoldersLookedAt)
                return std::nullopt;
            const std::optional<FolderStatus> status = folderStatus(entry->path(), AT_SYMLINK_NOFOLLOW);
            if (!status || status->device != startStatus->device)
                continue;
            if (status->identity == wanted)
                return entry->path();
            waiting.push_back(entry->path());
        }
    }
    return std::nullopt;
}

std::optional<fs::path> locate(const Place& place)
{
    const std::optional<FolderStatus> atItsPath = folderStatus(place.path);
    if (atItsPath && atItsPath->identity == place.identity)
        return place.path;
    if (place.identity.birthSeconds != 0) {
        const fs::path near = nearestExisting(place.path.parent_path());
        // Near the root of the file system there is no "near" any more.
        if (near.has_relative_path()) {
            if (auto found = findBelow(near, place.identity))
                return found;
        }
    }
    // One that was put there in its stead, such as a restored backup.
    return atItsPath ? std::optional(place.path) : std::nullopt;
}

} // namespace

fs::path defaultFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::MoviesLocation).toStdString();
}

fs::path resolve(const Bookmark& bookmark)
{
    if (const std::optional<Place> place = parse(bookmark)) {
        if (const auto folder = locate(*place); folder && canBeEntered(*folder))
            return *folder;
    }
    return defaultFolder();
}

fs::path lastKnownPath(const Bookmark& bookmark)
{
    const std::optional<Place> place = parse(bookmark);
    return place ? place->path : defaultFolder();
}

bool isAtItsPlace(const Bookmark& bookmark)
{
    const std::optional<Place> place = parse(bookmark);
    return place && folderStatus(place->path);
}

Bookmark bookmarkOf(const fs::path& folder)
{
    std::error_code error;
    const fs::path path = fs::canonical(folder, error);
    const std::optional<FolderStatus> status = error ? std::nullopt : folderStatus(path);
    if (!status)
        return {};
    std::ostringstream stream;
    stream << magic << ' ' << status->identity.inode << ' ' << status->identity.birthSeconds << ' '
           << status->identity.birthNanoseconds << '\n'
           << path.string();
    const std::string text = stream.str();
    const auto* bytes = reinterpret_cast<const std::byte*>(text.data());
    return {bytes, bytes + text.size()};
}

} // namespace nimbrale::recording_folder
