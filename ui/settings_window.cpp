#include "ui/settings_window.h"

#include <QCoreApplication>
#include <QEvent>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QShortcut>
#include <QVBoxLayout>

#include <utility>

namespace nimbrale {

namespace {

/// The part of a small screen's height that the window takes at most.
constexpr double largestShareOfScreen = 0.85;

/// As large as `content` wants, or as the screen allows, with room for the scroll bar then.
QSize sizeFor(const QScrollArea& scrollArea, const QWidget& content)
{
    const QSize wanted = content.sizeHint();
    const int largestHeight = static_cast<int>(scrollArea.screen()->availableSize().height() * largestShareOfScreen);
    if (wanted.height() <= largestHeight)
        return wanted;
    return {wanted.width() + scrollArea.verticalScrollBar()->sizeHint().width(), largestHeight};
}

} // namespace

SettingsWindow::SettingsWindow(AppSettings& settings, DisplayList displays, FramedAreaSource framedArea)
    : general_(new GeneralSettings(settings, std::move(displays), std::move(framedArea)))
{
    setObjectName("Settings");
    setWindowTitle(QCoreApplication::translate("SettingsWindow", "Nimbrale Settings"));
    setWindowFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowSystemMenuHint | Qt::WindowMinimizeButtonHint |
                   Qt::WindowCloseButtonHint);

    auto* scrollArea = new QScrollArea;
    scrollArea->setFrameShape(QFrame::NoFrame);
    scrollArea->setWidgetResizable(true);
    scrollArea->setFocusPolicy(Qt::NoFocus);
    scrollArea->setWidget(general_);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(scrollArea);
    resize(sizeFor(*scrollArea, *general_));

    for (const QKeySequence& keys : {QKeySequence(QKeySequence::Close), QKeySequence(Qt::Key_Escape)})
        connect(new QShortcut(keys, this), &QShortcut::activated, this, [this] { close(); });
    settingsObserver_ = settings.observeChanges([this] { scheduleRefresh(); });
}

void SettingsWindow::present()
{
    if (isMinimized())
        showNormal();
    show();
    raise();
}

void SettingsWindow::displaysDidChange()
{
    scheduleRefresh();
}

void SettingsWindow::framedAreaDidChange()
{
    if (isVisible())
        general_->refreshSharedSize();
}

void SettingsWindow::scheduleRefresh()
{
    // Observers hear of a change before it is made, and often of several in a row.
    if (isRefreshScheduled_ || !isVisible())
        return;
    isRefreshScheduled_ = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            isRefreshScheduled_ = false;
            general_->refresh();
        },
        Qt::QueuedConnection);
}

void SettingsWindow::changeEvent(QEvent* event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ActivationChange)
        setKey(isVisible() && isActiveWindow());
}

void SettingsWindow::showEvent(QShowEvent* event)
{
    general_->refresh();
    QWidget::showEvent(event);
}

void SettingsWindow::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    setKey(false);
}

void SettingsWindow::setKey(bool isKey)
{
    if (isKey_ == isKey)
        return;
    isKey_ = isKey;
    if (onKeyChanged)
        onKeyChanged(isKey);
}

} // namespace nimbrale
