#pragma once

#include "platform/desktop/qt_main_queue.h"
#include "platform/x11/displays/x11_screens.h"
#include "platform/x11/panels/x11_panels.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/server/handles.h"
#include "platform/x11/surfaces/x11_surface.h"
#include "tests/support/requirements.h"

#include <QCoreApplication>
#include <QImage>
#include <QPainter>

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale::test {

/// The X11 panels, hosted by the test process on a private desktop.
class PanelHost {
public:
    /// `painted` is what a capture is told that the panels paint.
    explicit PanelHost(const PrivateDesktop& desktop,
                       std::shared_ptr<x11::PaintedRegions> painted = std::make_shared<x11::PaintedRegions>())
        : PanelHost(desktop.displayName(), std::move(painted))
    {}
    explicit PanelHost(const std::string& displayName,
                       std::shared_ptr<x11::PaintedRegions> painted = std::make_shared<x11::PaintedRegions>())
    {
        connection = std::move(*x11::Connection::open(displayName));
        events = std::make_unique<x11::EventDispatcher>(*connection, [] {});
        screens = std::make_unique<x11::X11Screens>(*connection, *events);
        panels = std::make_unique<x11::X11Panels>(*connection, *events, *screens, mainQueue, std::move(painted));
    }

    /// A rectangle in points with its origin at the screen's top-left as screen coordinates.
    [[nodiscard]] Rect onScreen(const Rect& fromTop) const
    {
        const double height = screens->screens().front().frame.height;
        return {fromTop.x, height - fromTop.y - fromTop.height, fromTop.width, fromTop.height};
    }

    [[nodiscard]] std::unique_ptr<Panel> makePanel(const Rect& fromTop, PanelStyle style = PanelStyle::overlay,
                                                   int level = panel_level::frame, const std::string& title = "Panel")
    {
        PanelOptions options;
        options.style = style;
        options.frame = onScreen(fromTop);
        options.level = level;
        options.title = title;
        return panels->create(options);
    }

    void pump()
    {
        QCoreApplication::processEvents();
        events->dispatch();
        QCoreApplication::processEvents();
        connection->synchronize();
    }

    template <typename Condition>
    [[nodiscard]] bool pumpUntil(Condition condition, Milliseconds timeout = Milliseconds{3000})
    {
        return waitUntil(
            [&] {
                pump();
                return condition();
            },
            timeout, Milliseconds{2});
    }

    void pumpFor(Milliseconds duration)
    {
        static_cast<void>(pumpUntil([] { return false; }, duration));
    }

    /// The panels' windows that are children of the root, topmost first.
    [[nodiscard]] std::vector<xcb_window_t> ownWindowsInOrder()
    {
        xcb_connection_t* const raw = connection->get();
        const std::uint32_t mask = xcb_get_setup(raw)->resource_id_mask;
        const std::uint32_t base = xcb_get_setup(raw)->resource_id_base;
        const x11::Reply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(raw, xcb_query_tree(raw, connection->root()), nullptr));
        const xcb_window_t* const children = xcb_query_tree_children(tree.get());
        std::vector<xcb_window_t> own;
        for (int index = xcb_query_tree_children_length(tree.get()) - 1; index >= 0; --index) {
            const x11::Reply<xcb_get_window_attributes_reply_t> attributes(
                xcb_get_window_attributes_reply(raw, xcb_get_window_attributes(raw, children[index]), nullptr));
            if ((children[index] & ~mask) == base && attributes && attributes->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT)
                own.push_back(children[index]);
        }
        return own;
    }

    /// A pixmap of the root's depth that shows the image.
    [[nodiscard]] std::shared_ptr<x11::SharedPixmap> makePixmap(const QImage& image)
    {
        const xcb_pixmap_t pixmap = connection->newId();
        xcb_create_pixmap(connection->get(), connection->screen().root_depth, pixmap, connection->root(),
                          std::uint16_t(image.width()), std::uint16_t(image.height()));
        paintPixmap(pixmap, image);
        return std::make_shared<x11::SharedPixmap>(
            pixmap, image.width(), image.height(),
            [raw = connection->get()](xcb_pixmap_t unused) { xcb_free_pixmap(raw, unused); });
    }

    /// Pixel by pixel through RENDER, so that it works at every depth.
    void paintPixmap(xcb_pixmap_t pixmap, const QImage& image)
    {
        const xcb_render_picture_t picture = connection->newId();
        xcb_render_create_picture(connection->get(), picture, pixmap, connection->rootFormat(), 0, nullptr);
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const QColor color = image.pixelColor(x, y);
                const auto channel = [](int value) { return std::uint16_t(value * 257); };
                const xcb_rectangle_t rectangle{std::int16_t(x), std::int16_t(y), 1, 1};
                xcb_render_fill_rectangles(
                    connection->get(), XCB_RENDER_PICT_OP_SRC, picture,
                    {channel(color.red()), channel(color.green()), channel(color.blue()), 0xffff}, 1, &rectangle);
            }
        }
        xcb_render_free_picture(connection->get(), picture);
    }

    QtMainQueue mainQueue;
    std::unique_ptr<x11::Connection> connection;
    std::unique_ptr<x11::EventDispatcher> events;
    std::unique_ptr<x11::X11Screens> screens;
    std::unique_ptr<x11::X11Panels> panels;
};

/// A desktop with panels for each test.
class PanelTest : public testing::Test {
protected:
    static inline const QColor background{30, 60, 90};

    void startDesktop(const PrivateDesktop::Options& options)
    {
        desktop = requireDesktop(options);
        desktop->setBackground(background);
        desktop->adoptEnvironment();
        static int argumentCount = 1;
        static char name[] = "test";
        static char* arguments[] = {name, nullptr};
        application = std::make_unique<QCoreApplication>(argumentCount, arguments);
        host = std::make_unique<PanelHost>(*desktop);
    }

    void TearDown() override
    {
        host.reset();
        application.reset();
        desktop.reset();
    }

    [[nodiscard]] QImage pictureOf(const QRect& area)
    {
        host->pump();
        return desktop->screenshot(area);
    }

    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<QCoreApplication> application;
    std::unique_ptr<PanelHost> host;
};

/// Paints rectangles of one color each into a panel and covers just those.
struct PaintedRects {
    std::vector<std::pair<Rect, QColor>> rects;

    void applyTo(Layer& layer) const
    {
        std::vector<Rect> coverage;
        for (const auto& [rect, color] : rects)
            coverage.push_back(rect);
        layer.setCoverage(coverage);
        layer.setPainter([rects = rects](QPainter& painter, const Rect&) {
            for (const auto& [rect, color] : rects)
                painter.fillRect(QRectF(rect.x, rect.y, rect.width, rect.height), color);
        });
    }

    /// What is to be seen over one color, each point `scale` pixels.
    [[nodiscard]] QImage over(const QColor& below, QSize size, int scale, bool isBlended) const
    {
        QImage image(size * scale, QImage::Format_RGB32);
        image.fill(below);
        QPainter painter(&image);
        painter.scale(scale, scale);
        for (const auto& [rect, color] : rects) {
            QColor shown = color;
            if (!isBlended)
                shown.setAlpha(color.alpha() >= 128 ? 255 : 0);
            painter.fillRect(QRectF(rect.x, rect.y, rect.width, rect.height), shown);
        }
        return image;
    }
};

} // namespace nimbrale::test
