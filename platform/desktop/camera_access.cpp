#include "platform/desktop/camera_access.h"

#include "platform/desktop/bus_question.h"
#include "platform/desktop/bus_signal.h"
#include "platform/log.h"
#include "platform/main_queue.h"

#include <QDBusMessage>
#include <QPointer>
#include <QVariantMap>

#include <chrono>
#include <filesystem>
#include <memory>
#include <utility>

namespace nimbrale {

namespace {

constexpr const char* portal = "org.freedesktop.portal.Desktop";
constexpr const char* portalPath = "/org/freedesktop/portal/desktop";
/// The portal answers at once that it asks; how long the user takes does not matter here.
constexpr std::chrono::seconds longestStart{25};

/// Where the portal answers a question of this name; known beforehand, so that no answer can come too early.
QString pathOfAnswer(const QDBusConnection& bus, const QString& name)
{
    QString sender = bus.baseService().mid(1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    return QString::fromLatin1("%1/request/%2/%3").arg(QLatin1String(portalPath), sender, name);
}

} // namespace

CameraAccess::CameraAccess(QDBusConnection bus, MainQueue& queue, std::string sandboxMark)
    : bus_(std::move(bus)), queue_(queue), sandboxMark_(std::move(sandboxMark))
{}

CameraAccess::~CameraAccess() = default;

void CameraAccess::request(std::function<void(bool isGranted)> onAnswer)
{
    const QString name = QString::fromLatin1("nimbrale_camera_%1").arg(++count_);
    Question& question = open_[name];
    question.onAnswer = std::move(onAnswer);
    std::error_code ignored;
    if (std::filesystem::exists(sandboxMark_, ignored) && bus_.isConnected())
        askPortal(name, question);
    else
        answerLater(name, true);
}

void CameraAccess::askPortal(const QString& name, Question& question)
{
    const BusSignal::Match match{QLatin1String(portal), pathOfAnswer(bus_, name),
                                 QLatin1String("org.freedesktop.portal.Request"), QLatin1String("Response")};
    question.response = std::make_unique<BusSignal>(bus_, match, [this, name](const QDBusMessage& message) {
        constexpr unsigned granted = 0;
        bool isNumber = false;
        const unsigned response = message.arguments().value(0).toUInt(&isNumber);
        answerLater(name, isNumber && response == granted);
    });
    QDBusMessage call =
        QDBusMessage::createMethodCall(QLatin1String(portal), QLatin1String(portalPath),
                                       QLatin1String("org.freedesktop.portal.Camera"), QLatin1String("AccessCamera"));
    call << QVariantMap{{QLatin1String("handle_token"), name}};
    callOnBus(*this, bus_, call, longestStart, [this, name](const QDBusMessage& answer) {
        if (answer.type() != QDBusMessage::ErrorMessage)
            return;
        qCWarning(webcamLog, "The camera portal does not ask: %s", qPrintable(answer.errorMessage()));
        answerLater(name, true);
    });
}

void CameraAccess::answerLater(const QString& name, bool isGranted)
{
    queue_.post([self = QPointer<CameraAccess>(this), name, isGranted] {
        // The first answer counts.
        const auto question = self ? self->open_.extract(name) : decltype(self->open_)::node_type();
        if (!question.empty())
            question.mapped().onAnswer(isGranted);
    });
}

} // namespace nimbrale
