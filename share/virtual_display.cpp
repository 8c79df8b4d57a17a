#include "share/virtual_display.h"

#include "geometry/display_geometry.h"
#include "platform/log.h"

#include <algorithm>
#include <chrono>

namespace nimbrale {

namespace {

constexpr const char* displayName = "Nimbrale";
constexpr int maxPixelsWide = 7680;
constexpr int maxPixelsHigh = 4320;
constexpr double refreshRate = 60;
constexpr int lastAttempt = 4;
constexpr std::chrono::milliseconds settlingTime{500};

/// Read by the capture, which must never capture its own output.
std::optional<DisplayID> existingDisplayID;

[[nodiscard]] Rect asRect(const PixelRect& rect)
{
    return {static_cast<double>(rect.x), static_cast<double>(rect.y), static_cast<double>(rect.width),
            static_cast<double>(rect.height)};
}

} // namespace

Result<std::shared_ptr<VirtualDisplay>> VirtualDisplay::create(VirtualDisplays& virtualDisplays, Screens& screens,
                                                               MainQueue& mainQueue)
{
    VirtualDisplayDescriptor descriptor;
    descriptor.name = displayName;
    descriptor.maxPixelsWide = maxPixelsWide;
    descriptor.maxPixelsHigh = maxPixelsHigh;
    descriptor.sizeInMillimeters = {600, 340};
    descriptor.vendorID = 0x5350;
    descriptor.productID = 0x5350;
    descriptor.serialNumber = 1;

    auto device = virtualDisplays.create(descriptor);
    if (!device)
        return tl::make_unexpected(device.error());
    if ((*device)->displayID() == 0)
        return fail(ErrorCode::permanent, "The system made a display without an identifier.");
    auto display =
        std::shared_ptr<VirtualDisplay>(new VirtualDisplay(virtualDisplays, screens, mainQueue, std::move(*device)));
    // Handed on through the queue, so that the device may be destroyed by whoever hears of it.
    display->device_->onUnusable = [weak = std::weak_ptr(display), &mainQueue](const Error& error) {
        mainQueue.post([weak, error] {
            const auto self = weak.lock();
            if (self && self->onUnusable)
                self->onUnusable(error);
        });
    };
    display->device_->onWindowReturned = [weak = std::weak_ptr(display), &mainQueue] {
        mainQueue.post([weak] {
            const auto self = weak.lock();
            if (self && self->onWindowReturned)
                self->onWindowReturned();
        });
    };
    return display;
}

VirtualDisplay::VirtualDisplay(VirtualDisplays& virtualDisplays, Screens& screens, MainQueue& mainQueue,
                               std::unique_ptr<VirtualDisplayDevice> device)
    : virtualDisplays_(virtualDisplays), screens_(screens), mainQueue_(mainQueue), device_(std::move(device))
{
    existingDisplayID = device_->displayID();
}

VirtualDisplay::~VirtualDisplay()
{
    existingDisplayID.reset();
}

std::optional<DisplayID> VirtualDisplay::currentDisplayID()
{
    return existingDisplayID;
}

std::string VirtualDisplay::name()
{
    return displayName;
}

void VirtualDisplay::resize(Size size, double scale)
{
    const std::int64_t wantedWidth = truncatedToInteger(roundHalfAwayFromZero(size.width * scale));
    const std::int64_t wantedHeight = truncatedToInteger(roundHalfAwayFromZero(size.height * scale));
    const std::int64_t width = std::min<std::int64_t>(wantedWidth, maxPixelsWide);
    const std::int64_t height = std::min<std::int64_t>(wantedHeight, maxPixelsHigh);
    if (width < 1 || height < 1)
        return;
    targetPixels_ = {width, height};
    ++generation_;
    apply(1, generation_);
}

std::optional<Screen> VirtualDisplay::screen() const
{
    return findScreen(screens_, device_->displayID());
}

void VirtualDisplay::apply(int attempt, std::int64_t generation)
{
    VirtualDisplaySettings settings;
    // One point is one pixel on this display, so that its bounds can be compared with the wanted pixels.
    settings.hiDPI = false;
    settings.modes = {{static_cast<int>(targetPixels_.width), static_cast<int>(targetPixels_.height), refreshRate}};
    if (const Result<void> applied = device_->applySettings(settings); !applied) {
        qCCritical(virtualDisplayLog, "Couldn't apply size %ld×%ld", static_cast<long>(targetPixels_.width),
                   static_cast<long>(targetPixels_.height));
        qCInfo(virtualDisplayLog, "%s", applied.error().message.c_str());
    }
    mainQueue_.postAfter(settlingTime, [weak = weak_from_this(), attempt, generation] {
        if (const auto self = weak.lock())
            self->check(attempt, generation);
    });
}

void VirtualDisplay::check(int attempt, std::int64_t generation)
{
    if (generation != generation_)
        return;
    const PixelRect bounds = virtualDisplays_.bounds(device_->displayID());
    if (PixelSize{bounds.width, bounds.height} == targetPixels_) {
        placeOutOfTheWay();
        return;
    }
    if (attempt >= lastAttempt) {
        qCCritical(virtualDisplayLog, "Stuck at %ld×%ld, wanted %ld×%ld", static_cast<long>(bounds.width),
                   static_cast<long>(bounds.height), static_cast<long>(targetPixels_.width),
                   static_cast<long>(targetPixels_.height));
        return;
    }
    apply(attempt + 1, generation);
}

void VirtualDisplay::placeOutOfTheWay()
{
    Rect others = Rect::null();
    for (const Screen& screen : screens_.screens()) {
        const Rect bounds = asRect(virtualDisplays_.bounds(screen.displayID));
        if (screen.displayID != device_->displayID() && !bounds.isEmpty())
            others = others.unitedWith(bounds);
    }
    if (others.isNull())
        return;
    const Point corner{others.maxX(), others.maxY()};
    if (asRect(virtualDisplays_.bounds(device_->displayID())).origin() == corner)
        return;
    const Result<void> moved = device_->setOrigin(static_cast<int>(corner.x), static_cast<int>(corner.y));
    if (!moved)
        qCInfo(virtualDisplayLog, "Couldn't move the display: %s", moved.error().message.c_str());
}

} // namespace nimbrale
