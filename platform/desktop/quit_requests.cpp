#include "platform/desktop/quit_requests.h"

#include <QEvent>
#include <QEventLoop>
#include <QGuiApplication>
#include <QSessionManager>

#include <memory>
#include <optional>
#include <utility>

namespace nimbrale {

QuitRequests::QuitRequests(Termination& termination, std::function<void()> onQuit)
    : termination_(termination), onQuit_(std::move(onQuit))
{
    QCoreApplication::instance()->installEventFilter(this);
    connect(qGuiApp, &QGuiApplication::commitDataRequest, this,
            [this](QSessionManager& session) { prepareForSessionEnd(session); });
}

QuitRequests::~QuitRequests() = default;

bool QuitRequests::eventFilter(QObject* watched, QEvent* event)
{
    if (watched != QCoreApplication::instance() || event->type() != QEvent::Quit)
        return QObject::eventFilter(watched, event);
    onQuit_();
    return true;
}

// The session waits for as long as this takes. It may still decide to go on, so that nothing ends here: it tells its
// programs to quit when all have answered.
void QuitRequests::prepareForSessionEnd(QSessionManager& session)
{
    struct Waiting {
        std::optional<bool> isGranted;
        QEventLoop loop;
    };
    // The answer may come after this object, when the application ends meanwhile.
    const auto waiting = std::make_shared<Waiting>();
    termination_.ask([waiting](bool isGranted) {
        waiting->isGranted = isGranted;
        waiting->loop.quit();
    });
    if (!waiting->isGranted)
        waiting->loop.exec();
    if (waiting->isGranted == false)
        session.cancel();
}

} // namespace nimbrale
