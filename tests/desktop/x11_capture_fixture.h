#pragma once

#include "tests/desktop/captured_desktop.h"
#include "tests/fakes/offscreen_application.h"
#include "tests/support/image_compare.h"
#include "tests/support/requirements.h"
#include "tests/support/scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace nimbrale::test {

using Options = PrivateDesktop::Options;

/// The X11 capture on a private desktop with windows to capture.
class X11CaptureTest : public testing::Test {
protected:
    X11CaptureTest() { startOffscreenApplication(); }

    void startDesktop(const Options& options)
    {
        desktop = requireDesktop(options);
        desktop->setBackground(QColor(30, 60, 90));
        scene = requireScene(*desktop);
        captured = std::make_unique<CapturedDesktop>(*desktop);
    }

    void TearDown() override
    {
        captured.reset();
        scene.reset();
        desktop.reset();
    }

    /// An own window: made by this process, filled with one color.
    xcb_window_t makeOwnWindow(const QRect& area, bool isOverrideRedirect = true)
    {
        x11::Connection& connection = captured->connection();
        const xcb_window_t window = connection.newId();
        const std::uint32_t values[] = {0xff00ff, isOverrideRedirect};
        xcb_create_window(connection.get(), XCB_COPY_FROM_PARENT, window, connection.root(), std::int16_t(area.x()),
                          std::int16_t(area.y()), std::uint16_t(area.width()), std::uint16_t(area.height()), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        // A window manager keeps a position that the user is said to have chosen.
        const std::uint32_t sizeHints[18] = {1, std::uint32_t(area.x()), std::uint32_t(area.y())};
        xcb_change_property(connection.get(), XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NORMAL_HINTS,
                            XCB_ATOM_WM_SIZE_HINTS, 32, 18, sizeHints);
        xcb_map_window(connection.get(), window);
        connection.synchronize();
        return window;
    }

    /// What the desktop shows of the region now, which must hold no own window.
    void expectSameAsScreen(const QRect& region)
    {
        captured->settle();
        EXPECT_TRUE(imagesMatch(captured->image(), desktop->screenshot(region)));
    }

    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<Scene> scene;
    std::unique_ptr<CapturedDesktop> captured;
};

} // namespace nimbrale::test
