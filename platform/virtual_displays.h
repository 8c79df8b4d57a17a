#pragma once

#include "platform/pixel_rect.h"
#include "platform/result.h"
#include "platform/screens.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace nimbrale {

struct VirtualDisplayDescriptor {
    std::string name;
    int maxPixelsWide = 0;
    int maxPixelsHigh = 0;
    Size sizeInMillimeters;
    std::uint32_t vendorID = 0;
    std::uint32_t productID = 0;
    std::uint32_t serialNumber = 0;
};

struct VirtualDisplayMode {
    int width = 0;  ///< pixels
    int height = 0; ///< pixels
    double refreshRate = 60;

    bool operator==(const VirtualDisplayMode&) const = default;
};

struct VirtualDisplaySettings {
    /// Whether one point of the display is two pixels.
    bool hiDPI = false;
    std::vector<VirtualDisplayMode> modes;

    bool operator==(const VirtualDisplaySettings&) const = default;
};

/// A display that exists only while this object does. Main thread only.
///
/// While no window of the application covers it, the display shows a card that says that sharing has stopped.
/// Destroying the object lets that card be seen for two frames, so that a viewer is not left with the last picture,
/// then removes the display and puts the desktop back as it was.
class VirtualDisplayDevice {
public:
    virtual ~VirtualDisplayDevice() = default;

    /// 0 when the system could not make the display.
    [[nodiscard]] virtual DisplayID displayID() const = 0;
    /// Asks for the one mode in `settings`. The size counts once `bounds` tells it.
    [[nodiscard]] virtual Result<void> applySettings(const VirtualDisplaySettings& settings) = 0;
    /// Moves the display's top-left corner. Same space as `VirtualDisplays::bounds`.
    [[nodiscard]] virtual Result<void> setOrigin(int x, int y) = 0;

    /// Called when the display turned out not to show what is put on it. The display is of no use from then on, and
    /// where the error is permanent, none that is made later will be.
    std::function<void(Error)> onUnusable;
    /// Called when a window of another program, which would have been seen on this display alone, was sent back to a
    /// display that the user sees.
    std::function<void()> onWindowReturned;
};

class VirtualDisplays {
public:
    virtual ~VirtualDisplays() = default;

    /// Fails with the reason where this system cannot make displays. Main thread only.
    [[nodiscard]] virtual Result<std::unique_ptr<VirtualDisplayDevice>>
    create(const VirtualDisplayDescriptor& descriptor) = 0;
    /// Where a display lies in the pixel space of the whole desktop, top-left origin; empty for an unknown display.
    [[nodiscard]] virtual PixelRect bounds(DisplayID displayID) const = 0;
};

} // namespace nimbrale
