#pragma once

#include "tests/support/process.h"

#include <QImage>
#include <QJsonObject>

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace nimbrale::test {

/// Serves the call's page on loopback, hands it commands, and takes its answers. The page asks for a command and waits;
/// its answers are objects or pictures. `ask` and `askForPicture` belong to one thread.
class CallServer {
public:
    /// The page is read from a file now. The port is one that the system found free.
    explicit CallServer(const std::string& pageFile);
    ~CallServer();
    CallServer(const CallServer&) = delete;
    CallServer& operator=(const CallServer&) = delete;

    /// Where the page is; empty when the page cannot be read or no port be had.
    [[nodiscard]] const std::string& address() const { return address_; }
    /// Absent when the page does not answer in time.
    [[nodiscard]] std::optional<QJsonObject> ask(const std::string& command, const QJsonObject& details,
                                                 Milliseconds timeout);
    /// Null when the page has no picture or does not answer in time.
    [[nodiscard]] QImage askForPicture(const std::string& command, const QJsonObject& details, Milliseconds timeout);

private:
    struct Request {
        std::string path;
        std::map<std::string, std::string> query;
        std::string body;
    };
    struct Answer {
        QJsonObject object;
        QImage picture;
    };

    void acceptConnections();
    void serve(int connection);
    [[nodiscard]] static std::optional<Request> readRequest(int connection);
    [[nodiscard]] std::string respond(const Request& request);
    [[nodiscard]] std::string nextCommand();
    std::optional<Answer> waitForAnswer(const std::string& command, QJsonObject details, Milliseconds timeout);

    std::string page_;
    std::string address_;
    int listener_ = -1;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isStopping_ = false;
    std::vector<std::string> commands_;
    std::map<int, Answer> answers_;
    int lastCommand_ = 0;
    std::vector<std::thread> connections_;
    std::thread acceptor_;
};

} // namespace nimbrale::test
