// Where streams leave windows out of what the screen shows.

#include "platform/x11/capture/desktop_tracker.h"
#include "platform/x11/server/manager_reminder.h"

#include <algorithm>

namespace nimbrale::x11 {

bool DesktopTracker::needsMask(const ChangeCollector& changes) const
{
    return !showsScreen(changes) && compositing_ == Compositing::running;
}

bool DesktopTracker::isCopiedFromScreen(const ChangeCollector& changes) const
{
    return showsScreen(changes) || changes.isMasked();
}

void DesktopTracker::chooseMask(ChangeCollector& changes, std::chrono::milliseconds time) const
{
    const bool isMasked = needsMask(changes);
    changes.setMasked(isMasked);
    if (!isMasked)
        return;
    changes.freeze(Clock::now(), {.time = time, .patience = std::chrono::milliseconds(0)});
    changes.mask().hold(leftOutPlaces_);
}

void DesktopTracker::noteLeftOut(const CapturedWindow& window, WindowChange change, Clock::time_point now)
{
    leftOutChange_ = now;
    if (compositing_ == Compositing::running)
        leftOutPlaces_.add(window.reachLately(), now, ChangeCollector::holdAfter(change));
}

void DesktopTracker::updateCompositor()
{
    const bool isRunning = compositor_.isComposited();
    compositing_ = isRunning ? Compositing::running : Compositing::absent;
    if (stack_)
        stack_->setCompositing(compositing_);
    if (background_) {
        background_->setComposited(isRunning);
        if (stack_)
            stack_->addExempt(background_->anchor());
    }
    for (ChangeCollector* const changes : collectors_)
        chooseMask(*changes, ChangeCollector::longestFade);
    watchScreen();
}

void DesktopTracker::lookAround(RegionComposer& composer, SeenPicture& seen, ChangeCollector& changes)
{
    if (!stack_)
        return;
    handleEvents();
    stack_->classifyNew();
    const Clock::time_point now = Clock::now();
    if (!changes.isMasked() || (leftOutChange_ && now - *leftOutChange_ < HeldPlaces::longestPatience))
        return;
    updateMasks(now);
    const PixelRect root = background_->rootBounds();
    PixelRegion shown(root);
    shown -= changes.mask().region();
    composer.copyScreen(seen.target(root), shown, root, *pointer_, std::nullopt);
    // One may have come before the screen was copied.
    connection_.synchronize();
    handleEvents();
    updateMasks(now);
    shown -= changes.mask().region();
    changes.mask().noteSeen(shown);
}

std::optional<DesktopTracker::Clock::time_point> DesktopTracker::nextAging() const
{
    const bool isAwaited = std::any_of(collectors_.begin(), collectors_.end(), [](const ChangeCollector* changes) {
        return changes->isMasked() || !changes->unpainted().isEmpty();
    });
    return isAwaited ? stack_->nextAging() : std::nullopt;
}

void DesktopTracker::updateMasks(Clock::time_point now)
{
    if (!stack_)
        return;
    stack_->takePainted();
    const HeldPlaces::Progress progress = takeProgress(now);
    stack_->releaseTrails(now, progress);
    leftOutPlaces_.release(now, progress);
    proof_.follow(stack_->windows());
    const PixelRegion marks = proof_.reach();
    for (ChangeCollector* const changes : collectors_)
        changes->updateMask(stack_->windows(), marks, now, progress);
}

// One that is known to have something to paint, and does not, has no time.
HeldPlaces::Progress DesktopTracker::takeProgress(Clock::time_point now)
{
    const Clock::duration idle = paintingTime_.takeIdle(now);
    return {proof_.proven(), paintingAwaited_ ? idle : Clock::duration(0)};
}

// The windows on the virtual display may be painted by the server itself.
void DesktopTracker::notePainted(const PixelRegion& damage)
{
    PixelRegion watched = proof_.reach();
    for (const ChangeCollector* const changes : collectors_) {
        if (changes->isMasked())
            watched.add(changes->source());
    }
    watched &= damage;
    if (!watched.isEmpty())
        paintingTime_.notePainted(Clock::now());
}

// What it took along of windows that are left out may be on the screen yet, although it has painted itself since:
// mutter misses damage at times. The proof that this was shown comes behind the report.
void DesktopTracker::reportPainted(const CapturedWindow& window)
{
    PixelRegion carried;
    for (const ChangeCollector* const changes : collectors_)
        carried |= changes->unpainted().placeOf(window);
    if (carried.isEmpty() || compositing_ != Compositing::running)
        return;
    carried.translate(-window.x - window.borderWidth, -window.y - window.borderWidth);
    reportDamage(connection_, window.id, carried);
    proof_.addDrawn(window.id, carried, Clock::now());
}

void DesktopTracker::proveMasks(Clock::time_point now)
{
    std::optional<Clock::time_point> required;
    for (const ChangeCollector* const changes : collectors_)
        required = std::max(required, changes->requiredProof(now));
    if (!required) {
        proof_.end();
        paintingAwaited_.reset();
        return;
    }
    if (now - proofAsked_ < PaintProof::interval)
        return;
    proofAsked_ = now;
    // Of the same place the server tells once only, and nobody asks while no picture is drawn.
    if (const auto screenCookie = askForScreenDamage())
        addScreenDamage(fetchScreenDamage(*screenCookie));
    std::vector<const CapturedWindow*> panels;
    for (const CapturedWindow* const window : stack_->windows()) {
        if (window->owner.isOwn && window->painted && !window->painted->isEmpty() && window->coversRoot())
            panels.push_back(window);
    }
    proof_.advance(panels, *required, now);
    if (!proof_.isLit() && !pokeManager(now))
        paintingAwaited_.reset();
    else if (!paintingAwaited_)
        paintingAwaited_ = now;
}

std::chrono::milliseconds DesktopTracker::proofInterval(Clock::time_point now) const
{
    const bool isResting = paintingAwaited_ && now - *paintingAwaited_ > PaintingTime::longestRest;
    return isResting && paintingTime_.isResting(now) ? PaintProof::patience : PaintProof::interval;
}

bool DesktopTracker::pokeManager(Clock::time_point now)
{
    const WindowList& windows = stack_->windows();
    for (auto item = windows.rbegin(); item != windows.rend(); ++item) {
        const CapturedWindow& window = **item;
        for (const ChangeCollector* const changes : collectors_) {
            const PixelRect shown = window.bounds().intersectedWith(changes->source());
            if (!changes->isMasked() || !window.coversRoot() || shown.isEmpty())
                continue;
            if (now - poked_ >= PaintProof::patience) {
                poked_ = now;
                reportDamage(
                    connection_, window.id,
                    PixelRegion(shown.x + shown.width / 2 - window.x, shown.y + shown.height / 2 - window.y, 1, 1));
                connection_.flush();
            }
            return true;
        }
    }
    return false;
}

void DesktopTracker::composeMasked(const Drawing& drawing, const CompositionTarget& target, const PixelRegion& region,
                                   ChangeCollector& changes, std::optional<PointerPlace> pointer) const
{
    RegionComposer& composer = drawing.composer;
    const PixelRect root = background_->rootBounds();
    const CompositionTarget seen = drawing.seen.target(root);
    ScreenMask::Parts parts = changes.mask().divide(region, drawing.seenBefore);
    parts.refreshed &= PixelRegion(root);
    parts.composed &= PixelRegion(root);
    composer.copyScreen(seen, parts.refreshed, root, *pointer_, std::nullopt);
    composer.copyPixmap(seen, parts.fromBefore, drawing.before, drawing.beforeOrigin, *pointer_, std::nullopt);
    composer.compose(seen, parts.composed,
                     {stack_->windows(), *background_, *pointer_, changes.unpainted(), compositing_},
                     drawing.isIncluded, std::nullopt, &parts.seenBefore);
    composer.copyScreen(target, parts.fromScreen, root, *pointer_, pointer);
    composer.copyPixmap(target, parts.fromSeen, seen.pixmap, seen.origin, *pointer_, pointer);
}

} // namespace nimbrale::x11
