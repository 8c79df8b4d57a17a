#include "tests/support/marionette.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <array>
#include <fstream>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace nimbrale::test {

namespace {

constexpr int answerSeconds = 10;

/// The port that the browser has written down; 0 before it has.
int activePort(const std::filesystem::path& profile)
{
    std::ifstream file(profile / "MarionetteActivePort");
    int port = 0;
    file >> port;
    return port;
}

int connectTo(int port)
{
    const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval patience{answerSeconds, 0};
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (::connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
        return connection;
    close(connection);
    return -1;
}

} // namespace

std::unique_ptr<Marionette> Marionette::connect(const std::filesystem::path& profile, Milliseconds timeout)
{
    int connection = -1;
    static_cast<void>(waitUntil(
        [&] {
            const int port = activePort(profile);
            connection = port != 0 ? connectTo(port) : -1;
            return connection >= 0;
        },
        timeout, Milliseconds{50}));
    if (connection < 0)
        return nullptr;
    std::unique_ptr<Marionette> marionette(new Marionette(connection));
    // The browser speaks first.
    if (!marionette->receive() || !marionette->ask("WebDriver:NewSession", {}) ||
        !marionette->ask("Marionette:SetContext", {{"value", "chrome"}}))
        return nullptr;
    return marionette;
}

Marionette::~Marionette()
{
    close(socket_);
}

std::optional<QJsonValue> Marionette::run(const std::string& body, const QJsonArray& arguments)
{
    const auto answer = ask("WebDriver:ExecuteScript", {{"script", QString::fromStdString(body)}, {"args", arguments}});
    return answer ? std::optional(answer->toObject()["value"]) : std::nullopt;
}

// A message is its length in bytes, a colon and an array: who speaks, a number, and the command or what came of it.
std::optional<QJsonValue> Marionette::ask(const QString& command, const QJsonObject& parameters)
{
    const int id = ++lastId_;
    const QByteArray text = QJsonDocument(QJsonArray{0, id, command, parameters}).toJson(QJsonDocument::Compact);
    const QByteArray message = QByteArray::number(text.size()) + ':' + text;
    if (send(socket_, message.constData(), static_cast<std::size_t>(message.size()), MSG_NOSIGNAL) != message.size()) {
        failure_ = "the browser takes no commands";
        return std::nullopt;
    }
    while (const auto received = receive()) {
        const QJsonArray answer = QJsonDocument::fromJson(*received).array();
        if (answer.size() != 4 || answer[1].toInt() != id)
            continue;
        if (answer[2].isNull())
            return answer[3];
        failure_ = answer[2].toObject()["message"].toString().toStdString();
        return std::nullopt;
    }
    failure_ = "the browser does not answer";
    return std::nullopt;
}

std::optional<QByteArray> Marionette::receive()
{
    while (true) {
        const qsizetype colon = unread_.indexOf(':');
        if (colon >= 0) {
            const qsizetype length = unread_.first(colon).toLongLong();
            if (unread_.size() > colon + length) {
                const QByteArray text = unread_.mid(colon + 1, length);
                unread_.remove(0, colon + 1 + length);
                return text;
            }
        }
        std::array<char, 65536> buffer{};
        const ssize_t count = recv(socket_, buffer.data(), buffer.size(), 0);
        if (count <= 0)
            return std::nullopt;
        unread_.append(buffer.data(), count);
    }
}

} // namespace nimbrale::test
