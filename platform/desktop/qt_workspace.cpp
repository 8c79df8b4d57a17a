#include "platform/desktop/qt_workspace.h"

#include "platform/desktop/accessible_panel.h"
#include "platform/desktop/folder_names.h"

#include <QApplication>
#include <QDesktopServices>
#include <QFileDialog>
#include <QFileInfo>
#include <QPointer>
#include <QProcess>
#include <QUrl>

#include <utility>

namespace nimbrale {

namespace {

constexpr int longestHandlerQuestion = 2000; // milliseconds

/// The toolkit reports success as soon as a program that may open the location has started. Whether anything opens it
/// must be asked before.
bool hasHandler(const QString& scheme)
{
    QProcess question;
    question.start(QStringLiteral("xdg-mime"),
                   {QStringLiteral("query"), QStringLiteral("default"), QStringLiteral("x-scheme-handler/") + scheme},
                   QIODevice::ReadOnly);
    if (!question.waitForFinished(longestHandlerQuestion))
        return false; // The process is ended with its object.
    return question.exitStatus() == QProcess::NormalExit && !question.readAllStandardOutput().trimmed().isEmpty();
}

/// Goes with the dialog that it holds.
class OpenFolderDialog final : public OpenQuestion {
public:
    explicit OpenFolderDialog(QFileDialog* dialog) : dialog_(dialog) {}
    ~OpenFolderDialog() override
    {
        if (!dialog_)
            return;
        // It may be in the middle of telling its answer.
        dialog_->disconnect();
        dialog_->hide();
        dialog_->deleteLater();
    }
    OpenFolderDialog(const OpenFolderDialog&) = delete;
    OpenFolderDialog& operator=(const OpenFolderDialog&) = delete;

private:
    QPointer<QFileDialog> dialog_;
};

} // namespace

QtWorkspace::QtWorkspace(Activator activator)
    : activator_(std::move(activator)), alerts_([this](std::uintptr_t window) { activate(window, std::nullopt); }),
      fileManager_([](const std::filesystem::path& folder) {
          return QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(folder.string())));
      })
{
    alerts_.onChanged = [this](const std::vector<std::uintptr_t>& windows) {
        if (onAlertsChanged)
            onAlertsChanged(windows);
    };
}

QtWorkspace::~QtWorkspace() = default;

void QtWorkspace::activate(std::uintptr_t nativeWindow, std::optional<EventTime> cause)
{
    QWidget* const window = QWidget::find(nativeWindow);
    if (!window)
        return;
    window->raise();
    if (activator_)
        activator_(nativeWindow, cause);
    else
        window->activateWindow();
}

bool QtWorkspace::openLocation(const std::string& location)
{
    const QUrl url(QString::fromStdString(location), QUrl::StrictMode);
    if (!url.isValid() || url.isRelative())
        return false;
    const bool canBeOpened = url.isLocalFile() ? QFileInfo::exists(url.toLocalFile()) : hasHandler(url.scheme());
    if (!canBeOpened)
        return false;
    return QDesktopServices::openUrl(url);
}

std::unique_ptr<OpenQuestion> QtWorkspace::showAlert(const Alert& alert, std::function<void(int button)> onAnswer)
{
    return alerts_.show(alert, std::move(onAnswer));
}

void QtWorkspace::notify(const Notification& notification, std::function<void()> onNotShown)
{
    notifications_.show(notification, std::move(onNotShown));
}

void QtWorkspace::keepAlertsOffDisplay(const std::string& name)
{
    alerts_.keepOffDisplay(name);
}

void QtWorkspace::revealFile(const std::filesystem::path& file)
{
    fileManager_.reveal(file);
}

std::unique_ptr<OpenQuestion>
QtWorkspace::chooseFolder(const FolderQuestion& question,
                          std::function<void(const std::optional<std::filesystem::path>& folder)> onChosen)
{
    auto* dialog = new QFileDialog(nullptr, QString::fromStdString(question.message),
                                   QString::fromStdString(question.start.string()));
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly);
    dialog->setLabelText(QFileDialog::Accept, QString::fromStdString(question.prompt));
    dialog->setWindowModality(Qt::ApplicationModal);
    QObject::connect(dialog, &QFileDialog::finished, dialog, [dialog, onChosen = std::move(onChosen)](int result) {
        const QStringList files = dialog->selectedFiles();
        const auto tell = onChosen; // The call may end the dialog, and this connection with it.
        dialog->deleteLater();
        if (result == QDialog::Accepted && !files.isEmpty())
            tell(std::filesystem::path(files.front().toStdString()));
        else
            tell(std::nullopt);
    });
    alerts_.place(*dialog);
    dialog->show();
    activate(dialog->winId(), std::nullopt);
    return std::make_unique<OpenFolderDialog>(dialog);
}

std::string QtWorkspace::folderName(const std::filesystem::path& folder) const
{
    return folderDisplayName(folder);
}

Subscription QtWorkspace::describeControls(const std::string& title,
                                           std::function<std::vector<AccessibleControl>()> controls)
{
    return std::make_shared<AccessiblePanel>(title, std::move(controls));
}

void QtWorkspace::dropKeyboardFocus()
{
    for (const QWidget* window : QApplication::topLevelWidgets()) {
        if (QWidget* const focused = window->focusWidget())
            focused->clearFocus();
    }
}

void QtWorkspace::terminate()
{
    termination_.ask([this](bool isGranted) {
        if (!isGranted || std::exchange(isEnding_, true))
            return;
        // Windows are not asked: every change in them is stored already.
        QMetaObject::invokeMethod(
            QCoreApplication::instance(), [] { QCoreApplication::exit(0); }, Qt::QueuedConnection);
    });
}

} // namespace nimbrale
