#include "platform/x11/displays/randr_change.h"

#include "platform/x11/server/connection.h"
#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"
#include "tests/support/requirements.h"

#include <gtest/gtest.h>
#include <memory>
#include <utility>
#include <vector>

namespace nimbrale::test {
namespace {

class RandrChangeTest : public testing::Test {
protected:
    void SetUp() override
    {
        desktop = requireDesktop({});
        connection = std::move(*x11::Connection::open(desktop->displayName()));
        const std::uint32_t structure = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
        xcb_change_window_attributes(desktop->connection(), desktop->screen().root, XCB_CW_EVENT_MASK, &structure);
        desktop->synchronize();
    }

    /// How often others were told of the screen's size since the last call.
    [[nodiscard]] int announcements()
    {
        desktop->synchronize();
        int count = 0;
        while (const x11::Reply<xcb_generic_event_t> event{xcb_poll_for_event(desktop->connection())})
            count += x11::eventType(*event) == XCB_CONFIGURE_NOTIFY;
        return count;
    }

    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<x11::Connection> connection;
};

TEST_F(RandrChangeTest, aSizeThatIsRepeatedIsToldWhateverThePitch)
{
    // Of a display of 1280 pixels on 340 mm, whose width then comes out at half a millimeter, and of hardly anything.
    const std::vector<std::pair<int, x11::PixelPitch>> cases = {
        {1696, {340 / 1280.0, 0.25}}, {1760, {340 / 1280.0, 0.25}}, {1280, {0.1 / 1280, 0.25}}, {1280, {0.3, 0.25}}};
    for (const auto& [width, pitch] : cases) {
        x11::RandrChange change(*connection);
        change.setScreenSize(width, 720, pitch, {});
        ASSERT_TRUE(change.finish());
        static_cast<void>(announcements());
        change.repeatScreenSize(width, 720, pitch, {});
        ASSERT_TRUE(change.finish());
        EXPECT_EQ(announcements(), 2) << width << " of " << pitch.horizontal;
        EXPECT_EQ(desktop->screenSize(), QSize(width, 720));
    }
}

} // namespace
} // namespace nimbrale::test
