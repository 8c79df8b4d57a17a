// Displays change while the capture runs and the main thread, which would stop or move it, has not heard of it yet.

#include "tests/desktop/captured_stream.h"
#include "tests/desktop/x11_capture_fixture.h"
#include "tests/support/request_counter.h"

#include <algorithm>
#include <mutex>
#include <vector>
#include <xcb/randr.h>

namespace nimbrale::test {
namespace {

using Server = PrivateDesktop::Server;
using namespace std::chrono_literals;

const QRect leftDisplay(0, 0, 1280, 720);
const QRect rightDisplay(1280, 0, 800, 600);
/// Of the right display, which is the captured one; on the root it is `place`.
const Rect region{100, 80, 200, 150};
const QRect place(1380, 80, 200, 150);

const QColor quiet(30, 60, 90);
const QColor neighborColor(255, 0, 255);

/// Who gets into the picture: windows one by one, or what the screen shows.
enum class Contents { windows, screen };

struct Surroundings {
    Server server;
    Contents contents;
};

class X11CaptureDisplaysTest : public X11CaptureTest, public testing::WithParamInterface<Surroundings> {
protected:
    void SetUp() override
    {
        startDesktop({.server = GetParam().server, .width = leftDisplay.width(), .height = leftDisplay.height()});
        captured.reset();
        ASSERT_TRUE(desktop->arrangeOutputs({leftDisplay, rightDisplay}));
        left = crtcAt(leftDisplay);
        right = crtcAt(rightDisplay);
        ASSERT_TRUE(left && right);
        scene->add("stage", {.geometry = place.adjusted(-50, -50, 50, 50), .seed = 0, .color = quiet});
        stage = scene->identifier("stage");
    }

    void TearDown() override
    {
        stream.reset();
        // Who lets go of a picture tells the capture's host.
        (void)takePictures();
        captured.reset();
        slowLink.reset();
        X11CaptureTest::TearDown();
    }

