#pragma once

#include "controls/control_drawing.h"
#include "platform/color.h"
#include "platform/geometry.h"
#include "platform/main_queue.h"
#include "platform/panel.h"

#include <chrono>
#include <memory>
#include <string>

namespace nimbrale {

/// Says what the control does that the pointer rests on, in a panel of its own beside it, which takes no clicks. The
/// panel exists only while it is seen. Needs the toolkit's application object for its font. Main thread only.
class ControlTip {
public:
    /// How long the pointer stays on a control before its tip comes.
    static constexpr std::chrono::milliseconds delay{700};

    /// `panels` and `queue` must outlive it. The text stands on `background`.
    ControlTip(Panels& panels, MainQueue& queue, const Color& background);
    ~ControlTip();
    ControlTip(const ControlTip&) = delete;
    ControlTip& operator=(const ControlTip&) = delete;

    /// The pointer came to a control: its tip comes after `delay`, any other goes at once. `text` is UTF-8; `control`
    /// and the `screen` that it is on are in screen coordinates.
    void pointerCameTo(const Rect& control, const std::string& text, const Rect& screen);
    /// Nothing is said any more: the pointer left the control, or the user presses it.
    void dismiss();

private:
    void show(const Rect& control, const std::string& text, const Rect& screen);

    Panels& panels_;
    MainQueue& queue_;
    Color background_;
    ControlDrawing drawing_;
    std::unique_ptr<Timer> timer_;
    std::unique_ptr<Panel> panel_;
};

/// Where a tip's background lies for a text of that width: beside the control, on the right if it fits on the screen
/// there and else on the left, on whole points. Screen coordinates.
[[nodiscard]] Rect controlTipPlace(const Rect& control, double textWidth, const Rect& screen);

} // namespace nimbrale
