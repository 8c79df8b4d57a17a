#pragma once

#include "tests/support/process.h"

#include <QJsonArray>
#include <QJsonValue>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace nimbrale::test {

/// Runs scripts in Firefox's own windows, through the remote control that the browser serves on loopback. Blocking; one
/// thread.
class Marionette {
public:
    /// Connects to the browser that has this profile. Null when it does not answer in time.
    [[nodiscard]] static std::unique_ptr<Marionette> connect(const std::filesystem::path& profile,
                                                             Milliseconds timeout);
    ~Marionette();
    Marionette(const Marionette&) = delete;
    Marionette& operator=(const Marionette&) = delete;

    /// The value that the body of a function returns, called with `arguments`; absent when the browser reports an error
    /// or does not answer, with the reason in `failure`.
    [[nodiscard]] std::optional<QJsonValue> run(const std::string& body, const QJsonArray& arguments);
    [[nodiscard]] const std::string& failure() const { return failure_; }

private:
    explicit Marionette(int socket) : socket_(socket) {}

    [[nodiscard]] std::optional<QJsonValue> ask(const QString& command, const QJsonObject& parameters);
    [[nodiscard]] std::optional<QByteArray> receive();

    int socket_;
    int lastId_ = 0;
    QByteArray unread_;
    std::string failure_;
};

} // namespace nimbrale::test
