#include "tests/support/pixmap_litter.h"

#include "tests/support/x_reply.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <vector>

namespace nimbrale::test {

namespace {

// Green, magenta, yellow.
constexpr std::array<std::uint32_t, 3> colors = {0x00ff00, 0xff00ff, 0xffff00};
constexpr int pixmapsAtOnce = 4;

} // namespace

// Connected before the thread begins: the library finds the way in a buffer that all its connections share.
PixmapLitter::PixmapLitter(const std::string& displayName)
    : thread_([this, connection = xcb_connect(displayName.c_str(), nullptr)] { run(connection); })
{}

PixmapLitter::~PixmapLitter()
{
    isEnding_ = true;
    thread_.join();
}

void PixmapLitter::run(xcb_connection_t* connection)
{
    const xcb_screen_t& screen = *xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    std::vector<xcb_pixmap_t> pixmaps;
    for (unsigned round = 0; !isEnding_ && !xcb_connection_has_error(connection); ++round) {
        // Sizes near those of a screen that has just been resized.
        const auto width = static_cast<std::uint16_t>(screen.width_in_pixels + 37 * (round % 19));
        const auto height = static_cast<std::uint16_t>(screen.height_in_pixels + 29 * (round % 17));
        const xcb_pixmap_t pixmap = xcb_generate_id(connection);
        const xcb_gcontext_t context = xcb_generate_id(connection);
        xcb_create_pixmap(connection, screen.root_depth, pixmap, screen.root, width, height);
        xcb_create_gc(connection, context, pixmap, XCB_GC_FOREGROUND, &colors[round % colors.size()]);
        const xcb_rectangle_t whole = {0, 0, width, height};
        xcb_poly_fill_rectangle(connection, pixmap, context, 1, &whole);
        xcb_free_gc(connection, context);
        pixmaps.push_back(pixmap);
        if (pixmaps.size() >= pixmapsAtOnce) {
            for (const xcb_pixmap_t each : pixmaps)
                xcb_free_pixmap(connection, each);
            pixmaps.clear();
        }
        Reply<xcb_get_input_focus_reply_t>(
            xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
        std::this_thread::sleep_for(std::chrono::milliseconds{3});
    }
    xcb_disconnect(connection);
}

} // namespace nimbrale::test
