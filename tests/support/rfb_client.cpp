#include "tests/support/rfb_client.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace nimbrale::test {

namespace {

constexpr std::int32_t rawEncoding = 0;
constexpr std::int32_t extendedDesktopSize = -308;
constexpr std::int32_t lastRectangle = -224;
constexpr std::int32_t desktopSize = -223;

struct RfbError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Bytes in network order.
class Message {
public:
    Message& u8(unsigned value)
    {
        bytes_.push_back(static_cast<char>(value));
        return *this;
    }
    Message& u16(unsigned value) { return u8(value >> 8).u8(value & 255U); }
    Message& u32(std::uint32_t value) { return u16(value >> 16).u16(value & 0xffffU); }
    [[nodiscard]] const std::string& bytes() const { return bytes_; }

private:
    std::string bytes_;
};

class RfbConnection {
public:
    explicit RfbConnection(const std::filesystem::path& socketPath)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
        const timeval patience{5, 0};
        setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            fail(std::string("cannot connect to ") + socketPath.string());
    }
    ~RfbConnection() { close(socket_); }
    RfbConnection(const RfbConnection&) = delete;
    RfbConnection& operator=(const RfbConnection&) = delete;

    std::string read(std::size_t count)
    {
        std::string bytes(count, '\0');
        std::size_t done = 0;
        while (done < count) {
            const ssize_t got = recv(socket_, bytes.data() + done, count - done, 0);
            if (got <= 0)
                throw RfbError("the VNC server closed the connection or is silent");
            done += static_cast<std::size_t>(got);
        }
        return bytes;
    }
    std::uint32_t readNumber(std::size_t size)
    {
        std::uint32_t value = 0;
        for (const char byte : read(size))
            value = value << 8 | static_cast<unsigned char>(byte);
        return value;
    }
    void send(const std::string& bytes)
    {
        if (::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
            throw RfbError("cannot write to the VNC server");
    }

private:
    [[noreturn]] void fail(const std::string& what)
    {
        close(socket_);
        throw RfbError(what);
    }

    int socket_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

struct Layout {
    /// 0 when the server changed the layout as asked.
    unsigned status = 0;
    std::vector<std::uint32_t> identifiers;
};

void greet(RfbConnection& server)
{
    server.read(12);
    server.send("RFB 003.008\n");
    const std::uint32_t securityTypes = server.readNumber(1);
    server.read(securityTypes);
    server.send("\x01");
    if (server.readNumber(4) != 0)
        throw RfbError("the VNC server wants a password");
    server.send("\x01");
    server.read(20);
    server.read(server.readNumber(4));
    server.send(Message()
                    .u8(2)
                    .u8(0)
                    .u16(2)
                    .u32(static_cast<std::uint32_t>(extendedDesktopSize))
                    .u32(static_cast<std::uint32_t>(desktopSize))
                    .bytes());
}

Layout readLayout(RfbConnection& server, unsigned status)
{
    Layout layout{status, {}};
    const std::uint32_t screens = server.readNumber(1);
    server.read(3);
    for (std::uint32_t index = 0; index < screens; ++index) {
        layout.identifiers.push_back(server.readNumber(4));
        server.read(12);
    }
    return layout;
}

/// Reads updates until one tells of the outputs.
Layout waitForLayout(RfbConnection& server)
{
    while (true) {
        if (server.readNumber(1) != 0)
            throw RfbError("the VNC server sent something unexpected");
        server.read(1);
        const std::uint32_t rectangles = server.readNumber(2);
        for (std::uint32_t index = 0; index < rectangles; ++index) {
            server.readNumber(2);
            const unsigned status = server.readNumber(2);
            const std::size_t width = server.readNumber(2);
            const std::size_t height = server.readNumber(2);
            const auto encoding = static_cast<std::int32_t>(server.readNumber(4));
            if (encoding == extendedDesktopSize)
                return readLayout(server, status);
            if (encoding == lastRectangle)
                break;
            if (encoding == rawEncoding)
                server.read(width * height * 4);
            else if (encoding != desktopSize)
                throw RfbError("the VNC server used an encoding that was not asked for");
        }
    }
}

std::string updateRequest(bool incremental, const QRect& area)
{
    return Message()
        .u8(3)
        .u8(incremental ? 1 : 0)
        .u16(0)
        .u16(0)
        .u16(static_cast<unsigned>(area.width()))
        .u16(static_cast<unsigned>(area.height()))
        .bytes();
}

} // namespace

std::string arrangeVncOutputs(const std::filesystem::path& socketPath, const std::vector<QRect>& outputs)
{
    try {
        RfbConnection server(socketPath);
        greet(server);
        server.send(updateRequest(false, {0, 0, 1, 1}));
        const Layout before = waitForLayout(server);

        QRect all;
        for (const QRect& output : outputs)
            all |= output;
        Message request;
        request.u8(251).u8(0).u16(static_cast<unsigned>(all.right() + 1)).u16(static_cast<unsigned>(all.bottom() + 1));
        request.u8(static_cast<unsigned>(outputs.size())).u8(0);
        for (std::size_t index = 0; index < outputs.size(); ++index) {
            const std::uint32_t identifier = index < before.identifiers.size()
                                                 ? before.identifiers[index]
                                                 : static_cast<std::uint32_t>(1000 + index);
            const QRect& output = outputs[index];
            request.u32(identifier).u16(static_cast<unsigned>(output.x())).u16(static_cast<unsigned>(output.y()));
            request.u16(static_cast<unsigned>(output.width())).u16(static_cast<unsigned>(output.height())).u32(0);
        }
        server.send(request.bytes());
        server.send(updateRequest(true, all));
        const Layout after = waitForLayout(server);
        return after.status == 0 ? std::string() : "the VNC server refused, status " + std::to_string(after.status);
    } catch (const RfbError& error) {
        return error.what();
    }
}

std::string moveVncPointer(const std::filesystem::path& socketPath, QPoint position)
{
    try {
        RfbConnection server(socketPath);
        greet(server);
        const auto x = static_cast<unsigned>(position.x());
        const auto y = static_cast<unsigned>(position.y());
        server.send(Message().u8(5).u8(0).u16(x).u16(y).bytes());
        // Answered after what was sent before.
        server.send(updateRequest(false, {0, 0, 1, 1}));
        waitForLayout(server);
        return {};
    } catch (const RfbError& error) {
        return error.what();
    }
}

} // namespace nimbrale::test
