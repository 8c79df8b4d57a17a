// Where the pointer is, what it looks like and whether the user sees it.

#include "platform/x11/capture/desktop_tracker.h"

#include "platform/x11/server/handles.h"

#include <algorithm>
#include <utility>
#include <xcb/xinput.h>

namespace nimbrale::x11 {

void DesktopTracker::watchPointer()
{
    pointer_ = std::make_unique<PointerImage>(connection_);
    if (!connection_.extensions().input.isPresent)
        return;
    listenToPointer();
    tellPointerMove(std::nullopt);
}

void DesktopTracker::showPointer(ChangeCollector& changes) const
{
    if (pointerPlace_)
        changes.movePointer(isPointerHidden_ ? PixelRect{}
                                             : pointer_->coverage(pointerPlace_->rootX, pointerPlace_->rootY));
}

void DesktopTracker::handleDeviceEvent(const xcb_ge_generic_event_t& event)
{
    if (event.extension == connection_.extensions().input.majorOpcode)
        notePointerMove();
}

void DesktopTracker::handleAlarm(const xcb_sync_alarm_notify_event_t& event)
{
    if (restAlarm_.isItsOwn(event))
        follower_.heardChange();
}

void DesktopTracker::handleCursorChange(const xcb_xfixes_cursor_notify_event_t&)
{
    pointer_->read();
    hidingPacer_.noteChange(Clock::now());
    redrawPointer();
}

void DesktopTracker::notePointerMove()
{
    tellPointerMove(std::nullopt);
    follower_.heardMove();
    expectPointerMove();
    listenToPointer();
}

void DesktopTracker::tellPointerMove(std::optional<PixelPoint> position) const
{
    if (onPointerMoved_)
        onPointerMoved_(position);
}

void DesktopTracker::expectPointerMove()
{
    for (ChangeCollector* const changes : collectors_) {
        if (!pointerPlace_ || changes->isPointerNear(pointer_->coverage(pointerPlace_->rootX, pointerPlace_->rootY)))
            changes->expectChange();
    }
}

// The alarm is there again before the next question about the rest: whatever happens after that is told.
void DesktopTracker::listenToPointer()
{
    if (restAlarm_.isPresent())
        restAlarm_.setWanted(follower_.isHearing());
    // Where nobody shows the pointer nobody asks for it either.
    const bool isWanted = follower_.isHearing() || !isPointerShown();
    if (!connection_.extensions().input.isPresent || std::exchange(hearsPointerMoves_, isWanted) == isWanted)
        return;
    struct {
        xcb_input_event_mask_t head;
        std::uint32_t mask;
    } selection{{XCB_INPUT_DEVICE_ALL_MASTER, 1}, 0};
    if (isWanted)
        selection.mask = XCB_INPUT_XI_EVENT_MASK_RAW_MOTION | XCB_INPUT_XI_EVENT_MASK_RAW_TOUCH_UPDATE;
    xcb_input_xi_select_events(connection_.get(), connection_.root(), 1, &selection.head);
}

bool DesktopTracker::isPointerShown() const
{
    return std::any_of(collectors_.begin(), collectors_.end(),
                       [](const ChangeCollector* changes) { return changes->showsPointer(); });
}

bool DesktopTracker::isPointerAsked(Clock::time_point now) const
{
    if (!isPointerShown() || follower_.isAnswerFresh(now))
        return false;
    const bool isEveryMoveTold = connection_.extensions().input.isPresent && !follower_.isMoving();
    return !isEveryMoveTold || follower_.isDue(now);
}

void DesktopTracker::pollPointer(Clock::time_point now)
{
    if (isPointerShown() && follower_.isDue(now))
        takePointer(askForPointer(), now);
    if (isPointerInFrames() && hidingPacer_.isDue(now))
        askWhetherHidden(now);
}

DesktopTracker::PointerQuestion DesktopTracker::askForPointer() const
{
    PointerQuestion question{};
    // Before the position: whatever happens in between is told, and in the answer as well. One that moves has no rest.
    if (restAlarm_.isPresent() && !follower_.isMoving())
        question.rest = restAlarm_.ask();
    question.position = xcb_query_pointer(connection_.get(), connection_.root());
    return question;
}

void DesktopTracker::takePointer(const PointerQuestion& question, Clock::time_point askedAt)
{
    const bool isChangeTold = question.rest && restAlarm_.wasSet(*question.rest);
    const Reply<xcb_query_pointer_reply_t> pointer(
        xcb_query_pointer_reply(connection_.get(), question.position, nullptr));
    if (pointer) {
        movePointer({pointer->root_x, pointer->root_y},
                    isChangeTold ? PointerFollower::NextChange::isTold : PointerFollower::NextChange::mayBeUntold,
                    askedAt);
        measurePointerDistance();
    }
    listenToPointer();
    if (follower_.isMoving())
        expectPointerMove();
}

void DesktopTracker::movePointer(const PointerPlace& place, PointerFollower::NextChange nextChange,
                                 Clock::time_point askedAt)
{
    const bool isAtRest = pointerPlace_ && pointerPlace_->rootX == place.rootX && pointerPlace_->rootY == place.rootY;
    follower_.gotAnswer(
        askedAt, isAtRest ? PointerFollower::Answer::samePosition : PointerFollower::Answer::otherPosition, nextChange);
    if (isAtRest)
        return;
    pointerPlace_ = place;
    hidingPacer_.noteChange(askedAt);
    redrawPointer();
    // A position that a program set came without an event, and moves are not heard of while it is asked for.
    tellPointerMove(PixelPoint{place.rootX, place.rootY});
}

// What looks for the pointer itself, as the frame's controls do, lies at a frame.
void DesktopTracker::measurePointerDistance()
{
    const PixelRect coverage = pointer_->coverage(pointerPlace_->rootX, pointerPlace_->rootY);
    std::optional<int> nearest;
    for (const ChangeCollector* const changes : collectors_) {
        if (const auto distance = changes->pointerDistance(coverage))
            nearest = std::min(nearest.value_or(*distance), *distance);
    }
    if (nearest)
        follower_.setDistance(*nearest);
}

bool DesktopTracker::isPointerInFrames() const
{
    if (!pointerPlace_)
        return false;
    const PixelRect coverage = pointer_->coverage(pointerPlace_->rootX, pointerPlace_->rootY);
    return std::any_of(collectors_.begin(), collectors_.end(),
                       [&coverage](const ChangeCollector* changes) { return changes->containsPointer(coverage); });
}

void DesktopTracker::askWhetherHidden(Clock::time_point now)
{
    hidingPacer_.noteQuestion(now);
    const bool wasHidden = std::exchange(isPointerHidden_, hiding_.isHidden());
    if (wasHidden == isPointerHidden_)
        return;
    hidingPacer_.noteChange(now);
    redrawPointer();
}

void DesktopTracker::redrawPointer()
{
    for (ChangeCollector* const changes : collectors_)
        showPointer(*changes);
}

} // namespace nimbrale::x11
