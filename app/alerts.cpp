#include "app/alerts.h"

#include <QCoreApplication>

namespace nimbrale::alerts {

namespace {

std::string translated(const char* text)
{
    return QCoreApplication::translate("AppDelegate", text).toStdString();
}

} // namespace

Alert capturePermissionNeeded()
{
    Alert alert;
    alert.style = AlertStyle::warning;
    alert.message = translated(QT_TRANSLATE_NOOP("AppDelegate", "Screen Recording permission needed"));
    alert.informativeText =
        translated(QT_TRANSLATE_NOOP("AppDelegate", "Nimbrale needs permission to record your screen. Turn it on in "
                                                    "System Settings → Privacy & Security → Screen & System Audio "
                                                    "Recording, then quit and reopen the app."));
    alert.buttons = {translated(QT_TRANSLATE_NOOP("AppDelegate", "Open System Settings")),
                     translated(QT_TRANSLATE_NOOP("AppDelegate", "Quit"))};
    return alert;
}

Alert captureCouldNotStart(const Error& error)
{
    Alert alert;
    alert.style = AlertStyle::warning;
    alert.message = translated(QT_TRANSLATE_NOOP("AppDelegate", "Screen capture couldn't start"));
    alert.informativeText = error.message;
    alert.buttons = {translated(QT_TRANSLATE_NOOP("AppDelegate", "Try Again")),
                     translated(QT_TRANSLATE_NOOP("AppDelegate", "Quit"))};
    return alert;
}

Notification windowToShare(const std::string& title)
{
    const QString text = QCoreApplication::translate(
        "AppDelegate", "This desktop has no virtual display. In your meeting, share the window “%1”.");
    return {translated(QT_TRANSLATE_NOOP("AppDelegate", "Share the window instead of a display")),
            text.arg(QString::fromStdString(title)).toStdString()};
}

Alert windowToShareInstead(const std::string& title)
{
    const Notification notification = windowToShare(title);
    Alert alert;
    alert.style = AlertStyle::informational;
    alert.message = notification.title;
    alert.informativeText = notification.text;
    alert.buttons = {translated(QT_TRANSLATE_NOOP("AppDelegate", "OK"))};
    return alert;
}

Notification windowWasReturned()
{
    return {
        translated(QT_TRANSLATE_NOOP("AppDelegate", "A window was moved back to your display")),
        translated(QT_TRANSLATE_NOOP("AppDelegate", "It was on the virtual display, which only your meeting sees."))};
}

Alert captureIsLimited(const std::vector<std::string>& limitations)
{
    Alert alert;
    alert.style = AlertStyle::informational;
    alert.message = translated(QT_TRANSLATE_NOOP("AppDelegate", "Sharing is limited on this desktop"));
    for (const std::string& limitation : limitations)
        alert.informativeText += (alert.informativeText.empty() ? "" : "\n") + limitation;
    alert.buttons = {translated(QT_TRANSLATE_NOOP("AppDelegate", "OK"))};
    return alert;
}

} // namespace nimbrale::alerts
