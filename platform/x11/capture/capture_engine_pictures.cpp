// How the capture thread finds out what changed and when it composes.

#include "platform/x11/capture/capture_engine.h"
#include "platform/x11/server/handles.h"

#include <algorithm>
#include <limits>
#include <poll.h>
#include <xcb/damage.h>
#include <xcb/sync.h>
#include <xcb/xfixes.h>

namespace nimbrale::x11 {

namespace {

/// Past this many rectangles their bounding box is cheaper than the requests for each.
constexpr int mostRectangles = 24;

/// Programs that set the pointer's place themselves announce it by no event: now and then it is asked for.
constexpr std::chrono::milliseconds pointerPollInterval{200};

/// Whatever is drawn anywhere is damage of the root, and hardly ever the root's own: unless it was the last time, it is
/// looked through no more often than this.
constexpr std::chrono::milliseconds bareRootInterval{200};

/// For how long events may wait for the next picture: others go by the pointer's moves, which come with them.
constexpr std::chrono::milliseconds longestDeafness{50};

PixelRegion fetched(xcb_connection_t* connection, xcb_xfixes_fetch_region_cookie_t cookie, int most = mostRectangles)
{
    PixelRegion region;
    const Reply<xcb_xfixes_fetch_region_reply_t> reply(xcb_xfixes_fetch_region_reply(connection, cookie, nullptr));
    if (!reply)
        return region;
    const int count = xcb_xfixes_fetch_region_rectangles_length(reply.get());
    if (count > most) {
        region.add(reply->extents.x, reply->extents.y, reply->extents.width, reply->extents.height);
        return region;
    }
    const xcb_rectangle_t* const rects = xcb_xfixes_fetch_region_rectangles(reply.get());
    for (int index = 0; index < count; ++index)
        region.add(rects[index].x, rects[index].y, rects[index].width, rects[index].height);
    return region;
}

} // namespace

bool CaptureEngine::hasWork(const CaptureSession& session) const
{
    return hasDamage_ || !session.dirty.isEmpty() || mode_ == Mode::rootTimed ||
           (session.configuration.showsCursor && isPointerStale_);
}

std::optional<std::chrono::nanoseconds> CaptureEngine::composeDue()
{
    if (stack_)
        stack_->classifyNew();
    std::optional<std::chrono::nanoseconds> wait;
    const auto now = Clock::now();
    isPointerStale_ |= isPointerShown() && now - pointerAsked_ >= pointerPollInterval;
    if (background_->isDamaged() && !sessions_.empty()) {
        if (isBareRootDue(now))
            hasDamage_ = true;
        else
            wait = bareRootDue_ - now;
    }
    std::vector<CaptureSession*> due;
    for (const auto& session : sessions_) {
        if (!hasWork(*session) || session->isWaitingForOwner())
            continue;
        const auto remaining = session->lastFrame + session->configuration.interval - now;
        if (remaining.count() <= 0)
            due.push_back(session.get());
        else
            wait = std::min(wait.value_or(remaining), remaining);
    }
    if (due.empty())
        return wait;
    collectChanges();
    for (CaptureSession* const session : due)
        compose(*session, now);
    // What was composed may be followed by more that came meanwhile, which the next turn finds.
    return wait;
}

void CaptureEngine::collectChanges()
{
    if (mode_ == Mode::rootTimed) {
        for (const auto& session : sessions_)
            session->markAllDirty();
    }
    xcb_connection_t* const raw = connection_->get();
    struct Question {
        CapturedWindow* window;
        xcb_xfixes_fetch_region_cookie_t cookie;
    };
    // All questions first, then all answers: one round trip a picture.
    std::vector<Question> questions;
    if (stack_) {
        for (const auto& window : stack_->windows()) {
            if (!window->isDamaged || window->damage == XCB_NONE || !isRelevant(*window))
                continue;
            window->isDamaged = false;
            mayFail(raw, xcb_damage_subtract_checked(raw, window->damage, XCB_NONE, fetchedRegion_));
            questions.push_back({window.get(), xcb_xfixes_fetch_region(raw, fetchedRegion_)});
        }
    }
    std::optional<xcb_query_pointer_cookie_t> pointerCookie;
    if (isPointerStale_ || !connection_->extensions().input.isPresent) {
        pointerCookie = xcb_query_pointer(raw, connection_->root());
        pointerAsked_ = Clock::now();
    }
    std::optional<xcb_xfixes_fetch_region_cookie_t> rootCookie;
    if (isBareRootDue(Clock::now()))
        rootCookie = background_->fetchDamage(fetchedRegion_);
    if (hasDamage_ && mode_ == Mode::rootDamage)
        collectRootDamage();
    hasDamage_ = false;
    isPointerStale_ = false;

    for (const Question& question : questions) {
        PixelRegion damage = fetched(raw, question.cookie);
        const CapturedWindow& window = *question.window;
        damage.translate(window.x + window.borderWidth, window.y + window.borderWidth);
        damage &= window.extents();
        for (const auto& session : sessions_) {
            if (!session->includes(window))
                continue;
            PixelRegion visible(damage);
            subtractHidden(visible, window, *session);
            session->markDirty(visible);
        }
    }
    if (rootCookie)
        markBareRoot(fetched(raw, *rootCookie, std::numeric_limits<int>::max()));
    if (!pointerCookie)
        return;
    const Reply<xcb_query_pointer_reply_t> pointer(xcb_query_pointer_reply(raw, *pointerCookie, nullptr));
    if (pointer)
        movePointer({pointer->root_x, pointer->root_y});
}

bool CaptureEngine::isBareRootDue(Clock::time_point now) const
{
    return background_->isDamaged() && now >= bareRootDue_;
}

void CaptureEngine::markBareRoot(PixelRegion damage)
{
    for (const auto& window : stack_->windows()) {
        if (window->isMapped && !window->isInputOnly)
            damage -= window->extents();
    }
    bareRootDue_ = damage.isEmpty() ? Clock::now() + bareRootInterval : Clock::time_point{};
    if (damage.isEmpty())
        return;
    for (const auto& session : sessions_) {
        session->markDirty(damage);
        // What the root shows where a window that is left out covers it may be new as well.
        for (const auto& window : stack_->windows()) {
            if (window->isMapped && !window->isInputOnly && !session->includes(*window))
                session->markDirty(window->extents());
        }
    }
}

void CaptureEngine::collectRootDamage()
{
    xcb_connection_t* const raw = connection_->get();
    xcb_damage_subtract(raw, rootDamage_, XCB_NONE, fetchedRegion_);
    const PixelRegion damage = fetched(raw, xcb_xfixes_fetch_region(raw, fetchedRegion_));
    for (const auto& session : sessions_)
        session->markDirty(damage);
}

void CaptureEngine::subtractHidden(PixelRegion& region, const CapturedWindow& window,
                                   const CaptureSession& session) const
{
    bool isAbove = false;
    for (const auto& other : stack_->windows()) {
        if (other.get() == &window) {
            isAbove = true;
            continue;
        }
        if (!isAbove || !other->isMapped || other->picture == XCB_NONE || !session.includes(*other) ||
            !RegionComposer::isOpaque(*connection_, *other, isComposited_))
            continue;
        if (region.isEmpty())
            return;
        region -= other->extents();
    }
}

void CaptureEngine::movePointer(const PointerPlace& place)
{
    if (pointerPlace_ && pointerPlace_->rootX == place.rootX && pointerPlace_->rootY == place.rootY)
        return;
    pointerPlace_ = place;
    redrawPointer();
    // A place that a program set came without an event.
    if (callbacks_.onPointerMoved)
        callbacks_.onPointerMoved();
}

void CaptureEngine::redrawPointer()
{
    if (!pointerPlace_)
        return;
    const PixelRect coverage = pointer_->coverage(pointerPlace_->rootX, pointerPlace_->rootY);
    for (const auto& session : sessions_) {
        if (!session->configuration.showsCursor)
            continue;
        session->markDirty(PixelRegion(session->pointerCoverage));
        session->markDirty(PixelRegion(coverage));
        session->pointerCoverage = coverage;
    }
}

void CaptureEngine::compose(CaptureSession& session, Clock::time_point now)
{
    if (session.dirty.isEmpty())
        return;
    if (session.dirty.count() > mostRectangles)
        session.dirty = PixelRegion(session.dirty.bounds());
    const auto pointer = session.configuration.showsCursor ? pointerPlace_ : std::nullopt;
    if (stack_)
        session.composer->compose(
            session.dirty, {*stack_, *background_, *pointer_, isComposited_},
            [&session](const CapturedWindow& window) { return session.includes(window); }, pointer);
    else
        session.composer->copyRoot(session.dirty, *pointer_, pointer);

    session.dirty.translate(-session.configuration.source.x, -session.configuration.source.y);
    auto surface = std::make_shared<X11Surface>(session.composer->pixmap(), session.dirty.rects(), mark(session));
    session.dirty.clear();
    connection_->flush();
    // Continuous changes keep the phase of the interval; after idleness it starts anew.
    const bool isContinuous = now - session.lastFrame < 2 * session.configuration.interval;
    session.lastFrame = isContinuous ? session.lastFrame + session.configuration.interval : now;
    session.deliver(std::move(surface));
}

SyncPoint CaptureEngine::mark(CaptureSession& session)
{
    if (session.counter == XCB_NONE) {
        connection_->synchronize();
        return {};
    }
    const std::int64_t value = ++session.counterValue;
    xcb_sync_set_counter(connection_->get(), session.counter,
                         {std::int32_t(value >> 32), std::uint32_t(value & 0xffffffff)});
    return {session.counter, value};
}

std::optional<std::chrono::nanoseconds> CaptureEngine::timeToNextTick() const
{
    std::optional<std::chrono::nanoseconds> next;
    const auto now = Clock::now();
    for (const auto& session : sessions_) {
        const std::chrono::nanoseconds remaining = session->lastFrame + session->configuration.interval - now;
        if (remaining.count() <= 0)
            return std::nullopt;
        next = std::min(next.value_or(remaining), remaining);
    }
    return next;
}

void CaptureEngine::sleep(std::optional<std::chrono::nanoseconds> wait)
{
    // Waiting for a reply may have queued events that the socket will not announce again.
    if (Reply<xcb_generic_event_t> event{xcb_poll_for_queued_event(connection_->get())}) {
        handle(*event);
        return;
    }
    // Between two pictures there is no need to look at the server: its events pile up cheaply, and each look would wake
    // the processor.
    const std::optional<std::chrono::nanoseconds> tick = timeToNextTick();
    const bool isBetweenTicks = tick && *tick <= longestDeafness;
    if (isBetweenTicks)
        wait = std::min(wait.value_or(*tick), *tick);
    if (!wait && isPointerShown())
        wait = pointerPollInterval;
    pollfd descriptors[] = {{wakeDescriptor_, POLLIN, 0}, {xcb_get_file_descriptor(connection_->get()), POLLIN, 0}};
    const nfds_t count = isBetweenTicks ? 1 : 2;
    timespec timeout{};
    if (wait) {
        timeout.tv_sec = wait->count() / 1'000'000'000;
        timeout.tv_nsec = wait->count() % 1'000'000'000;
    }
    ppoll(descriptors, count, wait ? &timeout : nullptr, nullptr);
}

bool CaptureEngine::isPointerShown() const
{
    return std::any_of(sessions_.begin(), sessions_.end(),
                       [](const auto& session) { return session->configuration.showsCursor; });
}

} // namespace nimbrale::x11
