#include "benchmarks/sharer.h"

#include "benchmarks/desktop.h"
#include "benchmarks/measure.h"
#include "tests/support/x_reply.h"

#include <filesystem>
#include <fstream>
#include <xcb/xcb.h>

namespace nimbrale::benchmarks {

using test::Milliseconds;
using test::Reply;

namespace {

constexpr Milliseconds startPatience{15000};
/// The first tick of a fresh program loads fonts, icons and the like: none of that belongs to the steady cost.
constexpr Milliseconds settlingTime{1200};

} // namespace

Sharer::Sharer(test::PrivateDesktop& desktop, const Order& order)
    : desktop_(desktop), order_(order), display_(desktop.screenSize())
{}

Sharer::~Sharer()
{
    if (process_)
        process_->terminate();
    if (desktop_.screenSize() != display_)
        desktop_.resizeScreen(display_);
}

std::unique_ptr<Sharer> Sharer::launch(test::PrivateDesktop& desktop, const Order& order)
{
    std::unique_ptr<Sharer> sharer(new Sharer(desktop, order));
    switch (order.kind) {
    case SharerKind::application:
        sharer->writeSettings();
        sharer->process_ = desktop.spawn("nimbrale");
        break;
    case SharerKind::copyLoop:
        sharer->startCopyLoop();
        break;
    case SharerKind::screenGrab:
        sharer->startScreenGrab();
        break;
    }
    if (!sharer->process_)
        throw Failure(order.kind == SharerKind::screenGrab ? "ffmpeg is not installed" : "a program was not built");
    return sharer;
}

std::unique_ptr<Sharer> Sharer::start(test::PrivateDesktop& desktop, const Order& order)
{
    std::unique_ptr<Sharer> sharer = launch(desktop, order);
    std::optional<QRect> target;
    const bool isShown = test::waitUntil(
        [&] {
            target = sharer->findTarget();
            return target || !sharer->process().isRunning();
        },
        startPatience);
    if (!isShown || !target)
        throw Failure("the region is not shown: " + sharer->process().output());
    sharer->target_ = *target;
    test::sleepFor(settlingTime);
    return sharer;
}

std::optional<QRect> Sharer::findTarget() const
{
    if (order_.kind == SharerKind::application) {
        const auto monitor = desktop_.monitorNamed("Nimbrale");
        if (!monitor || monitor->geometry.size() != order_.region.size() ||
            windowAt(desktop_, monitor->geometry.center()) == XCB_WINDOW_NONE)
            return std::nullopt;
        return monitor->geometry;
    }
    const QRect place(QPoint(display_.width(), display_.height()), order_.region.size());
    const xcb_window_t window = windowAt(desktop_, place.center());
    if (window == XCB_WINDOW_NONE)
        return std::nullopt;
    const Reply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(desktop_.connection(), xcb_get_geometry(desktop_.connection(), window), nullptr));
    if (!geometry || QRect(geometry->x, geometry->y, geometry->width, geometry->height) != place)
        return std::nullopt;
    return place;
}

std::uint32_t Sharer::window() const
{
    xcb_window_t window = overlayWindowAt(desktop_, target_.center());
    if (window == XCB_WINDOW_NONE)
        window = windowAt(desktop_, target_.center());
    if (window == XCB_WINDOW_NONE)
        throw Failure("the region is no longer shown");
    return window;
}

void Sharer::writeSettings() const
{
    const std::filesystem::path folder = desktop_.configFolder() / "Nimbrale";
    std::filesystem::create_directories(folder);
    // A region is stored relative to one point below the menu bar, and these desktops have none.
    std::ofstream(folder / "Nimbrale.conf")
        << "[General]\nsettingsLeft=" << order_.region.x() << "\nsettingsTop=" << order_.region.y() - 1
        << "\nsettingsWidth=" << order_.region.width() << "\nsettingsHeight=" << order_.region.height()
        << "\nsettingsFramerate=" << order_.framesPerSecond << "\nshowWelcomeAtLaunch=false\n";
}

void Sharer::growScreen()
{
    if (!desktop_.resizeScreen(display_ * 2))
        throw Failure("the X screen cannot grow");
}

void Sharer::startCopyLoop()
{
    growScreen();
    const QRect& region = order_.region;
    process_ = desktop_.spawn("nimbrale_copy_loop",
                              {std::to_string(region.x()), std::to_string(region.y()), std::to_string(region.width()),
                               std::to_string(region.height()), std::to_string(order_.framesPerSecond),
                               std::to_string(display_.width()), std::to_string(display_.height())});
}

void Sharer::startScreenGrab()
{
    growScreen();
    const QRect& region = order_.region;
    const std::string size = std::to_string(region.width()) + "x" + std::to_string(region.height());
    const std::string input =
        desktop_.displayName() + ".0+" + std::to_string(region.x()) + "," + std::to_string(region.y());
    process_ = desktop_.spawn("ffmpeg", {"-nostdin",
                                         "-loglevel",
                                         "error",
                                         "-f",
                                         "x11grab",
                                         "-framerate",
                                         std::to_string(order_.framesPerSecond),
                                         "-video_size",
                                         size,
                                         "-i",
                                         input,
                                         "-f",
                                         "sdl2",
                                         "-window_borderless",
                                         "1",
                                         "-window_x",
                                         std::to_string(display_.width()),
                                         "-window_y",
                                         std::to_string(display_.height()),
                                         "Region"});
}

} // namespace nimbrale::benchmarks
