#include "platform/x11/capture/change_collector.h"

#include "platform/x11/capture/pointer_follower.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace nimbrale::x11 {

namespace {

// A frame is not counted, since its corners may be round and its edges there for the pointer alone.
bool hidesWhatIsBelow(const CapturedWindow& window)
{
    return window.isDrawable() && window.isOpaque(Compositing::running) && !window.isShaped && !window.youngUntil;
}

void simplify(PixelRegion& region)
{
    if (region.count() > ChangeCollector::maximumRectangles)
        region = PixelRegion(region.bounds());
}

} // namespace

void ChangeCollector::setSource(const PixelRect& source, PointerVisibility pointer)
{
    if (source == source_ && pointer == pointer_)
        return;
    source_ = source;
    pointer_ = pointer;
    pointerCoverage_ = {};
    addAll();
}

void ChangeCollector::add(const PixelRegion& region)
{
    PixelRegion shown(region);
    shown &= PixelRegion(source_);
    dirty_ |= shown;
    simplify(dirty_);
}

void ChangeCollector::setMasked(bool isMasked)
{
    isMasked_ = isMasked;
    mask_.reset();
    awaited_.clear();
    covered_.clear();
    bareMarks_.clear();
    freeze_ = {};
    addAll();
}

void ChangeCollector::freeze(Clock::time_point now, const HeldPlaces::Hold& hold)
{
    freeze_.add(ScreenMask::everything(), now, hold);
    addAll();
}

void ChangeCollector::addHiding(const CapturedWindow& window, Clock::time_point now)
{
    if (isMasked_ && !isIncluded(window))
        freeze(now, throughFade);
}

std::optional<ChangeCollector::Clock::time_point> ChangeCollector::nextRelease() const
{
    const auto mask = mask_.nextRelease();
    const auto whole = freeze_.nextRelease();
    return mask && whole ? std::min(mask, whole) : std::max(mask, whole);
}

std::optional<ChangeCollector::Clock::time_point> ChangeCollector::requiredProof(Clock::time_point now) const
{
    return std::max(mask_.requiredProof(now), freeze_.requiredProof(now));
}

void ChangeCollector::updateMask(const WindowList& windows, const PixelRegion& marks, Clock::time_point now,
                                 const HeldPlaces::Progress& progress)
{
    if (!isMasked_) {
        updateLeftOut(windows);
        return;
    }
    freeze_.release(now, progress);
    PixelRegion current;
    PixelRegion covered;
    for (const CapturedWindow* const window : windows) {
        if (!window->coversRoot())
            continue;
        if (!isIncluded(*window)) {
            const PixelRegion reach = window->reachLately();
            current |= reach;
            covered -= reach;
        } else if (hidesWhatIsBelow(*window)) {
            PixelRegion hidden(window->clientBounds());
            hidden &= current;
            covered |= hidden;
            current -= hidden;
        } else if (const PixelRegion carried = unpainted_.placeOf(*window); !carried.isEmpty()) {
            current |= carried;
            covered -= carried;
        }
    }
    PixelRegion newlyCovered(covered);
    newlyCovered -= covered_;
    if (!newlyCovered.isEmpty())
        mask_.hold(newlyCovered, now, throughFade);
    covered_ = covered;
    holdMarks(current, marks, now);
    current |= marks;
    const PixelRegion before = mask_.region();
    add(mask_.update(current, now, progress));
    followGrowth(before);
    leftOut_ = mask_.region();
}

// Where the mask is new, the screen's news count no more. What windows drew there a moment ago may not be on the screen
// yet, and what they drew beside all masks was never asked for: the server is silent about them until it is.
void ChangeCollector::followGrowth(const PixelRegion& before)
{
    PixelRegion gained = mask_.region();
    gained -= before;
    gained &= PixelRegion(source_);
    if (gained.isEmpty())
        return;
    expectChange();
    PixelRegion late(awaited_);
    late &= gained;
    awaited_ -= gained;
    if (!late.isEmpty())
        noteWindowChange(late);
}

