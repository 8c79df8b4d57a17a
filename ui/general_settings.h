#pragma once

#include "geometry/display_geometry.h"
#include "platform/screens.h"
#include "settings/app_settings.h"

#include <QWidget>

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

class QCheckBox;
class QComboBox;
class QSpinBox;

namespace nimbrale {

class NumberField;
class SettingsSection;

/// The displays that the frame can be on, in the system's order.
using DisplayList = std::function<std::vector<Screen>()>;

/// What is shared at the moment.
struct FramedArea {
    /// Of the display that the frame is on.
    DisplayGeometry display;
    /// Region coordinates of that display.
    Rect region;
    /// Pixels per point of that display.
    double pixelScale = 1;
};

/// Absent while nothing is shared.
using FramedAreaSource = std::function<std::optional<FramedArea>()>;

/// The controls for the frame: display, position, dimensions, frame rate, snapping and notifications. Each is bound to
/// its setting: a change is stored at once, and changes made elsewhere show with `refresh`. Where a point is not one
/// pixel, the size of the shared picture in pixels stands beside the dimensions.
class GeneralSettings final : public QWidget {
public:
    /// `settings` must outlive the widget.
    GeneralSettings(AppSettings& settings, DisplayList displays, FramedAreaSource framedArea,
                    QWidget* parent = nullptr);

    /// Shows what the settings hold, which displays there are now and what is shared. Writes nothing.
    void refresh();
    /// The part of `refresh` that follows the frame while it is dragged.
    void refreshSharedSize();

private:
    [[nodiscard]] SettingsSection* makeDisplaySection();
    [[nodiscard]] NumberField* makeNumberField(const char* label, const char* name, std::int64_t StoredRegion::*side,
                                               std::function<void(std::int64_t)> store);
    [[nodiscard]] std::int64_t nearestAllowed(std::int64_t StoredRegion::*side, std::int64_t wanted) const;
    [[nodiscard]] SettingsSection* makePositionSection();
    [[nodiscard]] SettingsSection* makeDimensionsSection();
    [[nodiscard]] SettingsSection* makePerformanceSection();
    [[nodiscard]] SettingsSection* makeSnappingSection();
    [[nodiscard]] SettingsSection* makeNotificationsSection();
    void refreshDisplays();
    void refreshNotes();

    AppSettings& settings_;
    DisplayList displays_;
    FramedAreaSource framedArea_;
    QComboBox* display_ = nullptr;
    NumberField* left_ = nullptr;
    NumberField* top_ = nullptr;
    NumberField* width_ = nullptr;
    NumberField* height_ = nullptr;
    SettingsSection* dimensionsSection_ = nullptr;
    QSpinBox* framerate_ = nullptr;
    QCheckBox* snapping_ = nullptr;
    SettingsSection* snappingSection_ = nullptr;
    QCheckBox* notifications_ = nullptr;
    SettingsSection* notificationsSection_ = nullptr;
};

} // namespace nimbrale
