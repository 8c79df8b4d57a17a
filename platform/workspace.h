#pragma once

#include "platform/event_time.h"
#include "platform/geometry.h"
#include "platform/observers.h"
#include "platform/termination.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale {

enum class AlertStyle { informational, warning };

struct Alert {
    AlertStyle style = AlertStyle::informational;
    std::string message;
    std::string informativeText;
    /// The first one is the default button. At least one.
    std::vector<std::string> buttons;

    bool operator==(const Alert&) const = default;
};

/// What the user is told in passing. Plain text without `&`, `<` and `>`, which some desktops take for markup.
struct Notification {
    std::string title;
    std::string text;

    bool operator==(const Notification&) const = default;
};

struct FolderQuestion {
    /// What the folder is for.
    std::string message;
    /// The button that takes the folder.
    std::string prompt;
    /// Where the choice begins.
    std::filesystem::path start;

    bool operator==(const FolderQuestion&) const = default;
};

/// What assistive technology learns of a control that a panel draws.
struct AccessibleControl {
    /// UTF-8, translated.
    std::string name;
    /// Screen coordinates.
    Rect frame;
    /// Does what a click does; empty for a control that is only dragged. It may release whatever the control belongs
    /// to.
    std::function<void()> press;
};

/// A question to the user that is open. Closes it, without an answer, when it goes; that has no effect once it was
/// answered. May go within the answer.
class OpenQuestion {
public:
    virtual ~OpenQuestion() = default;
};

/// The application among the user's other applications. Main thread only.
class Workspace {
public:
    virtual ~Workspace() = default;

    /// Brings a window of the toolkit, by its native identifier, to the front and gives it the keyboard, as far as the
    /// desktop lets it. `cause` is when the user did what asks for it; absent, it counts as done now. Show the window
    /// first.
    virtual void activate(std::uintptr_t nativeWindow, std::optional<EventTime> cause) = 0;
    /// Opens a location by its scheme; false when it is no location or nothing opens such.
    virtual bool openLocation(const std::string& location) = 0;

    /// Application-modal, in front and active. `onAnswer` gets the index of the pressed button; closing the alert
    /// counts as the last one.
    [[nodiscard]] virtual std::unique_ptr<OpenQuestion> showAlert(const Alert& alert,
                                                                  std::function<void(int button)> onAnswer) = 0;
    /// Shows a notification in the desktop's own way. `onNotShown` is called later, on the main queue, where nothing on
    /// this desktop shows any: nobody was told then.
    virtual void notify(const Notification& notification, std::function<void()> onNotShown) = 0;
    /// The native windows of the alerts that are open now; called when one comes or goes.
    std::function<void(const std::vector<std::uintptr_t>& windows)> onAlertsChanged;
    /// Alerts never stand on the display of that name, which others see. Without any other display they wait for one.
    virtual void keepAlertsOffDisplay(const std::string& name) = 0;

    /// Shows a file in the user's file manager, selected where that can be done. What fails is logged.
    virtual void revealFile(const std::filesystem::path& file) = 0;
    /// Application-modal. `onChosen` gets an existing folder, or nothing when the user cancels.
    [[nodiscard]] virtual std::unique_ptr<OpenQuestion>
    chooseFolder(const FolderQuestion& question,
                 std::function<void(const std::optional<std::filesystem::path>& folder)> onChosen) = 0;
    /// What the user knows a folder by; UTF-8. Never empty for a path that is not.
    [[nodiscard]] virtual std::string folderName(const std::filesystem::path& folder) const = 0;

    /// Tells assistive technology of a panel's controls for as long as the subscription lives. `controls` is asked
    /// whenever somebody wants to know, and always tells of the same number. `title` is what the panel is known by;
    /// UTF-8.
    [[nodiscard]] virtual Subscription describeControls(const std::string& title,
                                                        std::function<std::vector<AccessibleControl>()> controls) = 0;

    /// Ends text editing in every window of the toolkit.
    virtual void dropKeyboardFocus() = 0;

    /// Asks the application to quit: it ends in order once `termination()` has granted it. Who asks again while the
    /// answer is awaited changes nothing. The desktop's own wishes, such as the end of the session, come this way too.
    virtual void terminate() = 0;
    /// Whether the application has been asked to quit and is ending or deciding.
    [[nodiscard]] virtual bool isTerminating() const = 0;
    [[nodiscard]] virtual Termination& termination() = 0;
};

} // namespace nimbrale