// A mark within what is left out goes with that. One that was left bare is held until it is proven to be gone, by
// another that is not.
void ChangeCollector::holdMarks(const PixelRegion& current, const PixelRegion& marks, Clock::time_point now)
{
    PixelRegion gone = std::exchange(bareMarks_, marks);
    bareMarks_ -= current;
    gone -= marks;
    gone -= current;
    if (!gone.isEmpty())
        mask_.hold(gone, now, {});
}

// Each window is on the screen as soon as it is heard of, and hides what is below.
void ChangeCollector::updateLeftOut(const WindowList& windows)
{
    leftOut_.clear();
    for (const CapturedWindow* const window : windows) {
        if (!window->coversRoot() || window->needsClassification)
            continue;
        if (!isIncluded(*window)) {
            leftOut_ |= window->extents();
            continue;
        }
        if (!window->isFinelyShaped() && leftOut_.bounds().intersects(window->bounds()))
            leftOut_ -= window->extents();
        leftOut_ |= unpainted_.placeOf(*window);
    }
}

void ChangeCollector::followMemory(const CapturedWindow& window, WindowChange change, Clock::time_point now)
{
    if (change == WindowChange::filled) {
        unpainted_.add(window, leftOut_);
        return;
    }
    const PixelRegion carried = unpainted_.placeOf(window);
    if (carried.isEmpty())
        return;
    leftOut_ |= carried;
    // Where the window was, a compositing manager may show it for a while.
    if (isMasked_)
        mask_.hold(carried, now, holdAfter(change));
    else
        add(carried);
    if (change == WindowChange::settled || change == WindowChange::vanished)
        unpainted_.remove(window.id);
}

void ChangeCollector::addWindow(const CapturedWindow& window, WindowChange change, Clock::time_point now)
{
    followMemory(window, change, now);
    if (change == WindowChange::filled)
        return;
    if (window.needsClassification) {
        if (isMasked_ && change == WindowChange::vanished)
            mask_.hold(window.reachLately(), now, holdAfter(change));
        return;
    }
    if (!isIncluded(window)) {
        followLeftOut(window, change, now);
        return;
    }
    // The screen told of it, and so did its damage: only below a mask it was not drawn.
    if (change == WindowChange::settled && !isMasked_)
        return;
    const PixelRegion changed = toldByWindows(window.extents());
    // What was taken for its own pixels may be a frame's memory that nobody has painted.
    if (isMasked_ && change == WindowChange::renamed)
        mask_.distrust(changed);
    noteWindowChange(changed);
}

void ChangeCollector::followLeftOut(const CapturedWindow& window, WindowChange change, Clock::time_point now)
{
    if (change == WindowChange::settled)
        return;
    leftOut_ |= isMasked_ ? window.reachLately() : window.extents();
    if (!isMasked_)
        return;
    if (change == WindowChange::renamed)
        leaveOut(window.reach());
    mask_.hold(window.unknownPlaces);
    // The trail of one that has vanished is not known any more.
    const bool isGone = change == WindowChange::vanished;
    mask_.hold(isGone ? window.reachLately() : window.reach(), now, holdAfter(change));
}

void ChangeCollector::addBackground()
{
    addAll();
    if (isMasked_)
        mask_.noteWindowChange(mask_.region());
}

void ChangeCollector::leaveOut(const PixelRegion& region)
{
    mask_.distrust(region);
    add(region);
}

void ChangeCollector::addScreenDamage(const PixelRegion& damage)
{
    if (!isMasked_) {
        add(damage);
        return;
    }
    mask_.noteScreenDamage(damage);
    awaited_ -= damage;
    PixelRegion shown(damage);
    shown -= mask_.region();
    add(shown);
}

PixelRegion ChangeCollector::toldByWindows(PixelRegion region) const
{
    if (isMasked_)
        region &= mask_.region();
    return region;
}

