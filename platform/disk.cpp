#include "platform/disk.h"

#include "platform/file_descriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace nimbrale {

int bringToDisk(int file)
{
    if (::fsync(file) == 0 || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)
        return 0;
    return errno;
}

int bringToDisk(const std::filesystem::path& folder)
{
    const FileDescriptor open(::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return open ? bringToDisk(open.get()) : errno;
}

std::string whyNoFileIsMade(int error)
{
    constexpr const char* choose = "Choose another folder in Settings.";
    switch (error) {
    case ENOENT:
        return std::string("The folder isn't there. ") + choose;
    case EACCES:
    case EPERM:
        return std::string("You aren't allowed to write there. ") + choose;
    case EROFS:
        return std::string("That disk can only be read. ") + choose;
    case ENOSPC:
    case EDQUOT:
        return "The disk is full. Make room there, or choose another folder in Settings.";
    default:
        return "The system says: " + std::generic_category().message(error) + ". " + choose;
    }
}

} // namespace nimbrale
