// Other clients that unmap, move, reparent or destroy the windows of the real application: it notices and puts them
// back.

#include "tests/faults/other_clients_fixture.h"
#include "tests/support/window_touches.h"

#include <functional>
#include <string>

namespace nimbrale::test {
namespace {

class TouchedWindowsTest : public OtherClientsTest, public testing::WithParamInterface<WindowTouch> {
protected:
    /// The topmost of the application's windows with that size.
    [[nodiscard]] xcb_window_t ownWindowOf(QSize size) const
    {
        for (auto window = ownWindows.rbegin(); window != ownWindows.rend(); ++window) {
            if (areaOf(*window).size() == size)
                return *window;
        }
        return XCB_NONE;
    }

    /// Does it with the server held, so that the damage is seen before the application can do anything about it.
    void touch(xcb_window_t window, const std::function<bool()>& isDamaged)
    {
        ASSERT_NE(window, XCB_NONE);
        xcb_grab_server(desktop->connection());
        GetParam().apply(desktop->connection(), window);
        desktop->synchronize();
        EXPECT_TRUE(isDamaged()) << keepImage(desktop->screenshot(), "touched");
        xcb_ungrab_server(desktop->connection());
        desktop->synchronize();
    }
};

INSTANTIATE_TEST_SUITE_P(Touches, TouchedWindowsTest, testing::ValuesIn(window_touches::all()),
                         [](const auto& touched) { return touched.param.name; });

TEST_P(TouchedWindowsTest, TheFrameIsPutBack)
{
    constexpr int margin = 24;
    const xcb_window_t frame = ownWindowOf(region.size() + QSize(2 * margin, 2 * margin));
    touch(frame, [&] { return !showsFrameAround(region, Milliseconds{1}); });
    expectEverythingWorks();
}

TEST_P(TouchedWindowsTest, TheSharedWindowIsPutBack)
{
    touch(ownWindowOf(region.size()), [&] { return !isFramedPictureShared(region); });
    expectEverythingWorks();
}

TEST_F(OtherClientsTest, ARivalThatKeepsUnmappingTheFrameNeitherBlocksNorOutlastsIt)
{
    constexpr int margin = 24;
    xcb_window_t frame = XCB_NONE;
    for (const xcb_window_t window : ownWindows) {
        if (areaOf(window).size() == region.size() + QSize(2 * margin, 2 * margin))
            frame = window;
    }
    ASSERT_NE(frame, XCB_NONE);
    int seen = 0;
    for (int round = 0; round < 200; ++round) {
        xcb_unmap_window(desktop->connection(), frame);
        desktop->synchronize();
        seen += showsFrameAround(region, Milliseconds{10}) ? 1 : 0;
    }
    EXPECT_GE(seen, 5) << "it was put back in between";
    EXPECT_LE(seen, 60) << "but not without limit";
    expectEverythingWorks();
}

} // namespace
} // namespace nimbrale::test
