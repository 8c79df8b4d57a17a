// nimbrale_copy_loop X Y WIDTH HEIGHT FRAMES_PER_SECOND TARGET_X TARGET_Y
// What the benchmarks compare with: the plainest way to show a part of the screen elsewhere. At each frame it reads the
// rectangle of the root window into shared memory and puts it into a window at the target, whether or not anything
// changed. Runs until it is stopped.

#include "tests/support/programs/monotonic_time.h"
#include "tests/support/x_reply.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>

namespace {

using nimbrale::test::nanosecondsPerSecond;
using nimbrale::test::now;
using nimbrale::test::Reply;
using nimbrale::test::sleepUntil;

struct Arguments {
    std::int16_t x = 0;
    std::int16_t y = 0;
    std::uint16_t width = 0;
    std::uint16_t height = 0;
    double framesPerSecond = 0;
    std::int16_t targetX = 0;
    std::int16_t targetY = 0;
};

class CopyLoop {
public:
    CopyLoop(xcb_connection_t* connection, const xcb_screen_t& screen, const Arguments& arguments)
        : connection_(connection), screen_(screen), arguments_(arguments), window_(xcb_generate_id(connection)),
          context_(xcb_generate_id(connection)), segment_(xcb_generate_id(connection))
    {
        const std::uint32_t unmanaged = 1;
        xcb_create_window(connection, screen.root_depth, window_, screen.root, arguments.targetX, arguments.targetY,
                          arguments.width, arguments.height, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen.root_visual,
                          XCB_CW_OVERRIDE_REDIRECT, &unmanaged);
        const std::uint32_t noExposures = 0;
        xcb_create_gc(connection, context_, window_, XCB_GC_GRAPHICS_EXPOSURES, &noExposures);
        xcb_map_window(connection, window_);
    }

    [[nodiscard]] bool attachMemory()
    {
        const std::size_t size = std::size_t{arguments_.width} * arguments_.height * 4;
        const int memory = shmget(IPC_PRIVATE, size, IPC_CREAT | 0600);
        // Attached here too: what stands for a program that could look at the pixels must have them.
        if (memory < 0 || reinterpret_cast<std::intptr_t>(shmat(memory, nullptr, 0)) == -1)
            return false;
        const auto attached = xcb_shm_attach_checked(connection_, segment_, static_cast<std::uint32_t>(memory), 0);
        const Reply<xcb_generic_error_t> error(xcb_request_check(connection_, attached));
        shmctl(memory, IPC_RMID, nullptr);
        return !error;
    }

    /// Returns when the connection or a request has failed.
    void run()
    {
        const auto interval = static_cast<std::int64_t>(nanosecondsPerSecond / arguments_.framesPerSecond);
        for (std::int64_t time = now();; time += interval) {
            sleepUntil(time);
            if (!copyFrame())
                return;
        }
    }

private:
    bool copyFrame()
    {
        const Reply<xcb_shm_get_image_reply_t> image(xcb_shm_get_image_reply(
            connection_,
            xcb_shm_get_image(connection_, screen_.root, arguments_.x, arguments_.y, arguments_.width,
                              arguments_.height, ~0U, XCB_IMAGE_FORMAT_Z_PIXMAP, segment_, 0),
            nullptr));
        if (!image)
            return false;
        xcb_shm_put_image(connection_, window_, context_, arguments_.width, arguments_.height, 0, 0, arguments_.width,
                          arguments_.height, 0, 0, screen_.root_depth, XCB_IMAGE_FORMAT_Z_PIXMAP, 0, segment_, 0);
        // The memory may be written again only when the server has read it.
        const Reply<xcb_get_input_focus_reply_t> done(
            xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
        return done != nullptr;
    }

    xcb_connection_t* connection_;
    const xcb_screen_t& screen_;
    Arguments arguments_;
    xcb_window_t window_;
    xcb_gcontext_t context_;
    xcb_shm_seg_t segment_;
};

} // namespace

int main(int count, char** values)
{
    if (count != 8 || std::atof(values[5]) <= 0) {
        std::cerr << "usage: nimbrale_copy_loop X Y WIDTH HEIGHT FRAMES_PER_SECOND TARGET_X TARGET_Y\n";
        return 2;
    }
    const auto number = [&](int index) { return std::atoi(values[index]); };
    const Arguments arguments{static_cast<std::int16_t>(number(1)),
                              static_cast<std::int16_t>(number(2)),
                              static_cast<std::uint16_t>(number(3)),
                              static_cast<std::uint16_t>(number(4)),
                              std::atof(values[5]),
                              static_cast<std::int16_t>(number(6)),
                              static_cast<std::int16_t>(number(7))};
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection)) {
        std::cerr << "nimbrale_copy_loop: no X server\n";
        return 1;
    }
    CopyLoop loop(connection, *xcb_setup_roots_iterator(xcb_get_setup(connection)).data, arguments);
    if (!loop.attachMemory()) {
        std::cerr << "nimbrale_copy_loop: the server takes no shared memory\n";
        return 1;
    }
    loop.run();
    std::cerr << "nimbrale_copy_loop: the server refused a frame\n";
    return 1;
}
