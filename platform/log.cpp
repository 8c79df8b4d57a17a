#include "platform/log.h"

namespace nimbrale {

Q_LOGGING_CATEGORY(captureLog, "Nimbrale.capture")
Q_LOGGING_CATEGORY(virtualDisplayLog, "Nimbrale.virtual-display")
Q_LOGGING_CATEGORY(sessionLog, "Nimbrale.session")
Q_LOGGING_CATEGORY(settingsLog, "Nimbrale.settings")
Q_LOGGING_CATEGORY(webcamLog, "Nimbrale.webcam", QtInfoMsg)
Q_LOGGING_CATEGORY(recordingLog, "Nimbrale.recording", QtInfoMsg)

} // namespace nimbrale
