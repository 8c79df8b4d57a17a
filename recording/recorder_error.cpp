#include "recording/recorder_error.h"

#include <QCoreApplication>

#include <utility>

namespace nimbrale {

namespace {

std::string translated(const char* text)
{
    return QCoreApplication::translate("ScreenRecorder", text).toStdString();
}

} // namespace

RecorderError RecorderError::failed(std::string message)
{
    return {Kind::failed, std::move(message)};
}

RecorderError RecorderError::notCreated(const std::filesystem::path& folder, const std::string& why)
{
    const QString text = QCoreApplication::translate("ScreenRecorder", "The movie couldn't be created in %1.")
                             .arg(QString::fromStdString(folder.string()));
    return failed(text.toStdString() + " " + why);
}

RecorderError RecorderError::noAnswerOf(const std::filesystem::path& folder)
{
    return notCreated(folder, translated(QT_TRANSLATE_NOOP(
                                  "ScreenRecorder", "The disk doesn't answer. Choose another folder in Settings.")));
}

RecorderError RecorderError::noScreen()
{
    return {Kind::noScreen,
            translated(QT_TRANSLATE_NOOP("ScreenRecorder",
                                         "The Nimbrale screen isn't available, so there's nothing to record."))};
}

RecorderError RecorderError::microphoneDenied()
{
    return {Kind::microphoneDenied,
            translated(QT_TRANSLATE_NOOP("ScreenRecorder", "Nimbrale isn't allowed to use the microphone."))};
}

RecorderError RecorderError::nothingRecorded()
{
    return {Kind::nothingRecorded,
            translated(QT_TRANSLATE_NOOP("ScreenRecorder", "The recording stopped before anything was recorded."))};
}

} // namespace nimbrale
