#pragma once

#include "platform/x11/server/handles.h"
#include "platform/x11/virtual_display/x11_virtual_displays.h"
#include "tests/desktop/displays_host.h"
#include "tests/support/scene.h"

#include <array>
#include <gtest/gtest.h>
#include <xcb/randr.h>

namespace nimbrale::test {

/// A virtual display, hosted by the test process on a private desktop.
class VirtualDisplayTest : public DisplaysTest {
protected:
    void startOnOpenbox()
    {
        start({.width = 1280, .height = 720, .windowManager = PrivateDesktop::WindowManager::openbox});
    }

    /// Windows of another program that are loud where it is not ours, also where the virtual display will be.
    [[nodiscard]] std::unique_ptr<Scene> makeLoud()
    {
        desktop_->setBackground(Qt::red);
        auto scene = requireScene(*desktop_);
        scene->add("beyond", {.geometry = {1200, 650, 900, 700}, .seed = 0, .color = Qt::magenta});
        return scene;
    }

    [[nodiscard]] std::unique_ptr<VirtualDisplayDevice> make()
    {
        auto made = host_->virtualDisplays->create(DisplaysHost::descriptor());
        if (!made) {
            ADD_FAILURE() << made.error().message;
            return nullptr;
        }
        (*made)->onUnusable = [this](const Error& error) { unusable_ = error.message; };
        return std::move(*made);
    }

    [[nodiscard]] std::unique_ptr<VirtualDisplayDevice> make(int width, int height)
    {
        auto device = make();
        if (!device)
            return nullptr;
        const auto applied = device->applySettings(DisplaysHost::settings(width, height));
        EXPECT_TRUE(applied) << applied.error().message;
        return device;
    }

    [[nodiscard]] QRect ours() const
    {
        const auto monitor = desktop_->monitorNamed("Nimbrale");
        return monitor ? monitor->geometry : QRect();
    }

    [[nodiscard]] bool isWhole(const QRect& place) const
    {
        const QSize size = desktop_->screenSize();
        return ours() == place && size.width() == place.x() + place.width() &&
               size.height() == place.y() + place.height();
    }

    [[nodiscard]] xcb_randr_output_t primary() const
    {
        xcb_connection_t* const connection = desktop_->connection();
        const x11::Reply<xcb_randr_get_output_primary_reply_t> reply(xcb_randr_get_output_primary_reply(
            connection, xcb_randr_get_output_primary(connection, desktop_->screen().root), nullptr));
        return reply ? reply->output : 0;
    }

    /// A window of this process as the shared screen's is one. What it shows stands in a child that no resize outgrows,
    /// since its own background is the area's to choose.
    xcb_window_t showWindow(const PixelRect& place, std::uint32_t color)
    {
        const xcb_window_t window = createWindow(host_->connection->root(), place, 0);
        const xcb_window_t content = createWindow(window, {0, 0, 4000, 4000}, color);
        host_->virtualDisplays->area().add(window);
        xcb_map_window(host_->connection->get(), content);
        xcb_map_window(host_->connection->get(), window);
        host_->connection->flush();
        return window;
    }

    [[nodiscard]] bool isVerified() { return host_->virtualDisplays->area().isVerified(); }

    [[nodiscard]] bool shows(const QPoint& place, const QColor& color)
    {
        return DisplaysHost::pumpUntil([&] { return desktop_->pixel(place.x(), place.y()) == color; });
    }

    xcb_window_t createWindow(xcb_window_t parent, const PixelRect& place, std::uint32_t color)
    {
        const xcb_window_t window = host_->connection->newId();
        const std::array<std::uint32_t, 2> values = {color, 1};
        xcb_create_window(host_->connection->get(), XCB_COPY_FROM_PARENT, window, parent,
                          static_cast<std::int16_t>(place.x), static_cast<std::int16_t>(place.y),
                          static_cast<std::uint16_t>(place.width), static_cast<std::uint16_t>(place.height), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values.data());
        return window;
    }

    std::string unusable_;
};

} // namespace nimbrale::test
