// How a virtual display begins and ends: made or taken over, left for viewers of it or taken down.

#include "platform/log.h"
#include "platform/x11/displays/randr_change.h"
#include "platform/x11/virtual_display/caretaker.h"
#include "platform/x11/virtual_display/screen_readers.h"
#include "platform/x11/virtual_display/x11_virtual_display.h"

#include <string>
#include <thread>
#include <utility>

namespace nimbrale::x11 {

namespace {

// Until the first size is asked for: enough for a monitor, and next to nothing on the screen.
constexpr int initialWidth = 160;
constexpr int initialHeight = 90;

} // namespace

Result<std::unique_ptr<X11VirtualDisplay>> X11VirtualDisplay::create(const Environment& environment,
                                                                     const VirtualDisplayDescriptor& descriptor)
{
    Connection& connection = environment.connection;
    auto claim = VirtualDisplayClaim::waitFor(connection);
    if (!claim) {
        return fail(ErrorCode::unsupported, "Another running " + descriptor.name +
                                                " already has the virtual display of this screen. Share the window "
                                                "instead, or quit the other one.");
    }
    RandrLayout layout(connection);
    auto left = findLeftover(connection, layout, descriptor.name);
    const bool isOurs = left && left->name == connection.atom(descriptor.name) && left->outputs.size() <= 1;
    if (!isOurs || left->pixels.isEmpty()) {
        left.reset();
        removeLeftovers(connection, layout, descriptor.name);
    }

    std::unique_ptr<X11VirtualDisplay> display(new X11VirtualDisplay(environment, descriptor, std::move(claim)));
    display->hasCaretaker_ = startCaretaker(environment.displayName);
    display->ensurePrimary();
    if (left) {
        display->takeOver(*left);
        return display;
    }
    if (const auto made = display->configure(display->atCorner(initialWidth, initialHeight)); !made)
        return tl::make_unexpected(made.error());
    return display;
}

// What the desktop was like before a display that is taken over, the one who made that has recorded.
void X11VirtualDisplay::beginRecord(const std::string& name)
{
    Connection& connection = environment_.connection;
    if (const auto left = VirtualDisplayRecord::read(connection)) {
        record_ = *left;
        if (left->card != XCB_WINDOW_NONE) {
            removeLasting(connection, left->earlierCard);
            record_.earlierCard = std::exchange(record_.card, XCB_WINDOW_NONE);
        }
    } else {
        record_.primaryBefore = layout_.primaryOutput();
    }
    record_.monitor = connection.atom(name);
    record_.write(connection);
}

// No viewer notices: the monitor is not touched where it is in its place, and shows what it showed until the new
// windows are there.
void X11VirtualDisplay::takeOver(const RandrMonitor& left)
{
    pixels_ = left.pixels;
    output_ = left.outputs.empty() ? XCB_NONE : left.outputs.front();
    isAnnounced_ = true;
    if (pixels_ == atCorner(pixels_.width, pixels_.height))
        realBounds_ = layout_.realBounds(record_.monitor);
    ensureCard();
    environment_.area.takeOver(pixels_);
    card_->layOut(pixels_);
    barriers_.surround(pixels_);
    environment_.screens.refresh();
    if (environment_.area.isVerified())
        removeEarlierCard();
    check();
}

void X11VirtualDisplay::removeEarlierCard()
{
    if (record_.earlierCard == XCB_WINDOW_NONE)
        return;
    removeLasting(environment_.connection, std::exchange(record_.earlierCard, XCB_WINDOW_NONE));
    record_.write(environment_.connection);
    environment_.connection.flush();
}

X11VirtualDisplay::~X11VirtualDisplay()
{
    Connection& connection = environment_.connection;
    screenChanges_.reset();
    outputChanges_.reset();
    rootChanges_.reset();
    claimChanges_.reset();
    checkTimer_.reset();
    environment_.area.onVerified = nullptr;
    environment_.area.onLate = nullptr;
    environment_.area.onUnusable = nullptr;
    if (isClaimLost_) {
        environment_.area.setPixels({}, [] {});
        return;
    }
    if (card_ && !connection.isLost()) {
        card_->raise();
        connection.synchronize();
    }
    if (leave())
        return;
    // A viewer keeps the last picture of a display that goes, so the card must have been seen before.
    if (card_ && !connection.isLost())
        std::this_thread::sleep_for(lastPictureTime);
    takeDown();
    card_.reset();
    removeEarlierCard();
    barriers_.surround({});
    restorePrimary(layout_, record_);
    VirtualDisplayRecord::erase(connection);
    environment_.screens.setOwnMonitor(XCB_ATOM_NONE);
    environment_.screens.refresh();
}

// Some viewers end, with everything that their user has in them, when a display that they share goes.
bool X11VirtualDisplay::leave()
{
    Connection& connection = environment_.connection;
    const bool isThere = isAnnounced_ && isScreenBigEnough() && layout_.monitor(record_.monitor);
    if (!isThere || !hasCaretaker_ || !isScreenRead(connection) || !card_->leave())
        return false;
    environment_.area.leave();
    return true;
}

// The display and the screen under it go in one moment: a picture of the place that the display had finds no screen
// there.
void X11VirtualDisplay::takeDown()
{
    const bool isThere = layout_.monitor(record_.monitor).has_value();
    const PixelRect real = layout_.realBounds(record_.monitor);
    const std::vector<RandrPanning> pannings = layout_.pannings();
    const PixelRect screen = layout_.screenPixels();
    RandrChange change(environment_.connection);
    environment_.area.setPixels({}, [&] {
        if (isThere)
            change.deleteMonitor(record_.monitor);
        if (!real.isEmpty() && (screen.width != real.x + real.width || screen.height != real.y + real.height))
            change.setScreenSize(real.x + real.width, real.y + real.height, pitch_, pannings);
    });
    if (const auto changed = change.finish(); !changed)
        qCCritical(virtualDisplayLog).noquote() << QString::fromStdString(changed.error().message);
}

} // namespace nimbrale::x11
