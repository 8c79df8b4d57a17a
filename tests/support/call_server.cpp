#include "tests/support/call_server.h"

#include <QJsonDocument>

#include <array>
#include <cstring>
#include <fstream>
#include <netinet/in.h>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

namespace nimbrale::test {

namespace {

constexpr Milliseconds longPoll{1000};
constexpr int stopCheckMilliseconds = 100;

std::string response(const std::string& status, const std::string& type, const std::string& body)
{
    return "HTTP/1.1 " + status + "\r\nContent-Type: " + type + "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\nCache-Control: no-store\r\nConnection: close\r\n\r\n" + body;
}

std::size_t contentLength(const std::string& head)
{
    std::istringstream lines(head);
    for (std::string line; std::getline(lines, line);) {
        if (strncasecmp(line.c_str(), "Content-Length:", 15) == 0)
            return std::stoul(line.substr(15));
    }
    return 0;
}

std::map<std::string, std::string> parseQuery(const std::string& text)
{
    std::map<std::string, std::string> query;
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, '&');) {
        const std::size_t equals = part.find('=');
        if (equals != std::string::npos)
            query[part.substr(0, equals)] = part.substr(equals + 1);
    }
    return query;
}

int numberIn(const std::map<std::string, std::string>& query, const std::string& name)
{
    const auto found = query.find(name);
    return found == query.end() ? 0 : std::atoi(found->second.c_str());
}

} // namespace

CallServer::CallServer(const std::string& pageFile)
{
    const std::ifstream file(pageFile);
    std::ostringstream text;
    text << file.rdbuf();
    page_ = text.str();
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof local;
    if (page_.empty() || bind(listener_, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0 ||
        listen(listener_, SOMAXCONN) != 0 || getsockname(listener_, reinterpret_cast<sockaddr*>(&local), &length) != 0)
        return;
    address_ = "http://127.0.0.1:" + std::to_string(ntohs(local.sin_port)) + "/";
    acceptor_ = std::thread([this] { acceptConnections(); });
}

CallServer::~CallServer()
{
    {
        const std::lock_guard lock(mutex_);
        isStopping_ = true;
    }
    changed_.notify_all();
    if (acceptor_.joinable())
        acceptor_.join();
    for (std::thread& connection : connections_)
        connection.join();
    close(listener_);
}

void CallServer::acceptConnections()
{
    while (true) {
        pollfd waiting{listener_, POLLIN, 0};
        const int ready = poll(&waiting, 1, stopCheckMilliseconds);
        {
            const std::lock_guard lock(mutex_);
            if (isStopping_)
                return;
        }
        if (ready <= 0)
            continue;
        const int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection >= 0)
            connections_.emplace_back([this, connection] { serve(connection); });
    }
}

void CallServer::serve(int connection)
{
    const timeval patience{5, 0};
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    if (const std::optional<Request> request = readRequest(connection)) {
        const std::string text = respond(*request);
        std::size_t done = 0;
        while (done < text.size()) {
            const ssize_t sent = send(connection, text.data() + done, text.size() - done, MSG_NOSIGNAL);
            if (sent <= 0)
                break;
            done += static_cast<std::size_t>(sent);
        }
    }
    close(connection);
}

std::optional<CallServer::Request> CallServer::readRequest(int connection)
{
    std::string text;
    std::size_t headEnd = std::string::npos;
    std::size_t wanted = 0;
    while (headEnd == std::string::npos || text.size() < wanted) {
        std::array<char, 65536> buffer{};
        const ssize_t count = recv(connection, buffer.data(), buffer.size(), 0);
        if (count <= 0)
            return std::nullopt;
        text.append(buffer.data(), static_cast<std::size_t>(count));
        if (headEnd == std::string::npos) {
            headEnd = text.find("\r\n\r\n");
            if (headEnd != std::string::npos)
                wanted = headEnd + 4 + contentLength(text.substr(0, headEnd));
        }
    }
    std::istringstream firstLine(text);
    std::string method;
    std::string target;
    firstLine >> method >> target;
    const std::size_t question = target.find('?');
    Request request{target.substr(0, question), {}, text.substr(headEnd + 4)};
    if (question != std::string::npos)
        request.query = parseQuery(target.substr(question + 1));
    return request;
}

std::string CallServer::respond(const Request& request)
{
    if (request.path == "/")
        return response("200 OK", "text/html", page_);
    if (request.path == "/command") {
        const std::string command = nextCommand();
        return command.empty() ? response("204 No Content", "text/plain", "")
                               : response("200 OK", "application/json", command);
    }
    Answer answer;
    if (request.path == "/answer") {
        answer.object = QJsonDocument::fromJson(QByteArray::fromStdString(request.body)).object();
    } else if (request.path == "/picture") {
        const int width = numberIn(request.query, "width");
        const int height = numberIn(request.query, "height");
        if (request.body.size() == static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4) {
            answer.picture = QImage(reinterpret_cast<const uchar*>(request.body.data()), width, height,
                                    qsizetype{width} * 4, QImage::Format_RGBA8888)
                                 .convertToFormat(QImage::Format_RGB32);
        }
    } else {
        return response("404 Not Found", "text/plain", "");
    }
    {
        const std::lock_guard lock(mutex_);
        answers_[numberIn(request.query, "id")] = std::move(answer);
    }
    changed_.notify_all();
    return response("200 OK", "text/plain", "");
}

std::string CallServer::nextCommand()
{
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, longPoll, [this] { return isStopping_ || !commands_.empty(); });
    if (isStopping_ || commands_.empty())
        return {};
    std::string command = commands_.front();
    commands_.erase(commands_.begin());
    return command;
}

std::optional<CallServer::Answer> CallServer::waitForAnswer(const std::string& command, QJsonObject details,
                                                            Milliseconds timeout)
{
    std::unique_lock lock(mutex_);
    const int id = ++lastCommand_;
    details["id"] = id;
    details["name"] = QString::fromStdString(command);
    commands_.push_back(QJsonDocument(details).toJson(QJsonDocument::Compact).toStdString());
    changed_.notify_all();
    if (!changed_.wait_for(lock, timeout, [&] { return answers_.count(id) > 0; })) {
        // A command that nobody fetched in time is not for whoever comes later.
        commands_.clear();
        return std::nullopt;
    }
    Answer answer = std::move(answers_[id]);
    answers_.erase(id);
    return answer;
}

std::optional<QJsonObject> CallServer::ask(const std::string& command, const QJsonObject& details, Milliseconds timeout)
{
    const std::optional<Answer> answer = waitForAnswer(command, details, timeout);
    return answer ? std::optional(answer->object) : std::nullopt;
}

QImage CallServer::askForPicture(const std::string& command, const QJsonObject& details, Milliseconds timeout)
{
    const std::optional<Answer> answer = waitForAnswer(command, details, timeout);
    return answer ? answer->picture : QImage();
}

} // namespace nimbrale::test
