#include "settings/app_settings_file.h"

#include "platform/file_descriptor.h"

#include <QDate>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace nimbrale {

namespace {

/// Stops after what is more than settings can be; absent when reading fails.
std::optional<std::string> contentOf(int file)
{
    std::string content;
    std::array<char, 4096> part{};
    while (content.size() <= SettingsDocument::largestSize) {
        const ssize_t count = ::read(file, part.data(), part.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return std::nullopt;
        if (count == 0)
            break;
        content.append(part.data(), static_cast<std::size_t>(count));
    }
    return content;
}

} // namespace

SettingsFile readSettingsFile(const std::filesystem::path& path)
{
    // Opening a device may already do something, and opening a pipe waits for its other end.
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        return {
            errno == ENOENT || errno == ENOTDIR ? SettingsFileState::absent : SettingsFileState::unreadable, {}, {}};
    if (!S_ISREG(status.st_mode))
        return {SettingsFileState::unreadable, {}, {}};
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return {SettingsFileState::unreadable, {}, {}};
    std::optional<std::string> content = contentOf(file.get());
    if (!content)
        return {SettingsFileState::unreadable, {}, {}};
    std::optional<SettingsDocument> document = SettingsDocument::parse(*content);
    if (!document)
        return {SettingsFileState::damaged, {}, {}};
    return {SettingsFileState::readable, *std::move(document), *std::move(content)};
}

Result<std::filesystem::path> setAsideDamagedFile(const std::filesystem::path& path)
{
    const std::string base = path.string() + ".damaged-" + QDate::currentDate().toString(Qt::ISODate).toStdString();
    std::filesystem::path name = base;
    std::error_code error;
    for (int number = 2; std::filesystem::exists(std::filesystem::symlink_status(name, error)); ++number)
        name = base + "-" + std::to_string(number);
    std::filesystem::rename(path, name, error);
    if (error)
        return fail(ErrorCode::permanent, "it is damaged and could not be renamed: " + error.message());
    return name;
}

} // namespace nimbrale
