#pragma once

#include "geometry/picture_size.h"
#include "platform/main_queue.h"
#include "platform/result.h"
#include "platform/screens.h"
#include "platform/virtual_displays.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace nimbrale {

/// One extra display that holds nothing but the shared picture, so that a meeting application can share it whole. Its
/// size in pixels follows the framed area; it lies beyond the bottom-right corner of all other displays, where neither
/// pointer nor windows get to by accident. Exists while this object does. Main thread only.
class VirtualDisplay : public std::enable_shared_from_this<VirtualDisplay> {
public:
    /// Fails with the reason where the system cannot make a display. What it is given must outlive the object.
    [[nodiscard]] static Result<std::shared_ptr<VirtualDisplay>> create(VirtualDisplays& virtualDisplays,
                                                                        Screens& screens, MainQueue& mainQueue);
    ~VirtualDisplay();
    VirtualDisplay(const VirtualDisplay&) = delete;
    VirtualDisplay& operator=(const VirtualDisplay&) = delete;

    /// The virtual display of this process, while there is one.
    [[nodiscard]] static std::optional<DisplayID> currentDisplayID();

    [[nodiscard]] DisplayID displayID() const { return device_->displayID(); }
    /// What lists of displays call it.
    [[nodiscard]] static std::string name();

    /// Called on the main queue when the display turned out to be of no use. The object may be released in the call.
    std::function<void(Error)> onUnusable;
    /// Called on the main queue when a window that others had put on the display was sent back.
    std::function<void()> onWindowReturned;

    /// Gives the display the pixels of a picture of `size` points at `scale` pixels per point, as far as the display
    /// goes. Half a second later the size is checked and, up to four times in all, asked for again; only the newest
    /// request is followed up.
    void resize(Size size, double scale);

    /// The display among the screens; absent as long as the system does not list it.
    [[nodiscard]] std::optional<Screen> screen() const;

private:
    VirtualDisplay(VirtualDisplays& virtualDisplays, Screens& screens, MainQueue& mainQueue,
                   std::unique_ptr<VirtualDisplayDevice> device);

    void apply(int attempt, std::int64_t generation);
    void check(int attempt, std::int64_t generation);
    void placeOutOfTheWay();

    VirtualDisplays& virtualDisplays_;
    Screens& screens_;
    MainQueue& mainQueue_;
    std::unique_ptr<VirtualDisplayDevice> device_;
    PixelSize targetPixels_;
    std::int64_t generation_ = 0;
};

} // namespace nimbrale
