#include "platform/desktop/device_access.h"

#include "platform/desktop/bus_question.h"
#include "platform/desktop/bus_signal.h"
#include "platform/log.h"
#include "platform/main_queue.h"

#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QPointer>
#include <QVariantMap>

#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <unistd.h>
#include <utility>

namespace nimbrale {

namespace {

constexpr const char* portal = "org.freedesktop.portal.Desktop";
constexpr const char* portalPath = "/org/freedesktop/portal/desktop";
/// The portal answers at once that it asks; how long the user takes does not matter here.
constexpr std::chrono::seconds longestStart{25};
/// Nobody is asked for this any more.
constexpr std::chrono::milliseconds longestOpening{3000};

/// Where the portal answers a question of this name; known beforehand, so that no answer can come too early.
QString pathOfAnswer(const QDBusConnection& bus, const QString& name)
{
    QString sender = bus.baseService().mid(1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    return QString::fromLatin1("%1/request/%2/%3").arg(QLatin1String(portalPath), sender, name);
}

QDBusMessage callOf(const char* interface, const char* method)
{
    return QDBusMessage::createMethodCall(QLatin1String(portal), QLatin1String(portalPath), QLatin1String(interface),
                                          QLatin1String(method));
}

QString nameOf(DeviceKind kind)
{
    return QLatin1String(kind == DeviceKind::camera ? "camera" : "microphone");
}

} // namespace

DeviceAccess::DeviceAccess(DeviceKind kind, QDBusConnection bus, MainQueue& queue, std::string sandboxMark)
    : kind_(kind), bus_(std::move(bus)), queue_(queue), sandboxMark_(std::move(sandboxMark))
{}

DeviceAccess::~DeviceAccess() = default;

void DeviceAccess::request(std::function<void(bool isGranted)> onAnswer)
{
    const QString name = QString::fromLatin1("nimbrale_%1_%2").arg(nameOf(kind_)).arg(++count_);
    Question& question = open_[name];
    question.onAnswer = std::move(onAnswer);
    if (hasPortal())
        askPortal(name, question);
    else
        answerLater(name, true);
}

FileDescriptor DeviceAccess::openCameras() const
{
    if (!hasPortal())
        return {};
    QDBusMessage call = callOf("org.freedesktop.portal.Camera", "OpenPipeWireRemote");
    call << QVariantMap();
    const QDBusMessage answer = bus_.call(call, QDBus::Block, static_cast<int>(longestOpening.count()));
    if (answer.type() == QDBusMessage::ErrorMessage)
        qCDebug(sessionLog, "The portal opens no cameras: %s", qPrintable(answer.errorMessage()));
    const auto descriptor = answer.arguments().value(0).value<QDBusUnixFileDescriptor>();
    // The answer closes its own.
    return FileDescriptor(descriptor.isValid() ? fcntl(descriptor.fileDescriptor(), F_DUPFD_CLOEXEC, 0) : -1);
}

bool DeviceAccess::hasPortal() const
{
    std::error_code ignored;
    return std::filesystem::exists(sandboxMark_, ignored) && bus_.isConnected();
}

QDBusMessage DeviceAccess::questionToPortal(const QString& name) const
{
    const QVariantMap options{{QLatin1String("handle_token"), name}};
    if (kind_ == DeviceKind::camera) {
        QDBusMessage call = callOf("org.freedesktop.portal.Camera", "AccessCamera");
        call << options;
        return call;
    }
    QDBusMessage call = callOf("org.freedesktop.portal.Device", "AccessDevice");
    call << static_cast<uint>(getpid()) << QStringList{nameOf(kind_)} << options;
    return call;
}

void DeviceAccess::askPortal(const QString& name, Question& question)
{
    const BusSignal::Match match{QLatin1String(portal), pathOfAnswer(bus_, name),
                                 QLatin1String("org.freedesktop.portal.Request"), QLatin1String("Response")};
    question.response = std::make_unique<BusSignal>(bus_, match, [this, name](const QDBusMessage& message) {
        constexpr unsigned granted = 0;
        bool isNumber = false;
        const unsigned response = message.arguments().value(0).toUInt(&isNumber);
        answerLater(name, isNumber && response == granted);
    });
    callOnBus(*this, bus_, questionToPortal(name), longestStart, [this, name](const QDBusMessage& answer) {
        if (answer.type() != QDBusMessage::ErrorMessage)
            return;
        qCWarning(sessionLog, "The portal does not ask for the %s: %s", qPrintable(nameOf(kind_)),
                  qPrintable(answer.errorMessage()));
        answerLater(name, true);
    });
}

void DeviceAccess::answerLater(const QString& name, bool isGranted)
{
    queue_.post([self = QPointer<DeviceAccess>(this), name, isGranted] {
        // The first answer counts.
        const auto question = self ? self->open_.extract(name) : decltype(self->open_)::node_type();
        if (!question.empty())
            question.mapped().onAnswer(isGranted);
    });
}

} // namespace nimbrale
