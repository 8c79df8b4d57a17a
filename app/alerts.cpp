#include "app/alerts.h"

#include <QCoreApplication>

namespace nimbrale::alerts {

namespace {

std::string translated(const char* text)
{
    return QCoreApplication::translate("AppDelegate", text).toStdString();
}

std::string withPath(const char* text, const std::filesystem::path& path)
{
    return QCoreApplication::translate("AppDelegate", text).arg(QString::fromStdString(path.string())).toStdString();
}

Alert oneButtonAlert(AlertStyle style, const std::string& message, const std::string& informativeText)
{
    return {style, message, informativeText, {translated(QT_TRANSLATE_NOOP("AppDelegate", "OK"))}};
}

} // namespace

Alert capturePermissionNeeded()
{
    return {
        AlertStyle::warning,
        translated(QT_TRANSLATE_NOOP("AppDelegate", "Screen Recording permission needed")),
        translated(QT_TRANSLATE_NOOP("AppDelegate", "Nimbrale needs permission to record your screen. Turn it on in "
                                                    "System Settings → Privacy & Security → Screen & System Audio "
                                                    "Recording, then quit and reopen the app.")),
        {translated(QT_TRANSLATE_NOOP("AppDelegate", "Open System Settings")),
         translated(QT_TRANSLATE_NOOP("AppDelegate", "Quit"))}};
}

Alert captureCouldNotStart(const Error& error)
{
    return {AlertStyle::warning,
            translated(QT_TRANSLATE_NOOP("AppDelegate", "Screen capture couldn't start")),
            error.message,
            {translated(QT_TRANSLATE_NOOP("AppDelegate", "Try Again")),
             translated(QT_TRANSLATE_NOOP("AppDelegate", "Quit"))}};
}

Notification windowToShare(const std::string& title)
{
    const QString text = QCoreApplication::translate(
        "AppDelegate", "This desktop has no virtual display. In your meeting, share the window “%1”.");
    return {translated(QT_TRANSLATE_NOOP("AppDelegate", "Share the window instead of a display")),
            text.arg(QString::fromStdString(title)).toStdString()};
}

Alert insteadOf(const Notification& notification)
{
    return oneButtonAlert(AlertStyle::informational, notification.title, notification.text);
}

Notification windowWasReturned()
{
    return {
        translated(QT_TRANSLATE_NOOP("AppDelegate", "A window was moved back to your display")),
        translated(QT_TRANSLATE_NOOP("AppDelegate", "It was on the virtual display, which only your meeting sees."))};
}

Alert captureIsLimited(const std::vector<std::string>& limitations)
{
    std::string sentences;
    for (const std::string& limitation : limitations)
        sentences += (sentences.empty() ? "" : "\n") + limitation;
    return oneButtonAlert(AlertStyle::informational,
                          translated(QT_TRANSLATE_NOOP("AppDelegate", "Sharing is limited on this desktop")),
                          sentences);
}

Alert recordingNotAvailable()
{
    return oneButtonAlert(AlertStyle::warning,
                          translated(QT_TRANSLATE_NOOP("AppDelegate", "Recording isn't available")),
                          translated(QT_TRANSLATE_NOOP("AppDelegate", "Nimbrale records its own screen, which couldn't "
                                                                      "be created on this Mac.")));
}

Alert microphoneAccessNeeded()
{
    return {
        AlertStyle::warning,
        translated(QT_TRANSLATE_NOOP("AppDelegate", "Microphone access needed")),
        translated(QT_TRANSLATE_NOOP("AppDelegate", "To record your voice, allow Nimbrale in System Settings → Privacy "
                                                    "& Security → Microphone. Or turn the microphone off in Settings → "
                                                    "Recording.")),
        {translated(QT_TRANSLATE_NOOP("AppDelegate", "Open System Settings")),
         translated(QT_TRANSLATE_NOOP("AppDelegate", "Cancel"))}};
}

Alert recordingCouldNotStart(const RecorderError& error)
{
    return oneButtonAlert(AlertStyle::warning, translated(QT_TRANSLATE_NOOP("AppDelegate", "Recording couldn't start")),
                          error.message);
}

Alert recordingCouldNotBeSaved(const RecorderError& error)
{
    return oneButtonAlert(AlertStyle::warning,
                          translated(QT_TRANSLATE_NOOP("AppDelegate", "The recording couldn't be saved")),
                          error.message);
}

Alert folderNotChosen(const std::filesystem::path& folder)
{
    return oneButtonAlert(AlertStyle::warning,
                          translated(QT_TRANSLATE_NOOP("AppDelegate", "The folder couldn't be chosen")),
                          withPath(QT_TRANSLATE_NOOP("AppDelegate", "The disk of %1 doesn't answer. Choose another "
                                                                    "folder."),
                                   folder));
}

Notification recordingEnded(const std::string& reason)
{
    return {translated(QT_TRANSLATE_NOOP("AppDelegate", "The recording has ended")), reason};
}

Notification recordingEndedForRestart()
{
    return recordingEnded(translated(QT_TRANSLATE_NOOP("AppDelegate", "The shared screen was set up anew. The movie is "
                                                                      "saved; press the record button to go on in "
                                                                      "another one.")));
}

Notification recordingNotSavedYet()
{
    return {translated(QT_TRANSLATE_NOOP("AppDelegate", "The recording isn't saved yet")),
            translated(QT_TRANSLATE_NOOP("AppDelegate", "The disk doesn't answer. The movie is saved when it does."))};
}

Notification recordingSavedAtNextStart()
{
    return {
        translated(QT_TRANSLATE_NOOP("AppDelegate", "The recording isn't saved yet")),
        translated(QT_TRANSLATE_NOOP("AppDelegate", "The disk doesn't answer. Nimbrale saves what was recorded when "
                                                    "it is started again."))};
}

Notification recordingGivenUpForRestart()
{
    return {translated(QT_TRANSLATE_NOOP("AppDelegate", "Recording couldn't start")),
            translated(QT_TRANSLATE_NOOP("AppDelegate", "The shared screen was set up anew. Press the record button "
                                                        "again."))};
}

Notification recordingRecovered(const std::filesystem::path& movie)
{
    return {translated(QT_TRANSLATE_NOOP("AppDelegate", "A recording was saved")),
            withPath(QT_TRANSLATE_NOOP("AppDelegate", "It was cut off before it was finished. It is in %1."), movie)};
}

Notification recordingNotRecovered(const std::filesystem::path& remains)
{
    return {translated(QT_TRANSLATE_NOOP("AppDelegate", "A recording couldn't be saved")),
            withPath(QT_TRANSLATE_NOOP("AppDelegate", "It was cut off before it was finished. What is left of it "
                                                      "is in %1."),
                     remains)};
}

} // namespace nimbrale::alerts
