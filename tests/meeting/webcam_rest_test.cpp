// A webcam that moves over a still screen: of the shared picture only its rectangle is drawn, and nothing is captured.

#include "tests/meeting/webcam_journey.h"
#include "tests/support/shown_windows.h"
#include "tests/support/x_reply.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <xcb/damage.h>
#include <xcb/xcb.h>

namespace nimbrale::test {
namespace {

constexpr QRect box(20, 30, 320, 180);
constexpr Milliseconds watched{2000};

/// What is drawn into the window that is shown at a place of the screen.
class DrawnArea {
public:
    DrawnArea(const PrivateDesktop& desktop, const QRect& place)
        : connection_(xcb_connect(desktop.displayName().c_str(), nullptr))
    {
        const Reply<xcb_damage_query_version_reply_t> version(
            xcb_damage_query_version_reply(connection_, xcb_damage_query_version(connection_, 1, 1), nullptr));
        // Some compositing managers have it in the window that they draw into.
        xcb_window_t window = overlayWindowAt(desktop, place.center());
        if (window == XCB_WINDOW_NONE)
            window = windowAt(desktop, place.center());
        xcb_damage_create(connection_, xcb_generate_id(connection_), window, XCB_DAMAGE_REPORT_LEVEL_RAW_RECTANGLES);
        static_cast<void>(take());
    }
    ~DrawnArea() { xcb_disconnect(connection_); }
    DrawnArea(const DrawnArea&) = delete;
    DrawnArea& operator=(const DrawnArea&) = delete;

    struct Drawing {
        /// In the window's pixels.
        QRect area;
        int times = 0;
    };
    /// Since it was asked last.
    [[nodiscard]] Drawing take()
    {
        // What the server did before this answer has been told before it.
        const Reply<xcb_get_input_focus_reply_t> focus(
            xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
        Drawing drawing;
        const int damaged = xcb_get_extension_data(connection_, &xcb_damage_id)->first_event + XCB_DAMAGE_NOTIFY;
        while (const Reply<xcb_generic_event_t> event{xcb_poll_for_event(connection_)}) {
            if ((event->response_type & 0x7f) != damaged)
                continue;
            const auto& damage = reinterpret_cast<const xcb_damage_notify_event_t&>(*event);
            drawing.area |= QRect(damage.area.x, damage.area.y, damage.area.width, damage.area.height);
            ++drawing.times;
        }
        return drawing;
    }

private:
    xcb_connection_t* connection_;
};

class WebcamRest : public WebcamJourney, public testing::WithParamInterface<WebcamSurroundings> {
protected:
    /// How often the thread that captures has woken so far.
    [[nodiscard]] long wakesOfCapture()
    {
        const auto tasks =
            std::filesystem::directory_iterator("/proc/" + std::to_string(application->process().pid()) + "/task");
        for (const auto& task : tasks) {
            std::string name;
            std::getline(std::ifstream(task.path() / "comm"), name);
            if (name != "Nimbrale.captur")
                continue;
            std::ifstream status(task.path() / "status");
            for (std::string word; status >> word;) {
                long count = 0;
                if (word == "voluntary_ctxt_switches:" && status >> count)
                    return count;
            }
        }
        failTest("the thread that captures is not there");
    }
};

// picom and marco are not here: they paint what changed in several places by one rectangle around all of it, here
// around the webcam's two pictures, and what lies in between is captured anew each time.
INSTANTIATE_TEST_SUITE_P(, WebcamRest,
                         testing::Values(WebcamSurroundings{.name = "Openbox"},
                                         WebcamSurroundings{
                                             .name = "Mutter",
                                             .manager = PrivateDesktop::WindowManager::mutter,
                                             .compositor = PrivateDesktop::Compositor::windowManagersOwn}),
                         testing::PrintToStringParamName());

TEST_P(WebcamRest, OfAStillScreenOnlyTheWebcamsRectangleIsDrawnAndNothingIsCaptured)
{
    QImage color(320, 180, QImage::Format_RGB32);
    color.fill(QColor(200, 40, 40));
    prepare(GetParam(), color);
    start({{"webcamX", "20"}, {"webcamY", "30"}, {"webcamWidth", "320"}, {"webcamHeight", "180"}});
    ASSERT_TRUE(bothShow(box.center(), QColor(200, 40, 40))) << picture();
    sleepFor(Milliseconds{3000}); // What follows a start, such as the display's settling, is over.
    DrawnArea drawn(*desktop, desktop->monitorNamed("Nimbrale")->geometry);
    const long before = wakesOfCapture();
    sleepFor(watched);
    const long wakes = wakesOfCapture() - before;
    const DrawnArea::Drawing drawing = drawn.take();
    EXPECT_GT(drawing.times, 30);
    EXPECT_EQ(drawing.area, box);

    // The control: what the screen shows anew in the region is captured and drawn there.
    const long beforeControl = wakesOfCapture();
    for (int step = 0; step < 60; ++step) {
        scene->fill("wall", {600 + step, 400, 1, 40}, Qt::white);
        sleepFor(watched / 60);
    }
    const long wakesOfControl = wakesOfCapture() - beforeControl;
    EXPECT_FALSE(box.contains(drawn.take().area));
    EXPECT_GT(wakesOfControl, 60);
    EXPECT_LT(wakes, wakesOfControl / 4) << "of " << wakesOfControl;
    std::cout << "[ FIGURE   ] the thread that captures woke " << wakes << " times, with content " << wakesOfControl
              << " times\n";
}

} // namespace
} // namespace nimbrale::test
