#include "ui/settings_window.h"

#include <QCoreApplication>
#include <QEvent>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QShortcut>
#include <QSignalBlocker>
#include <QTabWidget>
#include <QVBoxLayout>

#include <utility>

namespace nimbrale {

namespace {

/// The part of a small screen's height that the window takes at most.
constexpr double largestShareOfScreen = 0.85;

/// A page that scrolls where the screen is too small for it.
class Page final : public QScrollArea {
public:
    explicit Page(QWidget* content)
    {
        setFrameShape(QFrame::NoFrame);
        setWidgetResizable(true);
        setFocusPolicy(Qt::NoFocus);
        setWidget(content);
    }

    /// As large as the content wants, or as the screen allows, with room for the scroll bar then.
    [[nodiscard]] QSize sizeHint() const override
    {
        const QSize wanted = widget()->sizeHint();
        const int largestHeight = static_cast<int>(screen()->availableSize().height() * largestShareOfScreen);
        if (wanted.height() <= largestHeight)
            return wanted;
        return {wanted.width() + verticalScrollBar()->sizeHint().width(), largestHeight};
    }
};

} // namespace

SettingsWindow::SettingsWindow(AppSettings& settings, const Sources& sources)
    : settings_(settings), tabs_(new QTabWidget),
      general_(new GeneralSettings(settings, sources.displays, sources.framedArea)),
      webcam_(new WebcamSettings(settings, sources.cameras)),
      recording_(new RecordingSettings(settings, sources.microphones, sources.recordingFolder))
{
    setObjectName("Settings");
    setWindowTitle(QCoreApplication::translate("SettingsWindow", "Nimbrale Settings"));
    setWindowFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowSystemMenuHint | Qt::WindowMinimizeButtonHint |
                   Qt::WindowCloseButtonHint);

    tabs_->setDocumentMode(true);
    addTab(general_, QCoreApplication::translate("SettingsWindow", "General"));
    addTab(webcam_, QCoreApplication::translate("SettingsWindow", "Webcam"));
    addTab(recording_, QCoreApplication::translate("SettingsWindow", "Recording"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(tabs_);
    resize(sizeHint());
    connect(tabs_, &QTabWidget::currentChanged, this,
            [this](int index) { settings_.setSettingsTab(static_cast<AppSettings::SettingsTab>(index)); });

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

void SettingsWindow::addTab(QWidget* page, const QString& title)
{
    tabs_->addTab(new Page(page), title);
}

void SettingsWindow::devicesDidChange()
{
    scheduleRefresh();
}

void SettingsWindow::recordingFolderDidChange()
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
            refresh();
        },
        Qt::QueuedConnection);
}

void SettingsWindow::refresh()
{
    general_->refresh();
    webcam_->refresh();
    recording_->refresh();
    const QSignalBlocker blocker(tabs_);
    tabs_->setCurrentIndex(static_cast<int>(settings_.settingsTab()));
}

void SettingsWindow::changeEvent(QEvent* event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ActivationChange)
        setKey(isVisible() && isActiveWindow());
}

void SettingsWindow::showEvent(QShowEvent* event)
{
    refresh();
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
