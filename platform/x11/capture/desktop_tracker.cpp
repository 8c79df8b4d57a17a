#include "platform/x11/capture/desktop_tracker.h"

#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"

#include <algorithm>
#include <limits>
#include <utility>
#include <xcb/damage.h>
#include <xcb/shape.h>
#include <xcb/xfixes.h>

namespace nimbrale::x11 {

namespace {

/// Whatever is drawn anywhere is damage of the root, and hardly ever the root's own: unless it was the last time, it is
/// looked through no more often than this.
constexpr std::chrono::milliseconds bareRootInterval{200};

PixelRegion fetched(xcb_connection_t* connection, xcb_xfixes_fetch_region_cookie_t cookie,
                    int maximumRectangles = ChangeCollector::maximumRectangles)
{
    const Reply<xcb_xfixes_fetch_region_reply_t> reply(xcb_xfixes_fetch_region_reply(connection, cookie, nullptr));
    if (!reply)
        return {};
    const int count = xcb_xfixes_fetch_region_rectangles_length(reply.get());
    if (count > maximumRectangles)
        return {reply->extents.x, reply->extents.y, reply->extents.width, reply->extents.height};
    const xcb_rectangle_t* const list = xcb_xfixes_fetch_region_rectangles(reply.get());
    std::vector<PixelRect> rects;
    rects.reserve(static_cast<std::size_t>(count));
    for (int index = 0; index < count; ++index)
        rects.push_back({list[index].x, list[index].y, list[index].width, list[index].height});
    return PixelRegion(rects);
}

} // namespace

DesktopTracker::DesktopTracker(Connection& connection, PointerObserver onPointerMoved,
                               std::shared_ptr<PaintedRegions> painted)
    : connection_(connection), onPointerMoved_(std::move(onPointerMoved)), hiding_(connection), proof_(connection),
      compositor_(connection, events_), restAlarm_(connection)
{
    chooseMode();
    fetchedRegion_ = {connection_, connection_.newId()};
    xcb_xfixes_create_region(connection_.get(), fetchedRegion_.get(), 0, nullptr);
    watchWindows(std::move(painted));
    watchPointer();
    watchCompositor();
    background_ = std::make_unique<RootBackground>(connection_, compositing_ == Compositing::running);
    if (stack_)
        stack_->addExempt(background_->anchor());
    registerHandlers();
    connection_.synchronize();
}

void DesktopTracker::chooseMode()
{
    if (!connection_.extensions().composite.isPresent) {
        mode_ = Mode::rootDamage;
        limitations_.emplace_back("This X server has no COMPOSITE extension, so Nimbrale's own windows and "
                                  "notifications cannot be left out of the shared picture. Keep them outside of the "
                                  "frame, or turn the extension on in the server's configuration.");
    }
    if (!connection_.extensions().damage.isPresent) {
        mode_ = Mode::rootTimed;
        limitations_.emplace_back("This X server has no DAMAGE extension, so changes are not announced: the picture is "
                                  "copied at every interval, own windows included, which takes more power.");
    }
}

void DesktopTracker::watchWindows(std::shared_ptr<PaintedRegions> painted)
{
    if (mode_ == Mode::redirected) {
        stack_ = std::make_unique<WindowStack>(connection_, std::move(painted));
        stack_->onChange = [this](const CapturedWindow& window, WindowChange change) {
            const auto now = Clock::now();
            if (window.owner.isOwn || window.owner.isNotification)
                noteLeftOut(window, change, now);
            if (change == WindowChange::settled)
                reportPainted(window);
            for (ChangeCollector* const changes : collectors_)
                changes->addWindow(window, change, now);
        };
        stack_->onHiding = [this](const CapturedWindow& window) {
            for (ChangeCollector* const changes : collectors_)
                changes->addHiding(window, Clock::now());
        };
        return;
    }
    const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(connection_.get(), connection_.root(), XCB_CW_EVENT_MASK, &events);
}

bool DesktopTracker::showsScreen(const ChangeCollector& changes) const
{
    return mode_ != Mode::redirected || changes.contents() == FrameContents::screen;
}

void DesktopTracker::watchScreen()
{
    const bool isShown = std::any_of(collectors_.begin(), collectors_.end(),
                                     [this](const ChangeCollector* changes) { return isCopiedFromScreen(*changes); });
    if (!isShown || mode_ == Mode::rootTimed) {
        screenDamage_.reset();
        isScreenDamaged_ = false;
    } else if (!screenDamage_) {
        screenDamage_ = {connection_, connection_.newId()};
        xcb_damage_create(connection_.get(), screenDamage_.get(), connection_.root(),
                          XCB_DAMAGE_REPORT_LEVEL_DELTA_RECTANGLES);
    }
}

void DesktopTracker::watchCompositor()
{
    subscriptions_.push_back(compositor_.observeChanges([this] { updateCompositor(); }));
    if (compositor_.isComposited())
        updateCompositor();
}

template <typename Event>
void DesktopTracker::subscribe(std::initializer_list<int> types, void (DesktopTracker::*handler)(const Event&))
{
    subscriptions_.push_back(events_.add(
        types, [this, handler](const xcb_generic_event_t& event) { (this->*handler)(eventAs<Event>(event)); }));
}

void DesktopTracker::registerHandlers()
{
    const Extensions& extensions = connection_.extensions();
    if (extensions.damage.isPresent) {
        const int damage = extensions.damage.firstEvent + XCB_DAMAGE_NOTIFY;
        subscribe({damage}, &DesktopTracker::handleDamage);
        subscribe({damage}, &DesktopTracker::handleBackgroundChange);
    }
    if (extensions.input.isPresent)
        subscribe({XCB_GE_GENERIC}, &DesktopTracker::handleDeviceEvent);
    if (restAlarm_.isPresent())
        subscribe({extensions.sync.firstEvent + XCB_SYNC_ALARM_NOTIFY}, &DesktopTracker::handleAlarm);
    subscribe({extensions.fixes.firstEvent + XCB_XFIXES_CURSOR_NOTIFY}, &DesktopTracker::handleCursorChange);
    subscribe({XCB_CONFIGURE_NOTIFY, XCB_PROPERTY_NOTIFY}, &DesktopTracker::handleBackgroundChange);
    if (stack_)
        stack_->registerHandlers(events_);
}

void DesktopTracker::add(ChangeCollector& changes)
{
    collectors_.push_back(&changes);
    // Where windows were that are left out is known from now on.
    chooseMask(changes, ChangeCollector::longestLag);
    update(changes);
    follower_.heardMove();
    hidingPacer_.noteChange(Clock::now());
    expectPointerMove();
}

void DesktopTracker::update(ChangeCollector& changes)
{
    if (changes.isMasked() != needsMask(changes))
        chooseMask(changes, ChangeCollector::longestLag);
    watchScreen();
    showPointer(changes);
}

void DesktopTracker::remove(ChangeCollector& changes)
{
    std::erase(collectors_, &changes);
    watchScreen();
    listenToPointer();
}

void DesktopTracker::handleEvents()
{
    while (const Reply<xcb_generic_event_t> event{xcb_poll_for_event(connection_.get())})
        events_.deliver(*event);
}

bool DesktopTracker::handleQueuedEvent()
{
    const Reply<xcb_generic_event_t> event(xcb_poll_for_queued_event(connection_.get()));
    if (!event)
        return false;
    events_.deliver(*event);
    return true;
}

void DesktopTracker::classifyNewWindows()
{
    if (stack_)
        stack_->classifyNew();
}

void DesktopTracker::handleBackgroundChange(const xcb_generic_event_t& event)
{
    const PixelRect before = background_->rootBounds();
    if (!background_->handle(event))
        return;
    // The server gives the screen other memory, as others left it, and a compositing manager paints it when it comes
    // to that.
    const bool isResized = background_->rootBounds() != before;
    for (ChangeCollector* const changes : collectors_) {
        changes->addBackground();
        if (isResized && changes->isMasked())
            changes->freeze(Clock::now(), {.patience = ChangeCollector::longestLag});
    }
}

void DesktopTracker::addAll()
{
    for (ChangeCollector* const changes : collectors_)
        changes->addAll();
}

void DesktopTracker::handleDamage(const xcb_damage_notify_event_t& event)
{
    if (event.damage == screenDamage_.get()) {
        isScreenDamaged_ = true;
        const PixelRegion area(event.area.x, event.area.y, event.area.width, event.area.height);
        for (ChangeCollector* const changes : collectors_) {
            if (isCopiedFromScreen(*changes))
                changes->expectScreenDamage(area);
        }
        return;
    }
    CapturedWindow* const window = stack_ ? stack_->find(event.drawable) : nullptr;
    if (!window)
        return; // The root's own, which the background hears of.
    // Damage that no stream shows is left with the server, which then reports no more of it.
    window->isDamaged = true;
    PixelRegion area(event.area.x, event.area.y, event.area.width, event.area.height);
    area.translate(window->x + window->borderWidth, window->y + window->borderWidth);
    for (ChangeCollector* const changes : collectors_)
        changes->expectDamage(stack_->windows(), *window, area, compositing_);
}

bool DesktopTracker::isVisible(const CapturedWindow& window) const
{
    return std::any_of(collectors_.begin(), collectors_.end(), [&](const ChangeCollector* changes) {
        return changes->isVisible(stack_->windows(), window, compositing_);
    });
}

ChangeExpectation DesktopTracker::expectation(const ChangeCollector& changes) const
{
    return mode_ == Mode::rootTimed ? ChangeExpectation::certain : changes.expectation();
}

std::optional<std::chrono::nanoseconds> DesktopTracker::timeToPoll(Clock::time_point now) const
{
    std::optional<Clock::time_point> next;
    const auto pollAt = [&next](Clock::time_point time) { next = std::min(next.value_or(time), time); };
    const auto timeToAsk = follower_.timeToAsk(now);
    if (timeToAsk && isPointerShown())
        pollAt(now + *timeToAsk);
    if (isPointerInFrames())
        pollAt(hidingPacer_.nextQuestion());
    if (!isBareRootExpected_ && background_->isDamaged() && !collectors_.empty())
        pollAt(bareRootDue_);
    for (const ChangeCollector* const changes : collectors_) {
        if (const auto release = changes->nextRelease())
            pollAt(std::max(*release, now + proofInterval(now)));
    }
    if (const auto aging = nextAging())
        pollAt(std::max(*aging, now));
    return next ? std::optional<std::chrono::nanoseconds>(*next - now) : std::nullopt;
}

void DesktopTracker::poll(Clock::time_point now)
{
    if (stack_)
        stack_->ageWindows(now);
    updateMasks(now);
    proveMasks(now);
    if (background_->isDamaged() && now >= bareRootDue_) {
        isBareRootExpected_ = true;
        for (ChangeCollector* const changes : collectors_)
            changes->expectChange();
    }
}

void DesktopTracker::collect()
{
    if (mode_ == Mode::rootTimed)
        addAll();
    // Asked before and read after the damage: one round trip for all.
    std::optional<PointerQuestion> pointerQuestion;
    const auto now = Clock::now();
    if (isPointerAsked(now))
        pointerQuestion = askForPointer();
    for (ChangeCollector* const changes : collectors_)
        changes->clearExpectation();
    const auto screenCookie = askForScreenDamage();
    if (stack_)
        collectWindowDamage();
    if (screenCookie)
        addScreenDamage(fetchScreenDamage(*screenCookie));
    if (pointerQuestion)
        takePointer(*pointerQuestion, now);
    else if (follower_.isMoving())
        expectPointerMove();
}

std::optional<xcb_xfixes_fetch_region_cookie_t> DesktopTracker::askForScreenDamage()
{
    if (!std::exchange(isScreenDamaged_, false))
        return std::nullopt;
    xcb_damage_subtract(connection_.get(), screenDamage_.get(), XCB_NONE, fetchedRegion_.get());
    return xcb_xfixes_fetch_region(connection_.get(), fetchedRegion_.get());
}

PixelRegion DesktopTracker::fetchScreenDamage(xcb_xfixes_fetch_region_cookie_t cookie) const
{
    return fetched(connection_.get(), cookie);
}

void DesktopTracker::collectWindowDamage()
{
    xcb_connection_t* const raw = connection_.get();
    struct Question {
        const CapturedWindow* window;
        xcb_xfixes_fetch_region_cookie_t cookie;
    };
    std::vector<Question> questions;
    for (CapturedWindow* const window : stack_->windows()) {
        if (!window->isDamaged || window->damage == XCB_NONE || !isVisible(*window))
            continue;
        window->isDamaged = false;
        mayFail(raw, xcb_damage_subtract_checked(raw, window->damage, XCB_NONE, fetchedRegion_.get()));
        questions.push_back({window, xcb_xfixes_fetch_region(raw, fetchedRegion_.get())});
    }
    std::optional<xcb_xfixes_fetch_region_cookie_t> rootCookie;
    if (std::exchange(isBareRootExpected_, false) && background_->isDamaged())
        rootCookie = background_->fetchDamage(fetchedRegion_.get());
    for (const Question& question : questions) {
        PixelRegion damage = fetched(raw, question.cookie);
        const CapturedWindow& window = *question.window;
        damage.translate(window.x + window.borderWidth, window.y + window.borderWidth);
        for (ChangeCollector* const changes : collectors_)
            changes->addDamage(stack_->windows(), window, damage, compositing_);
    }
    if (rootCookie)
        addBareRootDamage(fetched(raw, *rootCookie, std::numeric_limits<int>::max()));
}

void DesktopTracker::addBareRootDamage(const PixelRegion& rootDamage)
{
    const PixelRegion damage = bareRootDamage(stack_->windows(), rootDamage);
    bareRootDue_ = damage.isEmpty() ? Clock::now() + bareRootInterval : Clock::time_point{};
    if (damage.isEmpty())
        return;
    for (ChangeCollector* const changes : collectors_)
        changes->addRootDamage(stack_->windows(), damage);
}

void DesktopTracker::addScreenDamage(const PixelRegion& damage)
{
    notePainted(damage);
    for (ChangeCollector* const changes : collectors_) {
        if (isCopiedFromScreen(*changes))
            changes->addScreenDamage(damage);
    }
}

void DesktopTracker::compose(const Drawing& drawing, const CompositionTarget& target, const PixelRegion& region,
                             ChangeCollector& changes) const
{
    const bool isPointerDrawn = changes.showsPointer() && !isPointerHidden_;
    const auto place = isPointerDrawn ? pointerPlace_ : std::nullopt;
    if (changes.isMasked())
        composeMasked(drawing, target, region, changes, place);
    else if (showsScreen(changes))
        drawing.composer.copyScreen(target, region, background_->rootBounds(), *pointer_, place);
    else
        drawing.composer.compose(target, region,
                                 {stack_->windows(), *background_, *pointer_, changes.unpainted(), compositing_},
                                 drawing.isIncluded, place);
}

std::vector<CaptureWindow> DesktopTracker::listWindows()
{
    std::vector<CaptureWindow> list;
    if (!stack_)
        return list;
    handleEvents();
    stack_->classifyNew();
    for (const CapturedWindow& window : stack_->allWindows()) {
        if (!window.isInputOnly && !window.needsClassification)
            list.push_back(
                {window.owner.process != 0 ? std::optional(window.owner.process) : std::nullopt, window.isMapped});
    }
    return list;
}

} // namespace nimbrale::x11
