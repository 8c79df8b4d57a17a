#pragma once

#include "platform/workspace.h"

#include <QObject>
#include <QPointer>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class QMessageBox;
class QScreen;
class QWidget;

namespace nimbrale {

/// The alerts that are open, as message boxes of the toolkit, each on a display that only the user sees. Lives while
/// the application object exists, on its thread; alerts that are open when it goes are closed without an answer.
class AlertBoxes final : public QObject {
public:
    /// `activate` brings a window that is shown to the front and gives it the keyboard.
    explicit AlertBoxes(std::function<void(std::uintptr_t nativeWindow)> activate);
    ~AlertBoxes() override;
    AlertBoxes(const AlertBoxes&) = delete;
    AlertBoxes& operator=(const AlertBoxes&) = delete;

    [[nodiscard]] std::unique_ptr<OpenQuestion> show(const Alert& alert, std::function<void(int button)> onAnswer);
    /// No alert stands on the display of that name from now on.
    void keepOffDisplay(const std::string& name);
    /// Puts a window that is not shown yet in the middle of a display that only the user sees. False without one.
    bool place(QWidget& window) const;

    /// The native windows of all that are open.
    std::function<void(const std::vector<std::uintptr_t>& windows)> onChanged;

private:
    class Open;

    void remove(QMessageBox* box);
    void tellChange();
    void placeAll();
    void watch(QScreen* screen);
    [[nodiscard]] bool isSeenByOthers(const QScreen& screen) const;
    [[nodiscard]] QScreen* usersScreen() const;

    std::function<void(std::uintptr_t)> activate_;
    std::string avoidedDisplay_;
    std::vector<QPointer<QMessageBox>> boxes_;
};

} // namespace nimbrale
