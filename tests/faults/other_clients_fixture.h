#pragma once

#include "tests/support/application.h"
#include "tests/support/image_compare.h"
#include "tests/support/requirements.h"
#include "tests/support/scene.h"
#include "tests/support/x_reply.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::test {

inline constexpr QRect region(100, 100, 400, 300);
inline const QColor frameYellow(255, 214, 10);

/// The real application, sharing part of a window, among other clients that do something to it.
class OtherClientsTest : public testing::Test {
protected:
    void SetUp() override { start({}); }

    void start(const PrivateDesktop::Options& options)
    {
        desktop = requireDesktop(options);
        desktop->setBackground(QColor(30, 60, 90));
        scene = requireScene(*desktop);
        scene->add("content", {.geometry = {60, 60, 520, 420}, .seed = 7});
        desktop->movePointer({1200, 700});
        const std::vector<xcb_window_t> before = topLevels();
        application = requireApplication(*desktop, {.region = region});
        ASSERT_TRUE(application->waitForVirtualDisplay(region.size()));
        ASSERT_TRUE(showsFrameAround(region));
        ASSERT_TRUE(showsWhatIsFramed(region)) << keepImage(desktop->screenshot(), "desktop");
        for (const xcb_window_t window : topLevels()) {
            if (std::find(before.begin(), before.end(), window) == before.end())
                ownWindows.push_back(window);
        }
    }

    /// The root's children, bottom to top.
    [[nodiscard]] std::vector<xcb_window_t> topLevels() const
    {
        xcb_connection_t* const raw = desktop->connection();
        const Reply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(raw, xcb_query_tree(raw, desktop->screen().root), nullptr));
        const xcb_window_t* const children = xcb_query_tree_children(tree.get());
        return {children, children + xcb_query_tree_children_length(tree.get())};
    }

    [[nodiscard]] QRect areaOf(xcb_window_t window) const
    {
        xcb_connection_t* const raw = desktop->connection();
        const Reply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(raw, xcb_get_geometry(raw, window), nullptr));
        return geometry ? QRect(geometry->x, geometry->y, geometry->width, geometry->height) : QRect();
    }

    /// The topmost of the application's windows with that size.
    [[nodiscard]] xcb_window_t ownWindowOf(QSize size) const
    {
        for (auto window = ownWindows.rbegin(); window != ownWindows.rend(); ++window) {
            if (areaOf(*window).size() == size)
                return *window;
        }
        return XCB_NONE;
    }
    [[nodiscard]] xcb_window_t frameWindow() const
    {
        constexpr int margin = 24;
        return ownWindowOf(region.size() + QSize(2 * margin, 2 * margin));
    }

    [[nodiscard]] QRect sharedPlace() const
    {
        const auto monitor = desktop->monitorNamed("Nimbrale");
        return monitor ? monitor->geometry : QRect();
    }

    /// By the border just left of the region.
    [[nodiscard]] bool showsFrameAround(const QRect& framed, Milliseconds timeout = Milliseconds{5000}) const
    {
        return desktop->waitForPixel(framed.x() - 2, framed.y() + framed.height() / 2, frameYellow, timeout);
    }

    /// The share, without the rim into which the frame's controls reach.
    [[nodiscard]] bool isFramedPictureShared(const QRect& framed) const
    {
        constexpr int controlRoom = 20;
        const QRect inside(controlRoom, controlRoom, framed.width() - 2 * controlRoom,
                           framed.height() - 2 * controlRoom);
        return desktop->screenshot(sharedPlace()).copy(inside) == desktop->screenshot(framed).copy(inside);
    }

    /// The pointer must be elsewhere: it is in no screenshot, but in the share.
    [[nodiscard]] bool showsWhatIsFramed(const QRect& framed) const
    {
        return waitUntil([&] { return isFramedPictureShared(framed); }, Milliseconds{3000});
    }

    /// Picture, frame and drags, then an orderly end.
    void expectEverythingWorks()
    {
        ASSERT_TRUE(application->process().isRunning()) << application->process().output();
        EXPECT_TRUE(showsFrameAround(region)) << keepImage(desktop->screenshot(), "desktop");
        scene->repaint("content", 8);
        EXPECT_TRUE(showsWhatIsFramed(region)) << keepImage(desktop->screenshot(), "desktop");
        EXPECT_EQ(application->storedRegion(), region);

        const QPoint handle = Application::handleOf(region);
        desktop->drag(handle, handle + QPoint(60, 40));
        desktop->movePointer({1200, 700});
        const QRect moved = region.translated(60, 40);
        EXPECT_TRUE(waitUntil([&] { return application->storedRegion() == moved; }, Milliseconds{3000}));
        EXPECT_TRUE(showsFrameAround(moved)) << keepImage(desktop->screenshot(), "desktop");
        scene->repaint("content", 9);
        EXPECT_TRUE(showsWhatIsFramed(moved)) << keepImage(desktop->screenshot(), "desktop");
        EXPECT_EQ(application->quit(), 0) << application->process().output();
    }

    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<Scene> scene;
    std::unique_ptr<Application> application;
    std::vector<xcb_window_t> ownWindows;
};

} // namespace nimbrale::test
