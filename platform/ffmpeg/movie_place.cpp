#include "platform/ffmpeg/movie_place.h"

#include "platform/disk.h"
#include "platform/log.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace nimbrale::ffmpeg {

namespace {

constexpr std::time_t longestRest = 120; // Seconds; a writer writes every one.
constexpr int mostNames = 10000;

/// "Name.mov", "Name 2.mov", "Name 3.mov", …
std::filesystem::path numbered(const std::filesystem::path& movie, int number)
{
    if (number == 1)
        return movie;
    std::filesystem::path name = movie.stem();
    name += " " + std::to_string(number);
    name += movie.extension();
    return movie.parent_path() / name;
}

std::filesystem::path piecesOf(std::filesystem::path movie)
{
    movie += MoviePlace::suffix;
    return movie;
}

enum class Lock { taken, held, unknown };

Lock tryLock(int file)
{
    if (::flock(file, LOCK_EX | LOCK_NB) == 0)
        return Lock::taken;
    return errno == EWOULDBLOCK ? Lock::held : Lock::unknown;
}

bool isSame(const struct stat& one, const struct stat& other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Whether `path` names the open file itself.
bool isNameOf(const std::filesystem::path& path, int file)
{
    struct stat named {};
    struct stat open {};
    return ::lstat(path.c_str(), &named) == 0 && ::fstat(file, &open) == 0 && isSame(named, open);
}

bool isOwnRegularFile(const struct stat& status)
{
    return S_ISREG(status.st_mode) && status.st_uid == ::geteuid();
}

/// Whether the file system does not know the call, or one of its flags.
bool isUnknown(int error)
{
    return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == EPERM;
}

/// For file systems without links: the name is taken by an empty file, which only then gives way.
int renameOntoPlaceholder(const char* from, const char* to)
{
    const FileDescriptor placeholder(::open(to, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!placeholder)
        return errno;
    if (::rename(from, to) == 0)
        return 0;
    const int error = errno;
    ::unlink(to);
    return error;
}

/// 0, or why not: EEXIST where something of that name exists.
int renameExclusively(const std::filesystem::path& from, const std::filesystem::path& to)
{
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (!isUnknown(errno))
        return errno;
    if (::link(from.c_str(), to.c_str()) == 0) {
        // Should the old name stay, the next recovery finds that both name one file.
        ::unlink(from.c_str());
        return 0;
    }
    return isUnknown(errno) ? renameOntoPlaceholder(from.c_str(), to.c_str()) : errno;
}

void synchronizeFolder(const std::filesystem::path& folder)
{
    if (const int error = bringToDisk(folder); error != 0)
        qCWarning(recordingLog, "%s was not brought to the disk: %s", folder.c_str(), std::strerror(error));
}

} // namespace

MoviePlace::MoviePlace(std::filesystem::path movie, std::filesystem::path pieces, FileDescriptor file)
    : movie_(std::move(movie)), pieces_(std::move(pieces)), file_(std::move(file))
{}

Result<MoviePlace> MoviePlace::create(const std::filesystem::path& movie)
{
    int error = EEXIST;
    for (int number = 1; error == EEXIST && number <= mostNames; ++number) {
        std::filesystem::path pieces = piecesOf(numbered(movie, number));
        FileDescriptor file(::open(pieces.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
        if (!file) {
            error = errno;
            continue;
        }
        const Lock lock = tryLock(file.get());
        if (lock == Lock::unknown)
            qCInfo(recordingLog, "%s cannot be locked: %s", pieces.c_str(), std::strerror(errno));
        // Before it was locked, a recovery may have taken it for a leftover without a picture.
        if (lock != Lock::held && isNameOf(pieces, file.get()))
            return MoviePlace(movie, std::move(pieces), std::move(file));
    }
    qCWarning(recordingLog, "No file for %s: %s", movie.c_str(), std::strerror(error));
    return fail(ErrorCode::temporary, whyNoFileIsMade(error));
}

Result<std::optional<MoviePlace>> MoviePlace::claim(const std::filesystem::path& pieces)
{
    std::string name = pieces.string();
    if (!name.ends_with(suffix))
        return std::nullopt;
    name.resize(name.size() - suffix.size());

    // Looked at before it is opened: to open a pipe or a device can have effects.
    struct stat status {};
    if (::lstat(pieces.c_str(), &status) != 0 || !isOwnRegularFile(status))
        return std::nullopt;
    FileDescriptor file(::open(pieces.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    const int error = file ? 0 : errno;
    MoviePlace place(name, pieces, std::move(file));
    if (error == ENOENT || error == ELOOP)
        return std::nullopt;
    if (error != 0) {
        qCWarning(recordingLog, "%s cannot be opened: %s", pieces.c_str(), std::strerror(error));
        return tl::make_unexpected(place.notSaved(ErrorCode::permanent));
    }
    const Lock lock = tryLock(place.descriptor());
    // Its writer may have published it, and something else may have taken the name, before it was locked.
    if (lock == Lock::held || ::fstat(place.descriptor(), &status) != 0 || !isOwnRegularFile(status) ||
        !isNameOf(pieces, place.descriptor()))
        return std::nullopt;
    if (lock == Lock::unknown && std::time(nullptr) - status.st_mtim.tv_sec < longestRest)
        return std::nullopt;
    return std::optional(std::move(place));
}

Result<std::filesystem::path> MoviePlace::publish()
{
    int error = EEXIST;
    for (int number = 1; error == EEXIST && number <= mostNames; ++number) {
        std::filesystem::path movie = numbered(movie_, number);
        error = renameExclusively(pieces_, movie);
        if (error == EEXIST && isNameOf(movie, descriptor())) {
            // A crash came between the new name and the end of the old one.
            ::unlink(pieces_.c_str());
            error = 0;
        }
        if (error == 0) {
            synchronizeFolder(movie.parent_path());
            return movie;
        }
    }
    qCWarning(recordingLog, "%s gets no other name: %s", pieces_.c_str(), std::strerror(error));
    return tl::make_unexpected(notSaved(ErrorCode::temporary));
}

void MoviePlace::remove()
{
    removeCopy();
    if (::unlink(pieces_.c_str()) != 0)
        qCWarning(recordingLog, "%s was not removed: %s", pieces_.c_str(), std::strerror(errno));
}

std::filesystem::path MoviePlace::copyPath() const
{
    std::filesystem::path path = pieces_;
    path += ".copy";
    return path;
}

Result<FileDescriptor> MoviePlace::createCopy() const
{
    removeCopy();
    FileDescriptor file(::open(copyPath().c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!file) {
        qCWarning(recordingLog, "%s cannot be made: %s", copyPath().c_str(), std::strerror(errno));
        return tl::make_unexpected(notSaved(ErrorCode::temporary));
    }
    if (tryLock(file.get()) == Lock::unknown)
        qCInfo(recordingLog, "%s cannot be locked: %s", copyPath().c_str(), std::strerror(errno));
    return file;
}

Result<void> MoviePlace::replaceByCopy(FileDescriptor copy)
{
    if (::rename(copyPath().c_str(), pieces_.c_str()) != 0) {
        qCWarning(recordingLog, "%s does not take its place: %s", copyPath().c_str(), std::strerror(errno));
        removeCopy();
        return tl::make_unexpected(notSaved(ErrorCode::temporary));
    }
    file_ = std::move(copy);
    synchronizeFolder(pieces_.parent_path());
    return {};
}

void MoviePlace::removeCopy() const
{
    if (::unlink(copyPath().c_str()) != 0 && errno != ENOENT)
        qCWarning(recordingLog, "%s was not removed: %s", copyPath().c_str(), std::strerror(errno));
}

Error MoviePlace::notSaved(ErrorCode code, std::string_view reason) const
{
    std::string message = "The movie couldn't be saved. ";
    if (!reason.empty())
        message.append(reason).append(" ");
    return {code, message + "What was recorded is in " + pieces_.string() + "."};
}

} // namespace nimbrale::ffmpeg
