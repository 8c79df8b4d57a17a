#include "platform/x11/virtual_display/x11_virtual_display.h"

#include "platform/log.h"
#include "platform/x11/displays/randr_change.h"
#include "platform/x11/server/events.h"
#include "platform/x11/virtual_display/dead_areas.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

namespace nimbrale::x11 {

namespace {

using namespace std::chrono_literals;

// A display being plugged in or arranged announces itself several times.
constexpr auto settleDelay = 50ms;
constexpr auto retryDelay = 200ms;
// Who asks for a size tries that often before giving up. What stands in the way may pass: the displays being arranged
// by another program at that moment, say.
constexpr int mostRefusals = 4;

// A window manager that fits the screen to the displays that it knows answers each of ours at once. Nobody has seen the
// display before it is announced, so there is nothing to save from one that does.
constexpr int mostUnseenTakeBacks = 3;

// A difference in the pixel pitch below this comes from rounding to whole millimetres.
constexpr double pitchTolerance = 0.01;

constexpr int largestCoordinate = std::numeric_limits<std::int16_t>::max();

bool differsMuch(double first, double second)
{
    return std::abs(first - second) > pitchTolerance * second;
}

} // namespace

X11VirtualDisplay::X11VirtualDisplay(const Environment& environment, const VirtualDisplayDescriptor& descriptor,
                                     std::unique_ptr<VirtualDisplayClaim> claim)
    : environment_(environment), layout_(environment.connection), claim_(std::move(claim)),
      maximumWidth_(descriptor.maxPixelsWide), maximumHeight_(descriptor.maxPixelsHigh), pitch_(layout_.initialPitch()),
      barriers_(environment.connection), strays_(environment.connection, environment.events, environment.mainQueue)
{
    beginRecord(descriptor.name);
    displayID_ = environment.screens.displayIDForMonitor(record_.monitor);
    environment.screens.setOwnMonitor(record_.monitor);
    strays_.onReturned = [this] {
        if (onWindowReturned)
            onWindowReturned();
    };
    environment.area.onVerified = [this] { areaVerified(); };
    environment.area.onLate = [this] { repeatScreenSize(); };
    environment.area.onUnusable = [this](Error error) { becomeUnusable(std::move(error)); };
    const int randr = environment.connection.extensions().randr.firstEvent;
    screenChanges_ = environment.events.add({randr + XCB_RANDR_SCREEN_CHANGE_NOTIFY}, [this](const auto& event) {
        screenChanged(eventAs<xcb_randr_screen_change_notify_event_t>(event));
    });
    outputChanges_ = environment.events.add({randr + XCB_RANDR_NOTIFY}, [this](const auto& event) {
        giveOutputBack(eventAs<xcb_randr_notify_event_t>(event));
        checkSoon(settleDelay);
    });
    claimChanges_ = environment.events.add({XCB_SELECTION_CLEAR}, [this](const auto& event) {
        if (eventAs<xcb_selection_clear_event_t>(event).owner == claim_->window())
            loseClaim();
    });
    rootChanges_ = environment.events.add({XCB_CONFIGURE_NOTIFY}, [this](const auto& event) {
        if (eventAs<xcb_configure_notify_event_t>(event).window != environment_.connection.root())
            return;
        takeScreenBack();
        checkSoon(settleDelay);
    });
}

Result<void> X11VirtualDisplay::applySettings(const VirtualDisplaySettings& settings)
{
    if (isUnusable_)
        return fail(ErrorCode::permanent, "The virtual display cannot be used any more.");
    if (settings.modes.size() != 1 || settings.hiDPI)
        return fail(ErrorCode::unsupported, "The virtual display takes one mode of one pixel per point.");
    const VirtualDisplayMode& mode = settings.modes.front();
    if (mode.width < 1 || mode.height < 1 || mode.width > maximumWidth_ || mode.height > maximumHeight_) {
        return fail(ErrorCode::unsupported, "The virtual display cannot be " + std::to_string(mode.width) + "×" +
                                                std::to_string(mode.height) + " pixels big.");
    }
    const PixelRect wanted = atCorner(mode.width, mode.height);
    auto applied = isInPlace(wanted) ? Result<void>() : configure(wanted);
    refusals_ = applied ? 0 : refusals_ + 1;
    // A smaller picture of what is framed would be a wrong one, so there is no staying with the size before.
    if (refusals_ >= mostRefusals)
        becomeUnusable(applied.error());
    return applied;
}

Result<void> X11VirtualDisplay::setOrigin(int x, int y)
{
    if (isUnusable_)
        return fail(ErrorCode::permanent, "The virtual display cannot be used any more.");
    if (x < 0 || y < 0)
        return fail(ErrorCode::unsupported, "The virtual display cannot lie to the left of or above the X screen.");
    return configure({x, y, pixels_.width, pixels_.height});
}

// The monitor bears an output that nothing is plugged into, where there is one. GDK asks the server for the first
// output of every monitor, past the end of the list where there is none, and the X error that it then gets ends a
// screen capture that another thread of the same browser sets up at that moment: each change of a screen would put the
// share at risk.
//
// Everything is asked before and everything is done at once, so that no other program sees the desktop without the
// display, or the display without its windows, and the server never waits for this process in between. What changed
// meanwhile shows as a refusal, or at the next check.
Result<void> X11VirtualDisplay::configure(const PixelRect& pixels)
{
    if (pixels.x + pixels.width > largestCoordinate || pixels.y + pixels.height > largestCoordinate)
        return fail(ErrorCode::unsupported, "There is no room for the virtual display beside the other displays.");
    const auto existing = layout_.monitor(record_.monitor);
    const std::vector<xcb_randr_output_t> borne =
        output_ == XCB_NONE ? std::vector<xcb_randr_output_t>{} : std::vector<xcb_randr_output_t>{output_};
    if (existing && (existing->isAutomatic || existing->outputs != borne))
        return fail(ErrorCode::unsupported, "Another display bears the name of the virtual display.");
    const xcb_randr_output_t idle = layout_.idleOutput(record_.monitor, output_);
    const PixelRect real = layout_.realBounds(record_.monitor);
    const PixelRect screenBefore = layout_.screenPixels();
    const PixelRect needed = real.unitedWith(pixels);
    const PixelRect screen = {0, 0, needed.x + needed.width, needed.y + needed.height};
    const std::vector<RandrPanning> pannings = layout_.pannings();
    const bool isDefined = !isAnnounced_ || (existing && existing->pixels == pixels && idle == output_);
    ensureCard();

    RandrChange change(environment_.connection);
    environment_.area.setPixels(pixels, [&] {
        if (existing && !isDefined)
            change.deleteMonitor(record_.monitor);
        if (!isDefined)
            change.setMonitor(record_.monitor, pixels, pitch_, idle);
        if (screen != screenBefore)
            change.setScreenSize(screen.width, screen.height, pitch_, pannings);
        paintBlack(environment_.connection, deadAreas(screen, real, pixels));
    });
    const Result<void> changed = change.finish();
    if (changed) {
        // Another program's change of the displays, undone before they have settled, does not make the place right.
        if (pixels_ != pixels)
            realBounds_ = real;
        pixels_ = pixels;
        output_ = isAnnounced_ ? idle : xcb_randr_output_t{XCB_NONE};
    } else if (existing && !putBack(*existing, screenBefore)) {
        return fail(ErrorCode::permanent, "The X server took the virtual display away.");
    }
    card_->layOut(pixels_);
    barriers_.surround(pixels_);
    strays_.setPlace(pixels_, real);
    if (changed && !isAnnounced_ && environment_.area.isVerified())
        return announce();
    environment_.screens.refresh();
    return changed;
}

void X11VirtualDisplay::ensureCard()
{
    if (card_)
        return;
    card_.emplace(environment_.connection, environment_.events, environment_.mainQueue, environment_.area,
                  environment_.displayName);
    card_->onRemade = [this] { recordCard(); };
    recordCard();
}

void X11VirtualDisplay::recordCard()
{
    record_.card = card_->window();
    record_.write(environment_.connection);
    environment_.connection.flush();
}

// Before the area is known to show what is put there, no viewer may look at it: a compositing manager that has not yet
// heard of the card may paint anything.
Result<void> X11VirtualDisplay::announce()
{
    isAnnounced_ = true;
    return configure(pixels_);
}

void X11VirtualDisplay::areaVerified()
{
    removeEarlierCard();
    // A compositing manager may have drawn the memory that it has for them once more.
    paintBlack(environment_.connection, deadAreas(layout_.screenPixels(), realBounds_, pixels_));
    environment_.connection.flush();
    if (isAnnounced_ || isUnusable_)
        return;
    if (const auto announced = announce(); !announced)
        qCWarning(virtualDisplayLog).noquote() << QString::fromStdString(announced.error().message);
}

void X11VirtualDisplay::repeatScreenSize()
{
    const PixelRect screen = layout_.screenPixels();
    const std::vector<RandrPanning> pannings = layout_.pannings();
    RandrChange change(environment_.connection);
    change.repeatScreenSize(screen.width, screen.height, pitch_, pannings);
    if (const auto repeated = change.finish(); !repeated)
        qCWarning(virtualDisplayLog).noquote() << QString::fromStdString(repeated.error().message);
}

Result<void> X11VirtualDisplay::putBack(const RandrMonitor& before, const PixelRect& screenBefore)
{
    const std::vector<RandrPanning> pannings = layout_.pannings();
    const bool isThere = layout_.monitor(record_.monitor).has_value();
    const bool isScreenChanged = layout_.screenPixels() != screenBefore;
    RandrChange change(environment_.connection);
    environment_.area.setPixels(before.pixels, [&] {
        if (isThere)
            change.deleteMonitor(record_.monitor);
        change.setMonitor(record_.monitor, before.pixels, pitch_, output_);
        if (isScreenChanged)
            change.setScreenSize(screenBefore.width, screenBefore.height, pitch_, pannings);
    });
    return change.finish();
}

PixelRect X11VirtualDisplay::atCorner(int width, int height) const
{
    const PixelRect real = layout_.realBounds(record_.monitor);
    return {real.x + real.width, real.y + real.height, width, height};
}

bool X11VirtualDisplay::isScreenBigEnough() const
{
    const PixelRect screen = layout_.screenPixels();
    return screen.width >= pixels_.x + pixels_.width && screen.height >= pixels_.y + pixels_.height;
}

bool X11VirtualDisplay::isInPlace(const PixelRect& wanted) const
{
    const auto monitor = layout_.monitor(record_.monitor);
    const bool isOutputIdle = output_ == XCB_NONE || layout_.idleOutput(record_.monitor, output_) == output_;
    const bool isMonitorRight = isAnnounced_ ? monitor && monitor->pixels == wanted && isOutputIdle : !monitor;
    return isMonitorRight && wanted == pixels_ && isScreenBigEnough();
}

// Without a primary display ours would be the first in every list, and the primary of programs started later.
void X11VirtualDisplay::ensurePrimary()
{
    if (layout_.hasPrimaryMonitor())
        return;
    const xcb_randr_output_t output = layout_.outputForPrimary(record_.monitor);
    if (output == XCB_NONE)
        return;
    layout_.setPrimaryOutput(output);
    record_.primarySet = output;
    record_.write(environment_.connection);
}

void X11VirtualDisplay::screenChanged(const xcb_randr_screen_change_notify_event_t& change)
{
    if (change.width && change.height && change.mwidth && change.mheight) {
        const PixelPitch now{static_cast<double>(change.mwidth) / change.width,
                             static_cast<double>(change.mheight) / change.height};
        if (differsMuch(now.horizontal, pitch_.horizontal) || differsMuch(now.vertical, pitch_.vertical))
            pitch_ = now;
    }
    checkSoon(settleDelay);
}

// A viewer that looks at a display that is off the screen may end the share for good, so the screen does not wait for
// the displays to settle.
void X11VirtualDisplay::takeScreenBack()
{
    if (isUnusable_ || pixels_.isEmpty() || isScreenBigEnough())
        return;
    if (!isAnnounced_ && ++unseenTakeBacks_ > mostUnseenTakeBacks) {
        becomeUnusable({ErrorCode::permanent, "This desktop does not leave the screen larger than its displays, so "
                                              "there can be no virtual display. Share the window instead."});
        return;
    }
    const auto now = CorrectionLimiter::Clock::now();
    if (takeBacks_.delay(now) > CorrectionLimiter::Clock::duration::zero() || !mayCorrect())
        return;
    takeBacks_.note(now);
    if (const auto configured = configure(pixels_); !configured)
        qCWarning(virtualDisplayLog).noquote() << QString::fromStdString(configured.error().message);
}

// A display that is plugged into the output has no monitor of its own for as long as ours bears it.
void X11VirtualDisplay::giveOutputBack(const xcb_randr_notify_event_t& event)
{
    if (event.subCode != XCB_RANDR_NOTIFY_OUTPUT_CHANGE || output_ == XCB_NONE || event.u.oc.output != output_)
        return;
    if (event.u.oc.connection == XCB_RANDR_CONNECTION_DISCONNECTED && event.u.oc.crtc == XCB_NONE)
        return;
    if (const auto configured = configure(pixels_); !configured)
        qCWarning(virtualDisplayLog).noquote() << QString::fromStdString(configured.error().message);
}

void X11VirtualDisplay::checkSoon(std::chrono::milliseconds delay)
{
    if (!checkTimer_ && !isUnusable_)
        checkTimer_ = environment_.mainQueue.schedule(delay, [this] { check(); });
}

void X11VirtualDisplay::check()
{
    checkTimer_.reset();
    if (isUnusable_)
        return;
    ensurePrimary();
    const PixelRect real = layout_.realBounds(record_.monitor);
    PixelRect wanted = pixels_;
    if (real != realBounds_ && !real.isEmpty())
        wanted = atCorner(pixels_.width, pixels_.height);
    if (isInPlace(wanted)) {
        isCorrecting_ = false;
        return;
    }
    if (!mayCorrect()) {
        becomeUnusable({ErrorCode::unsupported,
                        "Another program keeps taking the virtual display off the screen. Share "
                        "the window instead."});
        return;
    }
    isCorrecting_ = false;
    if (!configure(wanted))
        checkSoon(retryDelay);
}

// What is put right at once and what is put right when the displays have settled answer the same change.
bool X11VirtualDisplay::mayCorrect()
{
    const auto now = CorrectionLimiter::Clock::now();
    if (!isCorrecting_ && corrections_.delay(now) > CorrectionLimiter::Clock::duration::zero())
        return false;
    if (!isCorrecting_)
        corrections_.note(now);
    isCorrecting_ = true;
    return true;
}

// Two processes took it in the same moment. The display is the other's now, under the same name.
void X11VirtualDisplay::loseClaim()
{
    isClaimLost_ = true;
    becomeUnusable({ErrorCode::unsupported, "Another running instance has taken the virtual display of this screen. "
                                            "Share the window instead, or quit the other one."});
}

void X11VirtualDisplay::becomeUnusable(Error error)
{
    if (isUnusable_)
        return;
    isUnusable_ = true;
    checkTimer_.reset();
    qCCritical(virtualDisplayLog).noquote() << QString::fromStdString(error.message);
    // Told later: whoever is told may destroy this object, which a caller up the stack still uses.
    unusableTimer_ = environment_.mainQueue.schedule(0ms, [this, error = std::move(error)] {
        const auto tell = onUnusable;
        if (tell)
            tell(error);
    });
}

} // namespace nimbrale::x11
