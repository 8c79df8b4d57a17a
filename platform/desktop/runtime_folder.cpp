#include "platform/desktop/runtime_folder.h"

#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <vector>

namespace nimbrale {

namespace {

constexpr const char* folderName = "nimbrale";
constexpr mode_t openToOthers = S_IRWXG | S_IRWXO;

enum class Strictness { ownedByUser, closedToOthers };

std::filesystem::path absolutePathIn(const char* variable)
{
    const char* const value = std::getenv(variable);
    std::filesystem::path path = value ? value : "";
    return path.is_absolute() ? path : std::filesystem::path();
}

bool isAcceptable(const FileDescriptor& folder, uid_t user, Strictness strictness)
{
    struct stat status = {};
    if (fstat(folder.get(), &status) != 0 || status.st_uid != user)
        return false;
    return strictness == Strictness::ownedByUser || (status.st_mode & openToOthers) == 0;
}

/// Empty where the folder cannot be trusted.
FileDescriptor openIn(const std::filesystem::path& parent, uid_t user, Strictness strictness)
{
    const FileDescriptor outer(open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!outer || !isAcceptable(outer, user, strictness))
        return {};
    // An existing one is looked at below, whoever made it.
    static_cast<void>(mkdirat(outer.get(), folderName, S_IRWXU));
    FileDescriptor folder(openat(outer.get(), folderName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder || !isAcceptable(folder, user, Strictness::ownedByUser))
        return {};
    // A folder of the user's that others can enter is closed to them rather than given up.
    if (!isAcceptable(folder, user, Strictness::closedToOthers) && fchmod(folder.get(), S_IRWXU) != 0)
        return {};
    return folder;
}

std::filesystem::path cacheFolder()
{
    const std::filesystem::path named = absolutePathIn("XDG_CACHE_HOME");
    if (!named.empty())
        return named;
    const std::filesystem::path home = absolutePathIn("HOME");
    return home.empty() ? home : home / ".cache";
}

} // namespace

Result<RuntimeFolder> openRuntimeFolder(uid_t user)
{
    const std::filesystem::path session = absolutePathIn("XDG_RUNTIME_DIR");
    if (!session.empty()) {
        FileDescriptor folder = openIn(session, user, Strictness::closedToOthers);
        if (folder)
            return RuntimeFolder{std::move(folder), session / folderName};
    }
    // The user's home is usually open to the eyes of others; the folder made in it is not.
    const std::filesystem::path cache = cacheFolder();
    if (!cache.empty()) {
        std::error_code ignored;
        std::filesystem::create_directories(cache, ignored);
        FileDescriptor folder = openIn(cache, user, Strictness::ownedByUser);
        if (folder)
            return RuntimeFolder{std::move(folder), cache / folderName};
    }
    return fail(ErrorCode::unsupported, "There is no folder that is this user's alone, neither XDG_RUNTIME_DIR nor the "
                                        "cache folder.");
}

} // namespace nimbrale
