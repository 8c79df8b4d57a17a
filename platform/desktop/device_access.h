#pragma once

#include "platform/desktop/bus_signal.h"
#include "platform/file_descriptor.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace nimbrale {

class MainQueue;

/// What a program may be kept from using.
enum class DeviceKind { camera, microphone };

/// Whether this application may use devices of a kind. Outside of a sandbox every program of the user may; inside of
/// one the desktop's portal asks the user, once, and remembers the answer. Main thread only.
class DeviceAccess final : public QObject {
public:
    /// `queue` must outlive it. `sandboxMark` is the file that there is in every sandbox.
    DeviceAccess(DeviceKind kind, QDBusConnection bus, MainQueue& queue, std::string sandboxMark = "/.flatpak-info");
    ~DeviceAccess() override;
    DeviceAccess(const DeviceAccess&) = delete;
    DeviceAccess& operator=(const DeviceAccess&) = delete;

    /// `onAnswer` is called later, on the main queue, unless this object goes before. Where nobody can be asked the
    /// answer is yes: what the sandbox does not let through fails when it is used.
    void request(std::function<void(bool isGranted)> onAnswer);

    /// Whether this application is in a sandbox and can reach the portal. Any thread.
    [[nodiscard]] bool hasPortal() const;
    /// A connection to the computer's cameras (PipeWire) that the portal hands out to who may use them; nothing outside
    /// of a sandbox, and where the portal does not. Any thread but the main one: waits for the answer, for a few
    /// seconds at most.
    [[nodiscard]] FileDescriptor openCameras() const;

private:
    /// A question that has no answer yet.
    struct Question {
        std::function<void(bool isGranted)> onAnswer;
        std::unique_ptr<BusSignal> response;
    };

    [[nodiscard]] QDBusMessage questionToPortal(const QString& name) const;
    void askPortal(const QString& name, Question& question);
    void answerLater(const QString& name, bool isGranted);

    DeviceKind kind_;
    QDBusConnection bus_;
    MainQueue& queue_;
    std::string sandboxMark_;
    int count_ = 0;
    std::map<QString, Question> open_;
};

} // namespace nimbrale