    enum class Link { direct, slow };
    void startStream(Link link = Link::direct)
    {
        if (link == Link::slow) {
            slowLink = RequestCounter::start(desktop->displayName());
            ASSERT_TRUE(slowLink);
        }
        captured = std::make_unique<CapturedDesktop>(*desktop, slowLink ? slowLink->displayName() : "");
        const auto& displays = captured->screens().all();
        const auto display = std::ranges::find_if(
            displays, [](const x11::X11Screen& candidate) { return candidate.pixels.x == rightDisplay.x(); });
        ASSERT_NE(display, displays.end());
        stream = std::make_unique<CapturedStream>(captured->capture(), captured->mainQueue(), captured->connection());
        stream->onSample = [this](const CaptureSample& sample) {
            const std::lock_guard lock(mutex);
            pictures.push_back(sample.surface);
        };
        ContentFilter filter{display->screen.displayID, {}};
        if (GetParam().contents == Contents::windows)
            filter.excludedApplications = {{getpid(), {}}};
        ASSERT_TRUE(stream->start(filter, {.sourceRect = region,
                                           .width = place.width(),
                                           .height = place.height(),
                                           .minimumFrameInterval = {1, 200},
                                           .showsCursor = false,
                                           .queueDepth = 100'000}));
        ASSERT_TRUE(pumpUntil([&] { return stream->frames() > 0; }));
        // A program that hears late of what its requests meet.
        if (slowLink)
            slowLink->delayRequests(3ms);
    }

    // --- The displays, through the connection that also draws: the server does all of it in this order. ------------

    struct Crtc {
        xcb_randr_crtc_t id;
        xcb_randr_mode_t mode;
        std::vector<xcb_randr_output_t> outputs;
    };

    [[nodiscard]] std::optional<Crtc> crtcAt(const QRect& geometry) const
    {
        xcb_connection_t* const raw = desktop->connection();
        const x11::Reply<xcb_randr_get_screen_resources_current_reply_t> resources(
            xcb_randr_get_screen_resources_current_reply(
                raw, xcb_randr_get_screen_resources_current(raw, desktop->screen().root), nullptr));
        const xcb_randr_crtc_t* const crtcs = xcb_randr_get_screen_resources_current_crtcs(resources.get());
        for (int index = 0; index < resources->num_crtcs; ++index) {
            const x11::Reply<xcb_randr_get_crtc_info_reply_t> info(xcb_randr_get_crtc_info_reply(
                raw, xcb_randr_get_crtc_info(raw, crtcs[index], resources->config_timestamp), nullptr));
            if (!info || info->mode == XCB_NONE || QRect(info->x, info->y, info->width, info->height) != geometry)
                continue;
            const xcb_randr_output_t* const outputs = xcb_randr_get_crtc_info_outputs(info.get());
            return Crtc{
                crtcs[index], info->mode, {outputs, outputs + xcb_randr_get_crtc_info_outputs_length(info.get())}};
        }
        return std::nullopt;
    }
    void moveDisplay(const Crtc& crtc, QPoint position) const
    {
        xcb_connection_t* const raw = desktop->connection();
        const auto cookie = xcb_randr_set_crtc_config(
            raw, crtc.id, XCB_CURRENT_TIME, XCB_CURRENT_TIME, static_cast<std::int16_t>(position.x()),
            static_cast<std::int16_t>(position.y()), crtc.mode, XCB_RANDR_ROTATION_ROTATE_0,
            static_cast<std::uint32_t>(crtc.outputs.size()), crtc.outputs.data());
        xcb_discard_reply(raw, cookie.sequence);
    }
    /// The captured display moves away, and its neighbor moves to where it was.
    void slideTheNeighborIn() const
    {
        moveDisplay(*right, {0, 0});
        moveDisplay(*left, {rightDisplay.width(), 0});
    }
    void slideBack() const
    {
        moveDisplay(*left, leftDisplay.topLeft());
        moveDisplay(*right, rightDisplay.topLeft());
    }
    /// Draws in the window of another program.
    void draw(const QRect& area, const QColor& color) const
    {
        xcb_connection_t* const raw = desktop->connection();
        const xcb_gcontext_t context = xcb_generate_id(raw);
        const std::uint32_t pixel = color.rgb() & 0xffffff;
        xcb_create_gc(raw, context, stage, XCB_GC_FOREGROUND, &pixel);
        const xcb_rectangle_t rectangle{static_cast<std::int16_t>(area.x()), static_cast<std::int16_t>(area.y()),
                                        static_cast<std::uint16_t>(area.width()),
                                        static_cast<std::uint16_t>(area.height())};
        xcb_poly_fill_rectangle(raw, stage, context, 1, &rectangle);
        xcb_free_gc(raw, context);
        xcb_flush(raw);
    }
    void drawStage(const QColor& color) const { draw({0, 0, 300, 250}, color); }
    /// Goes on drawing, so that there is something to be captured all the time.
    void flicker(int times)
    {
        for (int count = 0; count < times; ++count) {
            draw({60, 60, 20, 20}, QColor::fromRgb(static_cast<QRgb>(++flickers_ % 200)));
            sleepFor(2ms);
        }
    }

    // --- What was delivered; the main thread hears of nothing meanwhile. -------------------------------------------

    [[nodiscard]] std::vector<std::shared_ptr<const Surface>> takePictures()
    {
        const std::lock_guard lock(mutex);
        return std::exchange(pictures, {});
    }
    [[nodiscard]] bool shows(const Surface& picture, const QColor& color) const
    {
        return stream->imageOf(picture).pixelColor(150, 100) == color;
    }
    /// Whether something new is seen soon.
    [[nodiscard]] bool goesOn()
    {
        const QColor color(40 * ++shades_, 200, 100);
        return waitUntil(
            [&] {
                // Again and again, since the program whose window it is may paint over it when the screen changes.
                drawStage(color);
                return std::ranges::any_of(takePictures(), [&](const auto& picture) { return shows(*picture, color); });
            },
            1000ms, 5ms);
    }

    enum class Change { none, neighborSlidesIn };
    struct Count {
        int pictures = 0;
        int ofTheNeighbor = 0;
    };
    /// Again and again the displays change or not, the neighbor shows its color, and all is put back.
    [[nodiscard]] Count watchRounds(int rounds, Change change)
    {
        Count count;
        for (int round = 0; round < rounds; ++round) {
            flicker(8 + round % 5);
            if (change == Change::neighborSlidesIn)
                slideTheNeighborIn();
            drawStage(neighborColor);
            flicker(10);
            drawStage(quiet);
            if (change == Change::neighborSlidesIn)
                slideBack();
            desktop->synchronize();
            flicker(10);
            for (const auto& picture : takePictures()) {
                ++count.pictures;
                count.ofTheNeighbor += shows(*picture, neighborColor) ? 1 : 0;
            }
        }
        return count;
    }

    std::optional<Crtc> left;
    std::optional<Crtc> right;
    std::uint32_t stage = 0;
    std::unique_ptr<RequestCounter> slowLink;
    std::unique_ptr<CapturedStream> stream;
    std::mutex mutex;
    std::vector<std::shared_ptr<const Surface>> pictures;

private:
    std::uint32_t flickers_ = 0;
    int shades_ = 0;
};

TEST_P(X11CaptureDisplaysTest, TheNeighborThatSlidesUnderThePlaceIsInNoPicture)
{
    slideTheNeighborIn();
    ASSERT_TRUE(crtcAt(rightDisplay.translated(-rightDisplay.topLeft())));
    ASSERT_TRUE(crtcAt(leftDisplay.translated(rightDisplay.width(), 0))) << "the server does as it is told";
    slideBack();
    ASSERT_TRUE(crtcAt(leftDisplay) && crtcAt(rightDisplay));
    ASSERT_NO_FATAL_FAILURE(startStream());
    const Count control = watchRounds(5, Change::none);
    EXPECT_GT(control.ofTheNeighbor, 5) << "what is drawn there is seen";
    const Count count = watchRounds(30, Change::neighborSlidesIn);
    EXPECT_GT(count.pictures, 60) << "each time it goes on when the display is back";
    EXPECT_EQ(count.ofTheNeighbor, 0) << "of " << count.pictures << " pictures";
}

TEST_P(X11CaptureDisplaysTest, TheNeighborIsInNoPictureThatTheServerDrewBeforeTheNewsCame)
{
    ASSERT_NO_FATAL_FAILURE(startStream(Link::slow));
    const Count control = watchRounds(5, Change::none);
    EXPECT_GT(control.ofTheNeighbor, 5) << "what is drawn there is seen";
    const Count count = watchRounds(40, Change::neighborSlidesIn);
    EXPECT_GT(count.pictures, 40) << "each time it goes on when the display is back";
    EXPECT_EQ(count.ofTheNeighbor, 0) << "of " << count.pictures << " pictures";
}

TEST_P(X11CaptureDisplaysTest, AChangeElsewhereHoldsUpNothing)
{
    ASSERT_NO_FATAL_FAILURE(startStream());
    EXPECT_TRUE(goesOn()) << "the control: without a change";
    ASSERT_TRUE(desktop->resizeScreen({2400, 900}));
    EXPECT_TRUE(goesOn()) << "the screen has grown";
    desktop->setMonitor("extra", {2080, 0, 320, 200});
    EXPECT_TRUE(goesOn()) << "a monitor was made";
    moveDisplay(*left, {0, 100});
    ASSERT_TRUE(crtcAt(leftDisplay.translated(0, 100)));
    EXPECT_TRUE(goesOn()) << "the other display has moved";
    desktop->deleteMonitor("extra");
    EXPECT_TRUE(goesOn()) << "the monitor is gone";
}

TEST_P(X11CaptureDisplaysTest, TheStreamGoesOnWithItsDisplayOnceItIsToldWhereThatIs)
{
    ASSERT_NO_FATAL_FAILURE(startStream());
    slideTheNeighborIn();
    drawStage(neighborColor);
    desktop->synchronize();
    const QRect moved(100, 80, 200, 150);
    scene->add("content", {.geometry = {0, 0, 600, 400}, .seed = 5});
    // From here on the main thread hears of it.
    EXPECT_TRUE(pumpUntil([&] { return stream->image() == desktop->screenshot(moved); }));
    EXPECT_TRUE(stream->ends.empty());
}

std::string nameOf(const testing::TestParamInfo<Surroundings>& info)
{
    const std::string server = info.param.server == Server::xvnc ? "Xvnc" : "XorgDummy";
    return server + (info.param.contents == Contents::windows ? "Windows" : "Screen");
}

INSTANTIATE_TEST_SUITE_P(Servers, X11CaptureDisplaysTest,
                         testing::Values(Surroundings{Server::xvnc, Contents::windows},
                                         Surroundings{Server::xvnc, Contents::screen},
                                         Surroundings{Server::xorgDummy, Contents::windows}),
                         nameOf);

} // namespace
} // namespace nimbrale::test
