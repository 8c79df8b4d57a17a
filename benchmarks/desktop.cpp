#include "benchmarks/desktop.h"

#include "benchmarks/measure.h"
#include "tests/support/x_reply.h"

#include <xcb/xcb.h>

namespace nimbrale::benchmarks {

using test::Reply;

std::unique_ptr<test::PrivateDesktop> startDesktop(const QSize& display)
{
    test::PrivateDesktop::Options options;
    options.server = test::PrivateDesktop::Server::xvfb;
    options.width = display.width();
    options.height = display.height();
    options.growableTo = display * 2;
    std::string reason;
    std::unique_ptr<test::PrivateDesktop> desktop = test::PrivateDesktop::start(options, reason);
    if (!desktop)
        throw Failure(reason);
    return desktop;
}

std::unique_ptr<test::Process> startContent(test::PrivateDesktop& desktop, const std::string& mode, const QRect& area,
                                            int framesPerSecond)
{
    const std::uint32_t before = windowAt(desktop, area.center());
    std::unique_ptr<test::Process> content = desktop.spawn(
        "nimbrale_animation", {mode, std::to_string(area.x()), std::to_string(area.y()), std::to_string(area.width()),
                               std::to_string(area.height()), std::to_string(framesPerSecond), "0"});
    const bool isShown = content && test::waitUntil([&] { return windowAt(desktop, area.center()) != before; },
                                                    test::Milliseconds{5000});
    if (!isShown)
        throw Failure("the moving content does not show: " + (content ? content->output() : "it is not installed"));
    return content;
}

std::uint32_t windowAt(const test::PrivateDesktop& desktop, const QPoint& place)
{
    const xcb_window_t root = desktop.screen().root;
    const Reply<xcb_translate_coordinates_reply_t> reply(xcb_translate_coordinates_reply(
        desktop.connection(),
        xcb_translate_coordinates(desktop.connection(), root, root, static_cast<std::int16_t>(place.x()),
                                  static_cast<std::int16_t>(place.y())),
        nullptr));
    return reply ? reply->child : xcb_window_t{XCB_WINDOW_NONE};
}

} // namespace nimbrale::benchmarks
