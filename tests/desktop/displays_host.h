#pragma once

#include "platform/desktop/qt_main_queue.h"
#include "platform/x11/displays/x11_screens.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/virtual_display/x11_virtual_displays.h"
#include "tests/fakes/offscreen_application.h"
#include "tests/support/event_loop.h"
#include "tests/support/requirements.h"

#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>

namespace nimbrale::test {

/// The displays' backend, hosted by the test process on a private desktop.
class DisplaysHost {
public:
    explicit DisplaysHost(const PrivateDesktop& desktop) : DisplaysHost(startToolkit(), desktop.displayName()) {}

    /// For a process that has no private desktop of its own.
    explicit DisplaysHost(const std::string& displayName) : DisplaysHost(startToolkit(), displayName) {}

    [[nodiscard]] static VirtualDisplayDescriptor descriptor()
    {
        return {"Nimbrale", 7680, 4320, {600, 340}, 21328, 21328, 1};
    }

    [[nodiscard]] static VirtualDisplaySettings settings(int width, int height)
    {
        return {false, {{width, height, 60}}};
    }

    /// Runs the event loop until the condition holds; false on a timeout.
    template <typename Condition>
    [[nodiscard]] static bool pumpUntil(Condition condition, Milliseconds timeout = Milliseconds{5000})
    {
        return runUntil(condition, timeout);
    }

    static void pumpFor(Milliseconds duration)
    {
        static_cast<void>(pumpUntil([] { return false; }, duration));
    }

    // Before the connection, so that it goes last.
    QtMainQueue mainQueue;
    std::unique_ptr<x11::Connection> connection;
    std::unique_ptr<x11::EventDispatcher> events;
    std::unique_ptr<x11::X11Screens> screens;
    std::unique_ptr<x11::X11VirtualDisplays> virtualDisplays;

private:
    DisplaysHost(QCoreApplication*, const std::string& displayName)
    {
        auto connected = x11::Connection::open(displayName);
        if (!connected)
            throw std::runtime_error(connected.error().message);
        connection = std::move(*connected);
        events = std::make_unique<x11::EventDispatcher>(*connection, [] {});
        screens = std::make_unique<x11::X11Screens>(*connection, *events);
        virtualDisplays =
            std::make_unique<x11::X11VirtualDisplays>(*connection, *events, *screens, mainQueue, displayName);
    }

    // The toolkit paints the card's text, on no display of its own.
    static QCoreApplication* startToolkit()
    {
        startOffscreenApplication();
        return QCoreApplication::instance();
    }
};

/// Displays on a private desktop.
class DisplaysTest : public testing::Test {
protected:
    void start(const PrivateDesktop::Options& options)
    {
        desktop_ = requireDesktop(options);
        host_ = std::make_unique<DisplaysHost>(*desktop_);
    }

    std::unique_ptr<PrivateDesktop> desktop_;
    std::unique_ptr<DisplaysHost> host_;
};

} // namespace nimbrale::test
