// nimbrale_animation MODE X Y WIDTH HEIGHT FRAMES_PER_SECOND SECONDS [managed]
// A window of another application whose content moves: "blink" changes 20×20 pixels, "video" every pixel of the window
// through shared memory, "page" what looks like a page of text that is scrolled by 6 rows a time, "scroll" moves its
// content up by 20 rows; "pointer" shows no window but moves the pointer about within that area. Ends after the
// seconds; 0 runs until it is stopped. Prints how many frames it painted and how many came too late.

#include "tests/support/programs/monotonic_time.h"
#include "tests/support/x_reply.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <vector>
#include <xcb/shm.h>
#include <xcb/xcb.h>
#include <xcb/xtest.h>

namespace nimbrale::test {

namespace {

struct Arguments {
    std::string mode;
    std::int16_t x = 0;
    std::int16_t y = 0;
    std::uint16_t width = 0;
    std::uint16_t height = 0;
    double framesPerSecond = 0;
    double seconds = 0;
    bool isManaged = false;
};

constexpr std::uint16_t blinkSize = 20;
constexpr std::uint16_t scrollStep = 20;
constexpr std::uint32_t pointerStep = 7;
constexpr std::uint16_t pageStep = 6;

std::uint32_t scrambled(std::uint32_t number)
{
    return number * 2654435761U;
}

/// Dark dots on white in the order of letters and lines, with blanks between both.
std::uint32_t colorOfText(std::uint32_t column, std::uint32_t row)
{
    const bool isInLetter = column % 8 < 6 && row % 20 < 12;
    const bool isDark = isInLetter && (scrambled(scrambled(column / 2) + row / 2) >> 30) == 0;
    return isDark ? 0x202428 : 0xffffff;
}

/// A picture in memory that the server reads directly.
class SharedPicture {
public:
    /// `colorOf` is asked for each pixel by its number, row after row.
    template <typename ColorOf>
    SharedPicture(xcb_connection_t* connection, std::size_t pixels, ColorOf colorOf)
        : segment_(xcb_generate_id(connection))
    {
        const int memory = shmget(IPC_PRIVATE, pixels * 4, IPC_CREAT | 0600);
        auto* values = static_cast<std::uint32_t*>(shmat(memory, nullptr, 0));
        for (std::size_t index = 0; index < pixels; ++index)
            values[index] = colorOf(static_cast<std::uint32_t>(index));
        const auto attached = xcb_shm_attach_checked(connection, segment_, static_cast<std::uint32_t>(memory), 1);
        isUsable_ = !Reply<xcb_generic_error_t>(xcb_request_check(connection, attached));
        shmctl(memory, IPC_RMID, nullptr);
    }
    [[nodiscard]] bool isUsable() const { return isUsable_; }
    [[nodiscard]] xcb_shm_seg_t segment() const { return segment_; }

private:
    xcb_shm_seg_t segment_;
    bool isUsable_ = false;
};

class Animation {
public:
    Animation(xcb_connection_t* connection, const xcb_screen_t& screen, Arguments arguments)
        : connection_(connection), screen_(screen), arguments_(std::move(arguments)),
          window_(xcb_generate_id(connection)), context_(xcb_generate_id(connection))
    {
        const std::array<std::uint32_t, 2> values{0x204060, !arguments_.isManaged};
        xcb_create_window(connection, screen.root_depth, window_, screen.root, arguments_.x, arguments_.y,
                          arguments_.width, arguments_.height, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen.root_visual,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values.data());
        const std::string title = "Animation";
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window_, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                            static_cast<std::uint32_t>(title.size()), title.data());
        const std::array<std::uint32_t, 18> sizeHints{1U | 4U};
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window_, XCB_ATOM_WM_NORMAL_HINTS,
                            XCB_ATOM_WM_SIZE_HINTS, 32, sizeHints.size(), sizeHints.data());
        const std::uint32_t noExposures = 0;
        xcb_create_gc(connection, context_, window_, XCB_GC_GRAPHICS_EXPOSURES, &noExposures);
        if (arguments_.mode != "pointer")
            xcb_map_window(connection, window_);
        synchronize();
    }

