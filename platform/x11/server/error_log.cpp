#include "platform/x11/server/error_log.h"

#include <QLoggingCategory>

namespace nimbrale::x11 {

namespace {

Q_LOGGING_CATEGORY(serverLog, "Nimbrale.x11")

} // namespace

void ErrorLog::report(const xcb_generic_error_t& error)
{
    if (!reported_.emplace(error.error_code, error.major_code, error.minor_code).second)
        return;
    qCCritical(serverLog, "The X server refused request %d.%d on resource 0x%x with error %d", error.major_code,
               error.minor_code, error.resource_id, error.error_code);
}

} // namespace nimbrale::x11
