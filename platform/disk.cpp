#include "platform/disk.h"

#include "platform/file_descriptor.h"

#include <cerrno>
#include <fcntl.h>
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

} // namespace nimbrale
