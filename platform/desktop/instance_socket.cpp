#include "platform/desktop/instance_socket.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace nimbrale {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int longestQueue = 16;

/// Through the open folder, so that neither the length of its path matters nor what became of that path meanwhile.
sockaddr_un addressIn(const FileDescriptor& folder, const std::string& name)
{
    const std::string path = "/proc/self/fd/" + std::to_string(folder.get()) + "/" + name;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        programmingError("a socket's name that is too long");
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

FileDescriptor makeSocket()
{
    return FileDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

Error systemError(const std::string& what)
{
    return {ErrorCode::permanent, what + ": " + std::strerror(errno) + "."};
}

Error noAnswer()
{
    return {ErrorCode::temporary, "Nimbrale is running already, but does not answer."};
}

/// False when nothing came in time.
bool waitToRead(const FileDescriptor& connection, Clock::time_point end)
{
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (left.count() <= 0)
            return false;
        pollfd waiting{connection.get(), POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(left.count())) > 0)
            return true;
    }
}

/// The first line without its end; empty when the connection ends before.
Result<std::string> readLine(const FileDescriptor& connection, Clock::time_point end)
{
    std::string text;
    while (text.size() < longestInstanceLine) {
        if (!waitToRead(connection, end))
            return tl::make_unexpected(noAnswer());
        std::array<char, longestInstanceLine> buffer{};
        const ssize_t count = recv(connection.get(), buffer.data(), buffer.size(), 0);
        if (count < 0 && (errno == EAGAIN || errno == EINTR))
            continue;
        if (count <= 0)
            return std::string();
        text.append(buffer.data(), static_cast<std::size_t>(count));
        if (const std::size_t newline = text.find('\n'); newline != std::string::npos)
            return text.substr(0, newline);
    }
    return tl::make_unexpected(noAnswer());
}

} // namespace

bool isPeerOfUser(const FileDescriptor& connection, uid_t user)
{
    ucred peer = {};
    socklen_t size = sizeof peer;
    return getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == user;
}

Result<FileDescriptor> listenForInstances(const FileDescriptor& folder, const std::string& name)
{
    FileDescriptor listening = makeSocket();
    if (!listening)
        return tl::make_unexpected(systemError("No socket can be made"));
    if (unlinkat(folder.get(), name.c_str(), 0) != 0 && errno != ENOENT)
        return tl::make_unexpected(systemError("A socket that was left behind cannot be removed"));
    const sockaddr_un address = addressIn(folder, name);
    // The socket's own rights apply to the file; the folder is closed to others all the same.
    if (fchmod(listening.get(), S_IRUSR | S_IWUSR) != 0 ||
        bind(listening.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listening.get(), longestQueue) != 0)
        return tl::make_unexpected(systemError("The socket for other starts cannot be set up"));
    return listening;
}

Result<std::optional<InstanceAnswer>> askInstance(const FileDescriptor& folder, const std::string& name,
                                                  const InstanceRequest& request, std::chrono::milliseconds patience,
                                                  uid_t user)
{
    const Clock::time_point end = Clock::now() + patience;
    const FileDescriptor connection = makeSocket();
    const sockaddr_un address = addressIn(folder, name);
    if (!connection || connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return std::nullopt;
    if (!isPeerOfUser(connection, user))
        return fail(ErrorCode::permanent, "Another user's program answers in Nimbrale's place.");
    const std::string line = formatRequest(request);
    // A line this short fits the empty buffer of a fresh connection whole.
    if (send(connection.get(), line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size()))
        return std::nullopt;
    const Result<std::string> text = readLine(connection, end);
    if (!text)
        return tl::make_unexpected(text.error());
    if (text->empty())
        return std::nullopt;
    const std::optional<InstanceAnswer> answer = parseAnswer(*text);
    if (!answer)
        return tl::make_unexpected(noAnswer());
    return answer;
}

} // namespace nimbrale
