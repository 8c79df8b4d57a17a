#pragma once

#include "platform/x11/server/connection.h"
#include "tests/support/private_desktop.h"

#include <memory>
#include <utility>
#include <vector>

namespace nimbrale::test {

/// Windows that are never shown, of a connection of their own.
class Crowd {
public:
    explicit Crowd(const PrivateDesktop& desktop)
        : connection_(std::move(*x11::Connection::open(desktop.displayName())))
    {}

    void add(int count)
    {
        for (int index = 0; index < count; ++index) {
            windows_.push_back(connection_->newId());
            xcb_create_window(connection_->get(), XCB_COPY_FROM_PARENT, windows_.back(), connection_->root(),
                              std::int16_t(index % 800), 100, 50, 50, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                              XCB_COPY_FROM_PARENT, 0, nullptr);
        }
        connection_->synchronize();
    }
    void clear()
    {
        for (const xcb_window_t window : windows_)
            xcb_destroy_window(connection_->get(), window);
        windows_.clear();
        connection_->synchronize();
    }

private:
    std::unique_ptr<x11::Connection> connection_;
    std::vector<xcb_window_t> windows_;
};

} // namespace nimbrale::test
