#pragma once

#include "tests/desktop/panel_host.h"
#include "tests/support/scene.h"

#include <cstring>
#include <string>
#include <vector>

namespace nimbrale::test {

inline const QColor yellow{255, 214, 10};
inline const Rect panelPlace{100, 80, 300, 200};
inline const QRect panelArea{100, 80, 300, 200};

/// A frame with translucent corners, above and below the half.
inline const PaintedRects frameWithCorners{{{{20, 20, 260, 5}, yellow},
                                            {{20, 175, 260, 5}, yellow},
                                            {{20, 25, 5, 150}, yellow},
                                            {{275, 25, 5, 150}, yellow},
                                            {{4, 4, 10, 10}, QColor(200, 40, 80, 191)},
                                            {{286, 4, 10, 10}, QColor(200, 40, 80, 64)}}};

/// Panels among the windows of another program.
class X11PanelTest : public PanelTest {
protected:
    void TearDown() override
    {
        scene.reset();
        PanelTest::TearDown();
    }

    void startScene(const PrivateDesktop::Options& options)
    {
        startDesktop(options);
        scene = requireScene(*desktop);
    }

    [[nodiscard]] std::unique_ptr<Panel> showFrame(const Rect& place = panelPlace)
    {
        auto panel = host->makePanel(place);
        panel->setMouseRegion({{0, 0, place.width, place.height}});
        frameWithCorners.applyTo(panel->rootLayer());
        panel->orderFront();
        host->pump();
        return panel;
    }

    [[nodiscard]] xcb_window_t focus()
    {
        xcb_connection_t* const raw = desktop->connection();
        const x11::Reply<xcb_get_input_focus_reply_t> reply(
            xcb_get_input_focus_reply(raw, xcb_get_input_focus(raw), nullptr));
        return reply->focus;
    }

    [[nodiscard]] std::string property(xcb_window_t window, const std::string& name, const std::string& type)
    {
        xcb_connection_t* const raw = host->connection->get();
        const x11::Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
            raw, xcb_get_property(raw, 0, window, host->connection->atom(name), host->connection->atom(type), 0, 1000),
            nullptr));
        return {static_cast<const char*>(xcb_get_property_value(reply.get())),
                std::size_t(xcb_get_property_value_length(reply.get()))};
    }

    [[nodiscard]] std::vector<std::uint32_t> words(xcb_window_t window, const std::string& name,
                                                   const std::string& type)
    {
        const std::string bytes = property(window, name, type);
        std::vector<std::uint32_t> values(bytes.size() / 4);
        if (!values.empty()) // Nothing has no place to copy to.
            std::memcpy(values.data(), bytes.data(), values.size() * 4);
        return values;
    }

    /// Compositing managers take a plain color of the root for no background at all.
    void addBackdrop(int height = 720)
    {
        scene->add("backdrop", {.geometry = {0, 0, 1280, height}, .seed = 0, .color = background});
    }

    /// Among the windows that the window manager manages.
    [[nodiscard]] xcb_window_t clientWithTitle(const std::string& title)
    {
        for (const xcb_window_t client : words(host->connection->root(), "_NET_CLIENT_LIST", "WINDOW")) {
            if (property(client, "WM_NAME", "UTF8_STRING") == title)
                return client;
        }
        return XCB_NONE;
    }

    [[nodiscard]] QRect areaOf(xcb_window_t window)
    {
        xcb_connection_t* const raw = host->connection->get();
        const x11::Reply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(raw, xcb_get_geometry(raw, window), nullptr));
        const x11::Reply<xcb_translate_coordinates_reply_t> place(xcb_translate_coordinates_reply(
            raw, xcb_translate_coordinates(raw, window, host->connection->root(), 0, 0), nullptr));
        return {place->dst_x, place->dst_y, geometry->width, geometry->height};
    }

    std::unique_ptr<Scene> scene;
};

} // namespace nimbrale::test
