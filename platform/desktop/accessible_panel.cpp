#include "platform/desktop/accessible_panel.h"

#include <QAccessible>
#include <QAccessibleObject>
#include <QGuiApplication>
#include <QPointer>
#include <QScreen>
#include <QTimer>
#include <QWindow>

#include <utility>

namespace nimbrale {

namespace {

using Controls = std::function<std::vector<AccessibleControl>()>;

/// From screen coordinates, whose origin is the primary display's bottom-left corner, to the toolkit's.
QRect inToolkit(const Rect& rect)
{
    const QScreen* const primary = QGuiApplication::primaryScreen();
    if (!primary)
        return {};
    const QRect screen = primary->geometry();
    return QRectF(screen.x() + rect.x, screen.y() + screen.height() - rect.maxY(), rect.width, rect.height).toRect();
}

class ControlInterface final : public QAccessibleInterface, public QAccessibleActionInterface {
public:
    ControlInterface(QWindow& panel, std::size_t index) : panel_(&panel), index_(index) {}

    [[nodiscard]] bool isValid() const override { return panel_ != nullptr; }
    [[nodiscard]] QObject* object() const override { return nullptr; }
    [[nodiscard]] QWindow* window() const override;
    [[nodiscard]] QAccessibleInterface* childAt(int /*x*/, int /*y*/) const override { return nullptr; }
    [[nodiscard]] QAccessibleInterface* parent() const override;
    [[nodiscard]] QAccessibleInterface* child(int /*index*/) const override { return nullptr; }
    [[nodiscard]] int childCount() const override { return 0; }
    [[nodiscard]] int indexOfChild(const QAccessibleInterface* /*child*/) const override { return -1; }
    [[nodiscard]] QString text(QAccessible::Text kind) const override;
    void setText(QAccessible::Text /*kind*/, const QString& /*text*/) override {}
    [[nodiscard]] QRect rect() const override { return inToolkit(control().frame); }
    [[nodiscard]] QAccessible::Role role() const override;
    [[nodiscard]] QAccessible::State state() const override { return {}; }
    void* interface_cast(QAccessible::InterfaceType type) override;

    [[nodiscard]] QStringList actionNames() const override;
    void doAction(const QString& action) override;
    [[nodiscard]] QStringList keyBindingsForAction(const QString& /*action*/) const override { return {}; }

private:
    [[nodiscard]] AccessibleControl control() const;

    QPointer<QWindow> panel_;
    std::size_t index_;
};

/// The window that stands for a panel.
class StandIn final : public QWindow {
public:
    StandIn(const QString& title, Controls controls) : controls_(std::move(controls)) { setTitle(title); }
    ~StandIn() override
    {
        for (const QAccessible::Id id : ids_)
            QAccessible::deleteAccessibleInterface(id);
    }
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

    [[nodiscard]] QAccessibleInterface* accessibleRoot() const override
    {
        return QAccessible::queryAccessibleInterface(const_cast<StandIn*>(this));
    }
    [[nodiscard]] std::vector<AccessibleControl> controls() const { return controls_(); }
    /// Null behind the last one.
    [[nodiscard]] QAccessibleInterface* interfaceOf(int index)
    {
        const std::size_t wanted = static_cast<std::size_t>(index);
        if (index < 0 || wanted >= controls().size())
            return nullptr;
        while (ids_.size() <= wanted)
            ids_.push_back(QAccessible::registerAccessibleInterface(new ControlInterface(*this, ids_.size())));
        return QAccessible::accessibleInterface(ids_[wanted]);
    }
    [[nodiscard]] int indexOf(const QAccessibleInterface* child) const
    {
        for (std::size_t i = 0; i < ids_.size(); ++i) {
            if (QAccessible::accessibleInterface(ids_[i]) == child)
                return static_cast<int>(i);
        }
        return -1;
    }

private:
    Controls controls_;
    /// The toolkit owns what they stand for until it is told to delete it.
    std::vector<QAccessible::Id> ids_;
};

class PanelInterface final : public QAccessibleObject {
public:
    explicit PanelInterface(StandIn& panel) : QAccessibleObject(&panel) {}

    [[nodiscard]] QWindow* window() const override { return &panel(); }
    [[nodiscard]] QAccessibleInterface* parent() const override { return QAccessible::queryAccessibleInterface(qApp); }
    [[nodiscard]] QAccessibleInterface* child(int index) const override { return panel().interfaceOf(index); }
    [[nodiscard]] int childCount() const override { return static_cast<int>(panel().controls().size()); }
    [[nodiscard]] int indexOfChild(const QAccessibleInterface* child) const override { return panel().indexOf(child); }
    [[nodiscard]] QString text(QAccessible::Text kind) const override
    {
        return kind == QAccessible::Name ? panel().title() : QString();
    }
    [[nodiscard]] QRect rect() const override
    {
        QRect around;
        for (const AccessibleControl& control : panel().controls())
            around |= inToolkit(control.frame);
        return around;
    }
    [[nodiscard]] QAccessible::Role role() const override { return QAccessible::Window; }
    [[nodiscard]] QAccessible::State state() const override { return {}; }

private:
    [[nodiscard]] StandIn& panel() const { return *static_cast<StandIn*>(object()); }
};

QWindow* ControlInterface::window() const
{
    return panel_;
}

QAccessibleInterface* ControlInterface::parent() const
{
    return panel_ ? panel_->accessibleRoot() : nullptr;
}

AccessibleControl ControlInterface::control() const
{
    if (!panel_)
        return {};
    const std::vector<AccessibleControl> controls = static_cast<const StandIn*>(panel_.data())->controls();
    return index_ < controls.size() ? controls[index_] : AccessibleControl{};
}

QString ControlInterface::text(QAccessible::Text kind) const
{
    return kind == QAccessible::Name ? QString::fromStdString(control().name) : QString();
}

QAccessible::Role ControlInterface::role() const
{
    return control().press ? QAccessible::PushButton : QAccessible::Grip;
}

void* ControlInterface::interface_cast(QAccessible::InterfaceType type)
{
    const bool isPressed = type == QAccessible::ActionInterface && control().press;
    return isPressed ? static_cast<QAccessibleActionInterface*>(this) : nullptr;
}

QStringList ControlInterface::actionNames() const
{
    return control().press ? QStringList{pressAction()} : QStringList{};
}

void ControlInterface::doAction(const QString& action)
{
    // A press may end the panel, which the toolkit goes on to look at within this call.
    if (const AccessibleControl pressed = control(); action == pressAction() && pressed.press)
        QTimer::singleShot(0, panel_, pressed.press);
}

QAccessibleInterface* interfaceFor(const QString& /*className*/, QObject* object)
{
    StandIn* const panel = dynamic_cast<StandIn*>(object);
    return panel ? new PanelInterface(*panel) : nullptr;
}

void tell(QWindow& window, QAccessible::Event what)
{
    QAccessibleEvent event(&window, what);
    QAccessible::updateAccessibility(&event);
}

} // namespace

AccessiblePanel::AccessiblePanel(const std::string& title, Controls controls)
    : window_(std::make_unique<StandIn>(QString::fromStdString(title), std::move(controls)))
{
    // Installed once, however often it is asked for.
    QAccessible::installFactory(interfaceFor);
    tell(*window_, QAccessible::ObjectCreated);
}

AccessiblePanel::~AccessiblePanel()
{
    tell(*window_, QAccessible::ObjectDestroyed);
}

} // namespace nimbrale
