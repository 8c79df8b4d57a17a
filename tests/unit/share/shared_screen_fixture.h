#pragma once

#include "share/shared_screen.h"
#include "tests/fakes/fake_platform.h"
#include "tests/fakes/log_capture.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace nimbrale {

inline constexpr DisplayID realDisplay = 1;
inline constexpr Rect region{100, 50, 400, 300};
inline const DisplayGeometry geometry{{1440, 900}, {0, 0, 1440, 900}, 0};
inline const LogCapture::Line unavailableLine =
    errorLine("Nimbrale.virtual-display", "Virtual display unavailable; sharing a window instead");

class SharedScreenTest : public testing::Test {
protected:
    SharedScreenTest()
    {
        screens.list = {makeScreen(realDisplay, geometry.screenFrame, 2)};
        displays.boundsOf[realDisplay] = {0, 0, 2880, 1800};
    }

    void makeVirtualDisplaysFail() { displays.createResult = fail(ErrorCode::unsupported, "no such thing here"); }
    /// As the system does some time after the virtual display was made.
    void listVirtualScreen(const Rect& frame = {1440, -600, 800, 600})
    {
        screens.remove(displays.nextDisplayID);
        screens.list.push_back(makeScreen(displays.nextDisplayID, frame));
    }
    [[nodiscard]] std::vector<VirtualDisplayMode> askedModes() const
    {
        std::vector<VirtualDisplayMode> modes;
        for (const VirtualDisplaySettings& settings : displays.device().appliedSettings)
            modes.push_back(settings.modes.at(0));
        return modes;
    }
    [[nodiscard]] static Frame picture() { return {std::make_shared<FakeSurface>(800, 600), region}; }
    [[nodiscard]] static const Layer& frameLayer(FakePanel& panel)
    {
        return *panel.rootLayer().sublayersInOrder().at(0);
    }

    LogCapture log;
    FakePlatform platform;
    FakeScreens& screens = platform.screens();
    FakeVirtualDisplays& displays = platform.virtualDisplays();
    FakePanels& panels = platform.panels();
    SharedScreen sharedScreen{displays, panels, screens, platform.mainQueue()};
};

} // namespace nimbrale
