#include "ui/settings_window.h"

#include <QCoreApplication>
#include <QEvent>
#include <QScreen>
#include <QScrollArea>
#include <QShortcut>
#include <QVBoxLayout>

#include <utility>

namespace nimbrale {

namespace {

/// The part of a small screen that the window leaves free at least.
constexpr double largestShareOfScreen = 0.9;

} // namespace

SettingsWindow::SettingsWindow(AppSettings& settings, DisplayList displays)
    : general_(new GeneralSettings(settings, std::move(displays)))
{
    setObjectName("Settings");
    setWindowTitle(QCoreApplication::translate("SettingsWindow", "Settings"));
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
    resize(general_->sizeHint().boundedTo(screen()->availableSize() * largestShareOfScreen));

    connect(new QShortcut(QKeySequence::Close, this), &QShortcut::activated, this, [this] { close(); });
    settingsObserver_ = settings.observeChanges([this] { scheduleRefresh(); });
}

void SettingsWindow::present()
{
    if (isMinimized())
        showNormal();
    show();
    raise();
    activateWindow();
}

void SettingsWindow::displaysDidChange()
{
    scheduleRefresh();
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
    QDialog::changeEvent(event);
    if (event->type() == QEvent::ActivationChange)
        setKey(isVisible() && isActiveWindow());
}

void SettingsWindow::showEvent(QShowEvent* event)
{
    general_->refresh();
    QDialog::showEvent(event);
}

void SettingsWindow::hideEvent(QHideEvent* event)
{
    QDialog::hideEvent(event);
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
