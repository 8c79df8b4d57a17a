#include "benchmarks/desktop.h"

#include "benchmarks/measure.h"

#include <xcb/xcb.h>

namespace nimbrale::benchmarks {

namespace {

using Compositor = test::PrivateDesktop::Compositor;
using WindowManager = test::PrivateDesktop::WindowManager;

/// The window manager that composites by itself, none where a program beside does.
WindowManager windowManagerOf(Compositing compositing)
{
    switch (compositing) {
    case Compositing::byServer:
    case Compositing::byPicom:
        break;
    case Compositing::byMarco:
        return WindowManager::marco;
    case Compositing::byXfwm4:
        return WindowManager::xfwm4;
    case Compositing::byKwin:
        return WindowManager::kwin;
    case Compositing::byMutter:
        return WindowManager::mutter;
    }
    return WindowManager::none;
}

Compositor compositorOf(Compositing compositing)
{
    if (compositing == Compositing::byPicom)
        return Compositor::picom;
    return compositing == Compositing::byServer ? Compositor::none : Compositor::windowManagersOwn;
}

} // namespace

std::string nameOf(Compositing compositing)
{
    switch (compositing) {
    case Compositing::byServer:
        break;
    case Compositing::byPicom:
        return "picom";
    case Compositing::byMarco:
        return "marco";
    case Compositing::byXfwm4:
        return "xfwm4";
    case Compositing::byKwin:
        return "KWin";
    case Compositing::byMutter:
        return "mutter";
    }
    return "no compositing manager";
}

std::unique_ptr<test::PrivateDesktop> startDesktop(const QSize& display, Compositing compositing)
{
    test::PrivateDesktop::Options options;
    // On Xvfb mutter takes the largest mode, which leaves the screen no room to grow.
    options.server =
        compositing == Compositing::byMutter ? test::PrivateDesktop::Server::xvnc : test::PrivateDesktop::Server::xvfb;
    options.width = display.width();
    options.height = display.height();
    options.growableTo = display * 2;
    options.compositor = compositorOf(compositing);
    options.windowManager = windowManagerOf(compositing);
    std::string reason;
    std::unique_ptr<test::PrivateDesktop> desktop = test::PrivateDesktop::start(options, reason);
    if (!desktop)
        throw Failure(reason);
    if (compositing != Compositing::byServer &&
        !test::waitUntil([&] { return desktop->compositorProcess() != 0; }, test::Milliseconds{5000}))
        throw Failure(nameOf(compositing) + " does not composite");
    return desktop;
}

namespace {

std::unique_ptr<test::Process> startAnimation(test::PrivateDesktop& desktop, const std::string& mode, const QRect& area,
                                              int framesPerSecond)
{
    return desktop.spawn("nimbrale_animation",
                         {mode, std::to_string(area.x()), std::to_string(area.y()), std::to_string(area.width()),
                          std::to_string(area.height()), std::to_string(framesPerSecond), "0"});
}

} // namespace

std::unique_ptr<test::Process> startContent(test::PrivateDesktop& desktop, const std::string& mode, const QRect& area,
                                            int framesPerSecond)
{
    const std::uint32_t before = windowAt(desktop, area.center());
    std::unique_ptr<test::Process> content = startAnimation(desktop, mode, area, framesPerSecond);
    const bool isShown = content && test::waitUntil([&] { return windowAt(desktop, area.center()) != before; },
                                                    test::Milliseconds{5000});
    if (!isShown)
        throw Failure("the moving content does not show: " + (content ? content->output() : "it is not installed"));
    return content;
}

std::unique_ptr<test::Process> startPointer(test::PrivateDesktop& desktop, const QRect& area, int movesPerSecond)
{
    const QPoint before = desktop.pointerPosition();
    std::unique_ptr<test::Process> pointer = startAnimation(desktop, "pointer", area, movesPerSecond);
    const bool isMoving =
        pointer && test::waitUntil([&] { return desktop.pointerPosition() != before; }, test::Milliseconds{5000});
    if (!isMoving)
        throw Failure("the pointer does not move: " + (pointer ? pointer->output() : "the mover is not installed"));
    return pointer;
}

} // namespace nimbrale::benchmarks
