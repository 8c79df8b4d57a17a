#pragma once

#include "tests/desktop/own_pixel_watch.h"
#include "tests/desktop/x11_capture_fixture.h"

#include <ostream>
#include <vector>

namespace nimbrale::test {

/// A window manager and what composites.
struct Managers {
    using WindowManager = PrivateDesktop::WindowManager;
    using Compositor = PrivateDesktop::Compositor;

    const char* name;
    WindowManager windowManager;
    Compositor compositor;
};

inline void PrintTo(const Managers& managers, std::ostream* stream)
{
    *stream << managers.name;
}

/// A capture of two windows of another program, and panels of this one.
class X11MaskedCaptureTest : public X11CaptureTest, public testing::WithParamInterface<Managers> {
protected:
    static constexpr QRect region{100, 80, 600, 450};
    static constexpr QSize panelSize{120, 90};

    void SetUp() override
    {
        startDesktop({.windowManager = GetParam().windowManager, .compositor = GetParam().compositor});
        if (!captured)
            return;
        ASSERT_EQ(desktop->isComposited(), GetParam().compositor != Managers::Compositor::none);
        scene->add(
            "lower",
            {.geometry = {150, 130, 300, 250}, .seed = 0, .color = QColor(40, 120, 60), .overrideRedirect = false});
        scene->add(
            "upper",
            {.geometry = {320, 220, 300, 220}, .seed = 0, .color = QColor(120, 160, 40), .overrideRedirect = false});
        captured->start({double(region.x()), double(region.y()), double(region.width()), double(region.height())});
        captured->settle();
    }

    /// A window of this process that tells what it paints, as panels do.
    xcb_window_t makePanel(QPoint corner)
    {
        const xcb_window_t window = captured->connection().newId();
        captured->painted().set(window, x11::PixelRegion(0, 0, panelSize.width(), panelSize.height()));
        x11::Connection& connection = captured->connection();
        const std::uint32_t values[] = {ownColor.rgb() & RGB_MASK, 1};
        xcb_create_window(connection.get(), XCB_COPY_FROM_PARENT, window, connection.root(), std::int16_t(corner.x()),
                          std::int16_t(corner.y()), std::uint16_t(panelSize.width()), std::uint16_t(panelSize.height()),
                          0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        const xcb_atom_t dock = connection.atom("_NET_WM_WINDOW_TYPE_DOCK");
        xcb_change_property(connection.get(), XCB_PROP_MODE_REPLACE, window, connection.atom("_NET_WM_WINDOW_TYPE"),
                            XCB_ATOM_ATOM, 32, 1, &dock);
        xcb_map_window(connection.get(), window);
        connection.synchronize();
        EXPECT_TRUE(captured->pumpUntil([&] {
            return ownPixels(desktop->screenshot({corner, panelSize})) == panelSize.width() * panelSize.height();
        })) << "the control: the screen shows the panel";
        panels.push_back(window);
        return window;
    }

    void movePanel(xcb_window_t window, QPoint corner)
    {
        const std::uint32_t place[] = {std::uint32_t(corner.x()), std::uint32_t(corner.y())};
        xcb_configure_window(captured->connection().get(), window, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, place);
        captured->connection().flush();
    }

    /// Some compositing managers show with effects that a window comes or goes.
    void waitUntilStill()
    {
        QImage last;
        int same = 0;
        EXPECT_TRUE(captured->pumpUntil(
            [&] {
                const QImage now = desktop->screenshot(region);
                same = now == last ? same + 1 : 0;
                last = now;
                captured->pumpFor(Milliseconds{50});
                return same == 10;
            },
            10'000));
    }

    std::vector<xcb_window_t> panels;
    OwnPixelWatch watch;
};

inline const auto everyCompositingManager =
    testing::Values(Managers{"Picom", Managers::WindowManager::openbox, Managers::Compositor::picom},
                    Managers{"PicomGlx", Managers::WindowManager::openbox, Managers::Compositor::picomGlx},
                    Managers{"Marco", Managers::WindowManager::marco, Managers::Compositor::windowManagersOwn},
                    Managers{"Xfwm4", Managers::WindowManager::xfwm4, Managers::Compositor::windowManagersOwn},
                    Managers{"Kwin", Managers::WindowManager::kwin, Managers::Compositor::windowManagersOwn},
                    Managers{"Mutter", Managers::WindowManager::mutter, Managers::Compositor::windowManagersOwn});

} // namespace nimbrale::test