    int run()
    {
        if (!makePictures()) {
            std::cerr << "nimbrale_animation: the server takes no shared memory\n";
            return 1;
        }
        const auto interval = static_cast<std::int64_t>(nanosecondsPerSecond / arguments_.framesPerSecond);
        const std::int64_t start = now();
        const std::int64_t end = start + static_cast<std::int64_t>(nanosecondsPerSecond * arguments_.seconds);
        std::uint32_t frame = 0;
        std::uint32_t late = 0;
        for (std::int64_t time = start; arguments_.seconds == 0 || time < end; time += interval, ++frame) {
            late += now() > time + interval;
            sleepUntil(time);
            paint(frame);
            xcb_flush(connection_);
            if (xcb_connection_has_error(connection_))
                return 1;
        }
        std::cout << arguments_.mode << " frames " << frame << " late " << late << '\n';
        return 0;
    }

private:
    bool makePictures()
    {
        const std::uint32_t width = arguments_.width;
        const std::size_t pixels = std::size_t{width} * arguments_.height;
        if (arguments_.mode == "video") {
            for (std::uint32_t seed = 0; seed < 2; ++seed)
                pictures_.emplace_back(connection_, pixels, [seed](std::uint32_t index) {
                    return (scrambled(index) + seed * 99991U) & 0xffffffU;
                });
        } else if (arguments_.mode == "page") {
            pictures_.emplace_back(connection_, 2 * pixels,
                                   [width](std::uint32_t index) { return colorOfText(index % width, index / width); });
        }
        return std::ranges::all_of(pictures_, &SharedPicture::isUsable);
    }

    void paint(std::uint32_t frame)
    {
        const std::uint16_t width = arguments_.width;
        const std::uint16_t height = arguments_.height;
        if (arguments_.mode == "blink") {
            fill({static_cast<std::int16_t>(width / 2), static_cast<std::int16_t>(height / 2), blinkSize, blinkSize},
                 frame % 2 ? 0xffffff : 0);
        } else if (arguments_.mode == "video") {
            put(pictures_[frame % 2], height, 0);
        } else if (arguments_.mode == "page") {
            put(pictures_[0], 2 * height, static_cast<int>(frame * pageStep % height));
        } else if (arguments_.mode == "pointer") {
            movePointer(static_cast<std::int16_t>(arguments_.x + static_cast<int>(frame * pointerStep % width)),
                        static_cast<std::int16_t>(arguments_.y + static_cast<int>(frame * pointerStep % height)));
        } else {
            const auto kept = static_cast<std::uint16_t>(height - scrollStep);
            xcb_copy_area(connection_, window_, window_, context_, 0, scrollStep, 0, 0, width, kept);
            fill({0, static_cast<std::int16_t>(kept), width, scrollStep}, frame * 7919U & 0xffffffU);
        }
    }

    /// The window's size of a picture that is `rows` high, from row `top` on.
    void put(const SharedPicture& picture, int rows, int top)
    {
        const std::uint16_t width = arguments_.width;
        xcb_shm_put_image(connection_, window_, context_, width, static_cast<std::uint16_t>(rows), 0,
                          static_cast<std::uint16_t>(top), width, arguments_.height, 0, 0, screen_.root_depth,
                          XCB_IMAGE_FORMAT_Z_PIXMAP, 0, picture.segment(), 0);
        synchronize();
    }

    void movePointer(std::int16_t x, std::int16_t y)
    {
        xcb_test_fake_input(connection_, XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, screen_.root, x, y, 0);
    }

    void fill(const xcb_rectangle_t& area, std::uint32_t pixel)
    {
        xcb_change_gc(connection_, context_, XCB_GC_FOREGROUND, &pixel);
        xcb_poly_fill_rectangle(connection_, window_, context_, 1, &area);
    }

    void synchronize()
    {
        const Reply<xcb_get_input_focus_reply_t> reply(
            xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
    }

    xcb_connection_t* connection_;
    const xcb_screen_t& screen_;
    Arguments arguments_;
    xcb_window_t window_;
    xcb_gcontext_t context_;
    std::vector<SharedPicture> pictures_;
};

bool isMode(const std::string& mode)
{
    return mode == "blink" || mode == "video" || mode == "page" || mode == "scroll" || mode == "pointer";
}

} // namespace

} // namespace nimbrale::test

int main(int count, char** values)
{
    using namespace nimbrale::test;
    if (count < 8 || !isMode(values[1]) || std::atof(values[6]) <= 0) {
        std::cerr
            << "usage: nimbrale_animation blink|video|page|scroll|pointer X Y WIDTH HEIGHT FRAMES_PER_SECOND SECONDS "
               "[managed]\n";
        return 2;
    }
    const auto number = [&](int index) { return std::atoi(values[index]); };
    const Arguments arguments{values[1],
                              static_cast<std::int16_t>(number(2)),
                              static_cast<std::int16_t>(number(3)),
                              static_cast<std::uint16_t>(number(4)),
                              static_cast<std::uint16_t>(number(5)),
                              std::atof(values[6]),
                              std::atof(values[7]),
                              count > 8 && std::string(values[8]) == "managed"};
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection)) {
        std::cerr << "nimbrale_animation: no X server\n";
        return 1;
    }
    const int result =
        Animation(connection, *xcb_setup_roots_iterator(xcb_get_setup(connection)).data, arguments).run();
    xcb_disconnect(connection);
    return result;
}
