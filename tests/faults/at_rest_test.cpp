// While nothing happens on the desktop, the application moves none of its windows about.

#include "tests/support/application.h"
#include "tests/support/requirements.h"
#include "tests/support/scene.h"
#include "tests/support/x_reply.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <xcb/xcb.h>

namespace nimbrale::test {
namespace {

/// Counts what is moved, resized or restacked among the root's children.
class MoveCounter {
public:
    explicit MoveCounter(const PrivateDesktop& desktop)
        : connection_(xcb_connect(desktop.displayName().c_str(), nullptr))
    {
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
        const std::uint32_t events = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
        xcb_change_window_attributes(connection_, root, XCB_CW_EVENT_MASK, &events);
        (void)newMoves();
    }
    ~MoveCounter() { xcb_disconnect(connection_); }
    MoveCounter(const MoveCounter&) = delete;
    MoveCounter& operator=(const MoveCounter&) = delete;

    /// Since it was asked last.
    [[nodiscard]] int newMoves()
    {
        // What the server did before this answer has been told before it.
        Reply<xcb_get_input_focus_reply_t>(
            xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
        int moves = 0;
        while (const Reply<xcb_generic_event_t> event{xcb_poll_for_event(connection_)})
            moves += (event->response_type & 0x7f) == XCB_CONFIGURE_NOTIFY;
        return moves;
    }

private:
    xcb_connection_t* connection_;
};

/// Where the frame is.
struct Place {
    std::string name;
    QRect region;

    friend std::ostream& operator<<(std::ostream& stream, const Place& place) { return stream << place.name; }
};

class AtRestTest : public testing::TestWithParam<Place> {};

TEST_P(AtRestTest, NoWindowIsMoved)
{
    const auto desktop = requireDesktop({});
    const auto scene = requireScene(*desktop);
    scene->add("content", {.geometry = {0, 0, 1280, 700}, .seed = 7});
    const auto application = requireApplication(*desktop, {.region = GetParam().region});
    ASSERT_TRUE(application->waitForVirtualDisplay(GetParam().region.size()));
    sleepFor(Milliseconds{3000}); // What follows a start, such as the display's settling, is over.
    MoveCounter counter(*desktop);
    scene->raise("content");
    sleepFor(Milliseconds{1000});
    EXPECT_GT(counter.newMoves(), 0) << "the control: what is moved is counted, as the frame that comes in front again";
    sleepFor(Milliseconds{2500});
    EXPECT_EQ(counter.newMoves(), 0);
    EXPECT_EQ(application->quit(), 0) << application->process().output();
}

INSTANTIATE_TEST_SUITE_P(, AtRestTest,
                         testing::Values(Place{"InTheMiddle", {300, 200, 400, 300}},
                                         Place{"AtTheEdgeBesideTheVirtualDisplay", {880, 0, 400, 300}},
                                         Place{"OnTheWholeDisplay", {0, 0, 1280, 720}}),
                         [](const auto& place) { return place.param.name; });

} // namespace
} // namespace nimbrale::test
