#include "platform/desktop/instance_listener.h"

#include "platform/desktop/instance_socket.h"

#include <QTimer>

#include <array>
#include <cerrno>
#include <chrono>
#include <string>
#include <sys/socket.h>

namespace nimbrale {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t mostConversations = 8;
constexpr std::chrono::milliseconds longestConversation = 2s;

} // namespace

/// One connection: reads a line, answers and is over.
class InstanceListener::Conversation {
public:
    Conversation(InstanceListener& listener, FileDescriptor connection)
        : listener_(listener), connection_(std::move(connection)), notifier_(connection_.get(), QSocketNotifier::Read)
    {
        QObject::connect(&notifier_, &QSocketNotifier::activated, &notifier_, [this] { read(); });
        QObject::connect(&timer_, &QTimer::timeout, &timer_, [this] { end(); });
        timer_.setSingleShot(true);
        timer_.start(longestConversation);
    }

private:
    void read()
    {
        std::array<char, longestInstanceLine> buffer{};
        const ssize_t count = recv(connection_.get(), buffer.data(), buffer.size(), 0);
        if (count < 0 && (errno == EAGAIN || errno == EINTR))
            return;
        if (count > 0)
            text_.append(buffer.data(), static_cast<std::size_t>(count));
        const std::size_t newline = text_.find('\n');
        if (newline != std::string::npos) {
            notifier_.setEnabled(false);
            answer(text_.substr(0, newline));
            end();
        } else if (count <= 0 || text_.size() >= longestInstanceLine) {
            end();
        }
    }

    void answer(const std::string& line) const
    {
        const std::optional<InstanceRequest> request = parseRequest(line);
        if (!request)
            return;
        const std::string reply = formatAnswer(listener_.handler_(*request));
        // Whoever asked and left needs no answer.
        static_cast<void>(send(connection_.get(), reply.data(), reply.size(), MSG_NOSIGNAL));
    }

    /// Nothing more is heard; the object goes when its own call is over.
    void end()
    {
        notifier_.setEnabled(false);
        timer_.stop();
        QMetaObject::invokeMethod(
            &timer_, [this] { listener_.remove(*this); }, Qt::QueuedConnection);
    }

    InstanceListener& listener_;
    FileDescriptor connection_;
    QSocketNotifier notifier_;
    QTimer timer_;
    std::string text_;
};

InstanceListener::InstanceListener(FileDescriptor socket, Handler handler, uid_t user)
    : socket_(std::move(socket)), handler_(std::move(handler)), user_(user)
{
    if (!socket_)
        return;
    notifier_ = std::make_unique<QSocketNotifier>(socket_.get(), QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(), [this] { takeConnections(); });
}

InstanceListener::~InstanceListener() = default;

void InstanceListener::takeConnections()
{
    while (true) {
        FileDescriptor connection(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!connection)
            return;
        // Beyond the bound the newcomer is turned away; it asks again.
        if (isPeerOfUser(connection, user_) && conversations_.size() < mostConversations)
            conversations_.push_back(std::make_unique<Conversation>(*this, std::move(connection)));
    }
}

void InstanceListener::remove(const Conversation& conversation)
{
    std::erase_if(conversations_, [&](const auto& kept) { return kept.get() == &conversation; });
}

} // namespace nimbrale
