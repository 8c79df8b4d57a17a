#pragma once

#include <QLoggingCategory>

namespace nimbrale {

Q_DECLARE_LOGGING_CATEGORY(captureLog)        // "Nimbrale.capture"
Q_DECLARE_LOGGING_CATEGORY(virtualDisplayLog) // "Nimbrale.virtual-display"
Q_DECLARE_LOGGING_CATEGORY(sessionLog)        // "Nimbrale.session"
Q_DECLARE_LOGGING_CATEGORY(settingsLog)       // "Nimbrale.settings"
Q_DECLARE_LOGGING_CATEGORY(webcamLog)         // "Nimbrale.webcam"
Q_DECLARE_LOGGING_CATEGORY(recordingLog)      // "Nimbrale.recording"

} // namespace nimbrale
