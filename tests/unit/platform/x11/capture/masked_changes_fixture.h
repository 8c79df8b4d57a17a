#pragma once

#include "tests/unit/platform/x11/capture/change_collector_fixture.h"

namespace nimbrale::x11 {

/// The time at which everything begins.
inline constexpr ChangeCollector::Clock::time_point start{};

/// Changes of a stream that is masked.
class MaskedChangesTest : public ChangeCollectorTest {
protected:
    MaskedChangesTest()
    {
        changes.setMasked(true);
        (void)changes.take();
    }

    /// One that is left out, and tells that all of it is painted.
    CapturedWindow& addPanel(const PixelRect& area)
    {
        CapturedWindow& panel = addWindow(area);
        panel.painted = PixelRegion(0, 0, area.width, area.height);
        excluded.insert(panel.id);
        changes.updateMask(windows, {}, start, start);
        return panel;
    }
};

} // namespace nimbrale::x11
