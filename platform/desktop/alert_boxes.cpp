#include "platform/desktop/alert_boxes.h"

#include <QAbstractButton>
#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QWindow>

#include <algorithm>
#include <utility>

namespace nimbrale {

namespace {

QMessageBox::ButtonRole roleOf(std::size_t index, std::size_t count)
{
    if (index == 0)
        return QMessageBox::AcceptRole;
    return index + 1 == count ? QMessageBox::RejectRole : QMessageBox::ActionRole;
}

/// Errors quote what others wrote, which must never be taken for markup.
void showAsPlainText(const QMessageBox& box)
{
    for (QLabel* label : box.findChildren<QLabel*>())
        label->setTextFormat(Qt::PlainText);
}

std::vector<QAbstractButton*> fill(QMessageBox& box, const Alert& alert)
{
    box.setWindowModality(Qt::ApplicationModal);
    box.setIcon(alert.style == AlertStyle::warning ? QMessageBox::Warning : QMessageBox::Information);
    box.setWindowTitle(QApplication::applicationDisplayName());
    box.setText(QString::fromStdString(alert.message));
    box.setInformativeText(QString::fromStdString(alert.informativeText));
    showAsPlainText(box);
    std::vector<QAbstractButton*> buttons;
    for (const std::string& label : alert.buttons)
        buttons.push_back(box.addButton(QString::fromStdString(label), roleOf(buttons.size(), alert.buttons.size())));
    box.setDefaultButton(qobject_cast<QPushButton*>(buttons.front()));
    box.setEscapeButton(buttons.back());
    return buttons;
}

} // namespace

/// What the caller holds. The box may be answered, or the boxes be gone, before it.
class AlertBoxes::Open final : public OpenQuestion {
public:
    Open(AlertBoxes& boxes, QMessageBox* box) : boxes_(&boxes), box_(box) {}
    ~Open() override
    {
        if (boxes_ && box_)
            boxes_->remove(box_);
    }
    Open(const Open&) = delete;
    Open& operator=(const Open&) = delete;

private:
    QPointer<AlertBoxes> boxes_;
    QPointer<QMessageBox> box_;
};

AlertBoxes::AlertBoxes(std::function<void(std::uintptr_t)> activate) : activate_(std::move(activate))
{
    for (QScreen* screen : QGuiApplication::screens())
        watch(screen);
    connect(qGuiApp, &QGuiApplication::screenAdded, this, [this](QScreen* screen) {
        watch(screen);
        placeAll();
    });
    // The screen that goes is still listed while it is told of.
    connect(qGuiApp, &QGuiApplication::screenRemoved, this, &AlertBoxes::placeAll, Qt::QueuedConnection);
}

AlertBoxes::~AlertBoxes()
{
    onChanged = nullptr;
    for (const QPointer<QMessageBox>& box : std::exchange(boxes_, {}))
        delete box.data();
}

std::unique_ptr<OpenQuestion> AlertBoxes::show(const Alert& alert, std::function<void(int button)> onAnswer)
{
    auto* box = new QMessageBox;
    const std::vector<QAbstractButton*> buttons = fill(*box, alert);
    connect(box, &QMessageBox::finished, this, [this, box, buttons, onAnswer = std::move(onAnswer)] {
        const auto pressed = std::ranges::find(buttons, box->clickedButton());
        const auto index = pressed == buttons.end() ? buttons.size() - 1 : pressed - buttons.begin();
        const auto answer = onAnswer; // The answer may end all of this, and the connection with it.
        remove(box);
        answer(static_cast<int>(index));
    });
    boxes_.emplace_back(box);
    placeAll();
    return std::make_unique<Open>(*this, box);
}

void AlertBoxes::keepOffDisplay(const std::string& name)
{
    avoidedDisplay_ = name;
    placeAll();
}

void AlertBoxes::remove(QMessageBox* box)
{
    if (std::erase(boxes_, box) == 0)
        return;
    // It may be in the middle of telling its answer.
    box->disconnect(this);
    box->hide();
    box->deleteLater();
    tellChange();
}

void AlertBoxes::tellChange()
{
    std::vector<std::uintptr_t> windows;
    for (const QPointer<QMessageBox>& box : boxes_) {
        if (box->isVisible())
            windows.push_back(box->winId());
    }
    if (onChanged)
        onChanged(windows);
}

void AlertBoxes::watch(QScreen* screen)
{
    connect(screen, &QScreen::geometryChanged, this, &AlertBoxes::placeAll);
}

bool AlertBoxes::isSeenByOthers(const QScreen& screen) const
{
    return !avoidedDisplay_.empty() && screen.name().toStdString() == avoidedDisplay_;
}

QScreen* AlertBoxes::usersScreen() const
{
    QScreen* const primary = QGuiApplication::primaryScreen();
    if (primary && !isSeenByOthers(*primary))
        return primary;
    // The toolkit's primary screen may be the shared one.
    const QList<QScreen*> screens = QGuiApplication::screens();
    const auto found = std::ranges::find_if(
        screens, [this](const QScreen* screen) { return !isSeenByOthers(*screen) && !screen->geometry().isEmpty(); });
    return found == screens.end() ? nullptr : *found;
}

bool AlertBoxes::place(QWidget& window) const
{
    QScreen* const screen = usersScreen();
    if (!screen)
        return false;
    window.winId(); // Only a native window belongs to a screen.
    window.windowHandle()->setScreen(screen);
    window.adjustSize();
    QRect frame(QPoint(0, 0), window.size());
    frame.moveCenter(screen->availableGeometry().center());
    window.move(frame.topLeft());
    return true;
}

void AlertBoxes::placeAll()
{
    bool isChanged = false;
    for (const QPointer<QMessageBox>& box : boxes_) {
        const bool isWell = box->isVisible() && box->screen() && !isSeenByOthers(*box->screen()) &&
                            box->screen()->geometry().intersects(box->frameGeometry());
        if (isWell)
            continue;
        isChanged = true;
        box->hide();
        if (!place(*box))
            continue;
        box->show();
        activate_(box->winId());
    }
    if (isChanged)
        tellChange();
}

} // namespace nimbrale
