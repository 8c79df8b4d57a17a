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
    void startOnAStillScreen(const WebcamSurroundings& surroundings)
    {
        QImage color(320, 180, QImage::Format_RGB32);
        color.fill(QColor(200, 40, 40));
        prepare(surroundings, color);
        start({{"webcamX", "20"}, {"webcamY", "30"}, {"webcamWidth", "320"}, {"webcamHeight", "180"}});
        ASSERT_TRUE(bothShow(box.center(), QColor(200, 40, 40))) << picture();
        sleepFor(Milliseconds{3000}); // What follows a start, such as the display's settling, is over.
    }
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
    struct Rest {
        DrawnArea::Drawing drawing;
        /// Of the thread that captures.
        long wakes = 0;
    };
    [[nodiscard]] Rest watchRest(DrawnArea& drawn)
    {
        const long before = wakesOfCapture();
        sleepFor(watched);
        const long wakes = wakesOfCapture() - before;
        return {drawn.take(), wakes};
    }
};

constexpr auto own = PrivateDesktop::Compositor::windowManagersOwn;

INSTANTIATE_TEST_SUITE_P(, WebcamRest,
                         testing::Values(WebcamSurroundings{.name = "Openbox"},
                                         WebcamSurroundings{"Mutter", PrivateDesktop::WindowManager::mutter, own},
                                         WebcamSurroundings{"Xfwm4", PrivateDesktop::WindowManager::xfwm4, own},
                                         WebcamSurroundings{"Kwin", PrivateDesktop::WindowManager::kwin, own},
                                         WebcamSurroundings{"Marco", PrivateDesktop::WindowManager::marco, own}),
                         testing::PrintToStringParamName());

TEST_P(WebcamRest, OfAStillScreenOnlyTheWebcamsRectangleIsDrawnAndNothingIsCaptured)
{
    startOnAStillScreen(GetParam());
    if (IsSkipped() || HasFatalFailure())
        return;
    DrawnArea drawn(*desktop, desktop->monitorNamed("Nimbrale")->geometry);
    const auto [drawing, wakes] = watchRest(drawn);
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

/// picom draws over windows in the overlay, so the shared window lies among all others, and picom paints both pictures
/// of the webcam. What it paints at once the server tells of as one rectangle, and nobody can tell from that whether
/// something in between has changed as well.
class WebcamUnderPicom : public WebcamRest {};

INSTANTIATE_TEST_SUITE_P(
    , WebcamUnderPicom,
    testing::Values(WebcamSurroundings{.name = "XRender", .compositor = PrivateDesktop::Compositor::picom},
                    WebcamSurroundings{.name = "Glx", .compositor = PrivateDesktop::Compositor::picomGlx}),
    testing::PrintToStringParamName());

TEST_P(WebcamUnderPicom, NoMoreIsCapturedThanPicomPaintsAndNoMoreOftenThanTheCameraHasAPicture)
{
    startOnAStillScreen(GetParam());
    if (IsSkipped() || HasFatalFailure())
        return;
    DrawnArea drawn(*desktop, desktop->monitorNamed("Nimbrale")->geometry);
    const auto [drawing, wakes] = watchRest(drawn);
    // By XRender, from the panel to the shared picture beyond the region's right and lower edges; by GLX, all there is.
    const QRect all({}, region.size());
    const bool isByGlx = GetParam().compositor == PrivateDesktop::Compositor::picomGlx;
    EXPECT_EQ(drawing.area, isByGlx ? all : QRect(box.topLeft(), all.bottomRight()));
    constexpr int picturesWatched = 60;
    constexpr int wakesOfAPicture = 8; // A capture that its own picture sets off again would take twice as many.
    EXPECT_GT(wakes, picturesWatched / 2);
    EXPECT_LT(wakes, picturesWatched * wakesOfAPicture);
    std::cout << "[ FIGURE   ] the thread that captures woke " << wakes << " times\n";
}

} // namespace
} // namespace nimbrale::test