void ChangeCollector::addDamage(const WindowList& windows, const CapturedWindow& window, const PixelRegion& damage,
                                Compositing compositing)
{
    if (!isIncluded(window))
        return;
    const PixelRegion shown = visiblePart(damage, windows, window, compositing);
    if (isMasked_ && window.isDrawable()) {
        PixelRegion beside(shown);
        beside -= mask_.region();
        awaited_ |= beside;
        simplify(awaited_);
    }
    noteWindowChange(toldByWindows(shown));
}

void ChangeCollector::noteWindowChange(const PixelRegion& region)
{
    if (isMasked_)
        mask_.noteWindowChange(region);
    add(region);
}

void ChangeCollector::addRootDamage(const WindowList& windows, const PixelRegion& damage)
{
    if (contents_ == FrameContents::screen)
        return;
    add(damage);
    // What the root shows where a window that is left out covers it may be new as well.
    for (const CapturedWindow* const window : windows) {
        if (window->coversRoot() && !isIncluded(*window))
            add(window->extents());
    }
}

void ChangeCollector::movePointer(const PixelRect& coverage)
{
    if (!showsPointer())
        return;
    add(PixelRegion(pointerCoverage_));
    add(PixelRegion(coverage));
    pointerCoverage_ = coverage;
}

std::optional<int> ChangeCollector::pointerDistance(const PixelRect& coverage) const
{
    if (!showsPointer())
        return std::nullopt;
    const std::int64_t across = std::max(source_.x - coverage.right(), coverage.x - source_.right());
    const std::int64_t down = std::max(source_.y - coverage.bottom(), coverage.y - source_.bottom());
    constexpr std::int64_t farthest = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp(std::max(across, down), std::int64_t{0}, farthest));
}

bool ChangeCollector::isPointerNear(const PixelRect& coverage) const
{
    const auto distance = pointerDistance(coverage);
    return distance && *distance < PointerFollower::nearDistance;
}

bool ChangeCollector::isVisible(const WindowList& windows, const CapturedWindow& window, Compositing compositing) const
{
    if (contents_ == FrameContents::screen || (!window.needsClassification && !isIncluded(window)))
        return false;
    return !visiblePart(toldByWindows(window.extents()), windows, window, compositing).isEmpty();
}

void ChangeCollector::expectDamage(const WindowList& windows, const CapturedWindow& window, const PixelRegion& area,
                                   Compositing compositing)
{
    if (isIncluded(window) && !visiblePart(toldByWindows(area), windows, window, compositing).isEmpty())
        expectation_ = ChangeExpectation::certain;
    else if (isVisible(windows, window, compositing))
        expectChange();
}

void ChangeCollector::expectScreenDamage(const PixelRegion& area)
{
    PixelRegion visible(area);
    visible &= PixelRegion(source_);
    if (isMasked_)
        visible -= mask_.region();
    if (!visible.isEmpty())
        expectation_ = ChangeExpectation::certain;
}

void ChangeCollector::expectChange()
{
    expectation_ = std::max(expectation_, ChangeExpectation::possible);
}

PixelRegion ChangeCollector::take()
{
    PixelRegion taken(dirty_);
    dirty_.clear();
    return taken;
}

PixelRegion ChangeCollector::visiblePart(PixelRegion region, const WindowList& windows, const CapturedWindow& window,
                                         Compositing compositing) const
{
    region &= PixelRegion(source_);
    region &= window.extents();
    // From the top: what hides a window most often is the topmost of all. A finely shaped one counts as hiding nothing:
    // to draw a little too much costs less than to find out.
    for (auto item = windows.rbegin(); item != windows.rend() && *item != &window && !region.isEmpty(); ++item) {
        const CapturedWindow& above = **item;
        if (above.isDrawable() && isIncluded(above) && above.isOpaque(compositing) && !above.isFinelyShaped() &&
            above.bounds().intersects(region.bounds()))
            region -= above.extents();
    }
    return region;
}

PixelRegion bareRootDamage(const WindowList& windows, PixelRegion damage)
{
    for (const CapturedWindow* const window : windows) {
        if (window->coversRoot())
            damage -= window->partOf(damage);
    }
    return damage;
}

} // namespace nimbrale::x11
