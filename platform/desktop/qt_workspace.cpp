#include "platform/desktop/qt_workspace.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDesktopServices>
#include <QFileInfo>
#include <QLabel>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QUrl>

#include <algorithm>
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

} // namespace

QtWorkspace::~QtWorkspace()
{
    for (const QPointer<QMessageBox>& alert : alerts_)
        delete alert.data();
}

void QtWorkspace::activate()
{
    for (QWidget* window : QApplication::topLevelWidgets()) {
        if (!window->isVisible() || window->windowType() == Qt::ToolTip || window->windowType() == Qt::Popup)
            continue;
        window->raise();
        window->activateWindow();
    }
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

void QtWorkspace::showAlert(const Alert& alert, std::function<void(int button)> onAnswer)
{
    auto* box = new QMessageBox;
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::ApplicationModal);
    box->setIcon(alert.style == AlertStyle::warning ? QMessageBox::Warning : QMessageBox::Information);
    box->setWindowTitle(QApplication::applicationDisplayName());
    box->setText(QString::fromStdString(alert.message));
    box->setInformativeText(QString::fromStdString(alert.informativeText));
    showAsPlainText(*box);

    std::vector<QAbstractButton*> buttons;
    for (const std::string& label : alert.buttons)
        buttons.push_back(box->addButton(QString::fromStdString(label), roleOf(buttons.size(), alert.buttons.size())));
    box->setDefaultButton(qobject_cast<QPushButton*>(buttons.front()));
    box->setEscapeButton(buttons.back());

    QObject::connect(box, &QMessageBox::finished, box, [box, buttons, onAnswer = std::move(onAnswer)] {
        const auto pressed = std::ranges::find(buttons, box->clickedButton());
        const auto index = pressed == buttons.end() ? buttons.size() - 1 : pressed - buttons.begin();
        const auto answer = onAnswer; // The answer may end the workspace, and this connection with it.
        answer(static_cast<int>(index));
    });

    std::erase_if(alerts_, [](const QPointer<QMessageBox>& closed) { return closed.isNull(); });
    alerts_.emplace_back(box);
    box->show();
    box->raise();
    box->activateWindow();
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
