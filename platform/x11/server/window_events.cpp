#include "platform/x11/server/window_events.h"

#include <utility>

namespace nimbrale::x11 {

WindowEvents::WindowEvents(Connection& connection, xcb_window_t window, std::uint32_t events)
    : connection_(&connection), window_(window), events_(events)
{
    connection_->addWindowEvents(window_, events_);
}

WindowEvents::~WindowEvents()
{
    end();
}

WindowEvents::WindowEvents(WindowEvents&& other) noexcept
    : connection_(other.connection_), window_(std::exchange(other.window_, XCB_NONE)), events_(other.events_)
{}

WindowEvents& WindowEvents::operator=(WindowEvents&& other) noexcept
{
    if (this != &other) {
        end();
        connection_ = other.connection_;
        window_ = std::exchange(other.window_, XCB_NONE);
        events_ = other.events_;
    }
    return *this;
}

void WindowEvents::end()
{
    if (window_ != XCB_NONE)
        connection_->removeWindowEvents(std::exchange(window_, XCB_NONE), events_);
}

} // namespace nimbrale::x11
