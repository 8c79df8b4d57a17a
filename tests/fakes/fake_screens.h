#pragma once

#include "platform/screens.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale {

/// A screen without menu bar or panels.
[[nodiscard]] inline Screen makeScreen(DisplayID displayID, const Rect& frame, double backingScaleFactor = 1)
{
    return {displayID, "Display " + std::to_string(displayID), frame, frame, backingScaleFactor, std::nullopt};
}

/// Displays and a pointer that the test moves about.
class FakeScreens final : public Screens {
public:
    [[nodiscard]] std::vector<Screen> screens() const override { return list; }
    [[nodiscard]] DisplayID mainDisplay() const override { return main; }
    [[nodiscard]] Point mouseLocation() const override
    {
        ++mouseQuestions;
        return mouse;
    }
    [[nodiscard]] Subscription observePointer(const Rect& area, std::function<void()> observer) override
    {
        if (!tellsOfPointer)
            return nullptr;
        return pointerObservers_.add([this, area, held = true, observer = std::move(observer)]() mutable {
            const bool holds = area.contains(mouse);
            if (std::exchange(held, holds) || holds)
                observer();
        });
    }
    [[nodiscard]] Subscription observeChanges(std::function<void()> observer) override
    {
        return observers_.add(std::move(observer));
    }

    /// Tells the observers that something changed.
    void notify() { observers_.notify(); }
    void remove(DisplayID displayID)
    {
        std::erase_if(list, [displayID](const Screen& screen) { return screen.displayID == displayID; });
    }

    std::vector<Screen> list;
    DisplayID main = 0;
    Point mouse;
    mutable int mouseQuestions = 0;
    /// Whether the system tells of moves; say so by `notifyPointer`. Those that concern nobody are not told.
    bool tellsOfPointer = false;

    void notifyPointer() { pointerObservers_.notify(); }

private:
    Observers observers_;
    Observers pointerObservers_;
};

} // namespace nimbrale
