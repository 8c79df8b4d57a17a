#include "platform/desktop/bus_signal.h"

#include <utility>

namespace nimbrale {

BusSignal::BusSignal(QDBusConnection bus, Match match, Handler handler)
    : bus_(std::move(bus)), match_(std::move(match)), handler_(std::move(handler))
{
    bus_.connect(match_.service, match_.path, match_.interface, match_.member, this, SLOT(receive(QDBusMessage)));
}

BusSignal::~BusSignal()
{
    bus_.disconnect(match_.service, match_.path, match_.interface, match_.member, this, SLOT(receive(QDBusMessage)));
}

void BusSignal::receive(const QDBusMessage& message)
{
    handler_(message);
}

} // namespace nimbrale
