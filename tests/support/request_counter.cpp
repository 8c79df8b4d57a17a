#include "tests/support/request_counter.h"

#include <cstddef>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace nimbrale::test {

namespace {

/// Display numbers that servers which look for a free one do not reach.
constexpr int firstNumber = 5000;
constexpr int lastNumber = 5999;

struct Address {
    sockaddr_un name{};
    socklen_t length = 0;
};

/// Where the clients of a display look first: a name without a file.
Address addressOf(int displayNumber)
{
    const std::string path = "/tmp/.X11-unix/X" + std::to_string(displayNumber);
    Address address;
    address.name.sun_family = AF_UNIX;
    std::memcpy(address.name.sun_path + 1, path.data(), path.size());
    address.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + path.size());
    return address;
}

FileDescriptor openSocket()
{
    return FileDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

std::size_t padded(std::size_t length)
{
    return (length + 3) / 4 * 4;
}

template <typename T>
T valueAt(const std::vector<std::uint8_t>& bytes, std::size_t position)
{
    T value{};
    std::memcpy(&value, bytes.data() + position, sizeof value);
    return value;
}

} // namespace

std::unique_ptr<RequestCounter> RequestCounter::start(const std::string& displayName)
{
    const Address server = addressOf(std::stoi(displayName.substr(displayName.find(':') + 1)));
    FileDescriptor toServer = openSocket();
    if (connect(toServer.get(), reinterpret_cast<const sockaddr*>(&server.name), server.length) != 0)
        return nullptr;
    for (int number = firstNumber; number <= lastNumber; ++number) {
        const Address own = addressOf(number);
        FileDescriptor listening = openSocket();
        if (bind(listening.get(), reinterpret_cast<const sockaddr*>(&own.name), own.length) == 0 &&
            listen(listening.get(), 1) == 0)
            return std::unique_ptr<RequestCounter>(
                new RequestCounter(":" + std::to_string(number), std::move(listening), std::move(toServer)));
    }
    return nullptr;
}

RequestCounter::RequestCounter(std::string displayName, FileDescriptor listening, FileDescriptor server)
    : displayName_(std::move(displayName)), listening_(std::move(listening)), server_(std::move(server)),
      ending_(eventfd(0, EFD_CLOEXEC)), thread_([this] { run(); })
{}

RequestCounter::~RequestCounter()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(ending_.get(), &one, sizeof one);
    thread_.join();
}

void RequestCounter::run()
{
    pollfd waiting[] = {{ending_.get(), POLLIN, 0}, {listening_.get(), POLLIN, 0}};
    poll(waiting, 2, -1);
    if (waiting[0].revents != 0)
        return;
    const FileDescriptor client(accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    bool isOpen = static_cast<bool>(client);
    while (isOpen) {
        pollfd descriptors[] = {{ending_.get(), POLLIN, 0}, {client.get(), POLLIN, 0}, {server_.get(), POLLIN, 0}};
        poll(descriptors, 3, -1);
        if (descriptors[0].revents != 0)
            break;
        if (descriptors[1].revents != 0) {
            std::this_thread::sleep_for(delay_.load());
            isOpen = pass(client.get(), server_.get(), &pending_);
            countRequests();
        }
        if (isOpen && descriptors[2].revents != 0)
            isOpen = pass(server_.get(), client.get(), nullptr);
    }
    // The server sees the client's end at once.
    server_.reset();
}

bool RequestCounter::pass(int from, int to, std::vector<std::uint8_t>* copy)
{
    std::array<std::uint8_t, 65536> buffer;
    const ssize_t length = read(from, buffer.data(), buffer.size());
    if (length <= 0)
        return false;
    if (copy)
        copy->insert(copy->end(), buffer.begin(), buffer.begin() + length);
    for (ssize_t sent = 0; sent < length;) {
        const ssize_t written = send(to, buffer.data() + sent, static_cast<std::size_t>(length - sent), MSG_NOSIGNAL);
        if (written <= 0)
            return false;
        sent += written;
    }
    return true;
}

void RequestCounter::countRequests()
{
    std::size_t position = 0;
    if (!isSetUp_ && pending_.size() >= 12) {
        position = 12 + padded(valueAt<std::uint16_t>(pending_, 6)) + padded(valueAt<std::uint16_t>(pending_, 8));
        if (position > pending_.size())
            return;
        isSetUp_ = true;
    }
    while (isSetUp_ && pending_.size() - position >= 8) {
        std::size_t length = 4 * std::size_t{valueAt<std::uint16_t>(pending_, position + 2)};
        // A request too long for 16 bits says so by none, and has its length in the next word.
        if (length == 0)
            length = 4 * std::size_t{valueAt<std::uint32_t>(pending_, position + 4)};
        if (length > pending_.size() - position)
            break;
        ++counts_[pending_[position]];
        position += length;
    }
    // A request of four bytes at the very end.
    if (isSetUp_ && pending_.size() - position == 4 && valueAt<std::uint16_t>(pending_, position + 2) == 1) {
        ++counts_[pending_[position]];
        position += 4;
    }
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(position));
}

} // namespace nimbrale::test
