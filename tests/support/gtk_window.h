#pragma once

#include "tests/support/private_desktop.h"

#include <QPoint>
#include <QRect>

#include <cstdint>
#include <memory>
#include <string>

namespace nimbrale::test {

/// A window of another application that draws its own decoration, with a button that opens a menu and a text that has a
/// tooltip; and notifications, sent to the session's own service. A process of its own, nimbrale_gtk_window. Positions
/// are root pixels.
class GtkWindow {
public:
    /// Null, after a failure of the test, when it does not start.
    [[nodiscard]] static std::unique_ptr<GtkWindow> start(PrivateDesktop& desktop);
    ~GtkWindow();

    /// The window manager has the last word about the place.
    void show(const QRect& geometry);
    /// Where to click for the menu.
    [[nodiscard]] QPoint menuButton();
    /// Where the pointer rests for the tooltip.
    [[nodiscard]] QPoint tooltipPlace();
    [[nodiscard]] std::uint32_t identifier();
    /// Shows a notification that stays until it is dismissed: its number. The title has no blanks.
    std::string notify(const std::string& title);
    void dismiss(const std::string& number);

private:
    explicit GtkWindow(std::unique_ptr<Process> process) : process_(std::move(process)) {}
    std::string command(const std::string& line);
    [[nodiscard]] QPoint placeFrom(const std::string& line);

    std::unique_ptr<Process> process_;
};

} // namespace nimbrale::test
