#include "settings/replacement_file.h"

#include "platform/disk.h"
#include "platform/file_descriptor.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace nimbrale {

namespace {

constexpr std::string_view temporaryEnding = ".new";

auto stepFailed(const std::string& step, int error)
{
    return fail(ErrorCode::temporary, step + ": " + std::generic_category().message(error));
}

std::filesystem::path withoutLink(const std::filesystem::path& path)
{
    std::error_code error;
    const std::filesystem::path target = std::filesystem::canonical(path, error);
    return error ? path : target;
}

bool writeAll(int file, std::string_view content)
{
    while (!content.empty()) {
        const ssize_t count = ::write(file, content.data(), content.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        content.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

/// The process that wrote `name` in order to replace `original`.
std::optional<pid_t> writerOf(const std::string& name, const std::string& original)
{
    const std::string beginning = original + ".";
    if (!name.starts_with(beginning) || !name.ends_with(temporaryEnding))
        return std::nullopt;
    const char* end = name.data() + name.size() - temporaryEnding.size();
    pid_t process = 0;
    const auto [stopped, error] = std::from_chars(name.data() + beginning.size(), end, process);
    return error == std::errc() && stopped == end && process > 0 ? std::optional(process) : std::nullopt;
}

} // namespace

ReplacementFile::ReplacementFile(std::filesystem::path target)
    : target_(std::move(target)),
      temporary_(target_.string() + "." + std::to_string(getpid()) + std::string(temporaryEnding))
{}

ReplacementFile::ReplacementFile(ReplacementFile&& other) noexcept
    : target_(std::move(other.target_)), temporary_(std::exchange(other.temporary_, {}))
{}

ReplacementFile::~ReplacementFile()
{
    ::unlink(temporary_.c_str()); // Not there any more once it took its place.
}

Result<ReplacementFile> ReplacementFile::create(const std::filesystem::path& path, std::string_view content)
{
    ReplacementFile replacement(withoutLink(path));
    std::error_code error;
    std::filesystem::create_directories(replacement.target_.parent_path(), error);
    if (error)
        return stepFailed("making its folder", error.value());
    if (const Result<void> written = replacement.write(content); !written)
        return tl::make_unexpected(written.error());
    return replacement;
}

Result<void> ReplacementFile::write(std::string_view content) const
{
    // A process of the same number that was killed may have left one.
    ::unlink(temporary_.c_str());
    FileDescriptor file(::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!file)
        return stepFailed("making " + temporary_.filename().string(), errno);
    struct stat old {};
    if (::stat(target_.c_str(), &old) == 0 && ::fchmod(file.get(), old.st_mode & 07777) != 0)
        return stepFailed("keeping its rights", errno);
    if (!writeAll(file.get(), content))
        return stepFailed("writing " + temporary_.filename().string(), errno);
    if (const int error = bringToDisk(file.get()); error != 0)
        return stepFailed("bringing " + temporary_.filename().string() + " to the disk", error);
    if (::close(file.release()) != 0)
        return stepFailed("closing " + temporary_.filename().string(), errno);
    return {};
}

Result<void> ReplacementFile::takePlace()
{
    if (::rename(temporary_.c_str(), target_.c_str()) != 0)
        return stepFailed("putting " + temporary_.filename().string() + " in its place", errno);
    // Until its folder is on the disk as well, a loss of power may bring the old file back.
    if (const int error = bringToDisk(target_.parent_path()); error != 0)
        return stepFailed("bringing its folder to the disk", error);
    return {};
}

void ReplacementFile::removeLeftovers(const std::filesystem::path& path)
{
    const std::filesystem::path target = withoutLink(path);
    std::error_code error;
    std::filesystem::directory_iterator entry(target.parent_path(), error);
    while (!error && entry != std::filesystem::directory_iterator()) {
        const auto writer = writerOf(entry->path().filename().string(), target.filename().string());
        if (writer && ::kill(*writer, 0) != 0 && errno == ESRCH)
            ::unlink(entry->path().c_str());
        entry.increment(error);
    }
}

} // namespace nimbrale
