#include "platform/x11/server/sent_event_filter.h"

#include "platform/x11/server/events.h"

#include <QByteArray>
#include <QCoreApplication>

namespace nimbrale::x11 {

SentEventFilter::SentEventFilter()
{
    QCoreApplication::instance()->installNativeEventFilter(this);
}

SentEventFilter::~SentEventFilter()
{
    if (QCoreApplication* const application = QCoreApplication::instance())
        application->removeNativeEventFilter(this);
}

bool SentEventFilter::nativeEventFilter(const QByteArray& kind, void* message, qintptr*)
{
    if (kind != "xcb_generic_event_t")
        return false;
    const auto& event = *static_cast<const xcb_generic_event_t*>(message);
    if (!isSentByClient(event))
        return false;
    switch (eventType(event)) {
    case XCB_CLIENT_MESSAGE:
    case XCB_SELECTION_CLEAR:
    case XCB_SELECTION_REQUEST:
    case XCB_SELECTION_NOTIFY:
    case XCB_CONFIGURE_NOTIFY:
        return false;
    default:
        return true;
    }
}

} // namespace nimbrale::x11
