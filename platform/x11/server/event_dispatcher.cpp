#include "platform/x11/server/event_dispatcher.h"

#include "platform/x11/server/handles.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QSocketNotifier>

namespace nimbrale::x11 {

struct EventDispatcher::Impl {
    Connection& connection;
    std::function<void()> onLost;
    EventRoutes routes;
    std::unique_ptr<QSocketNotifier> notifier;
    QMetaObject::Connection beforeSleep;
};

EventDispatcher::EventDispatcher(Connection& connection, std::function<void()> onLost)
    : impl_(new Impl{connection, std::move(onLost), {}, nullptr, {}})
{
    impl_->notifier =
        std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(connection.get()), QSocketNotifier::Read);
    QObject::connect(impl_->notifier.get(), &QSocketNotifier::activated, [this] { dispatch(); });
    // A reply read in between may have queued events that no socket activity announces, and requests may still lie in
    // the output buffer: both must not wait for the next wake-up.
    impl_->beforeSleep = QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock,
                                          impl_->notifier.get(), [this] { dispatch(); });
}

EventDispatcher::~EventDispatcher()
{
    QObject::disconnect(impl_->beforeSleep);
}

Subscription EventDispatcher::add(std::initializer_list<int> types, Handler handler, SentEvents sent)
{
    return impl_->routes.add(types, std::move(handler), sent);
}

void EventDispatcher::dispatch()
{
    xcb_connection_t* const raw = impl_->connection.get();
    Reply<xcb_generic_event_t> event(xcb_poll_for_event(raw));
    do {
        for (; event; event.reset(xcb_poll_for_event(raw)))
            impl_->routes.deliver(*event);
        impl_->connection.flush();
        // Sending takes in what has arrived meanwhile, and the socket does not announce it again.
        event.reset(xcb_poll_for_queued_event(raw));
    } while (event);
    if (impl_->connection.isLost() && impl_->notifier->isEnabled()) {
        impl_->notifier->setEnabled(false);
        if (impl_->onLost)
            impl_->onLost();
    }
}

} // namespace nimbrale::x11
