#include "platform/x11/displays/display_scale.h"

#include "platform/x11/displays/xsettings.h"
#include "platform/x11/server/handles.h"

#include <QByteArray>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>

namespace nimbrale::x11 {

namespace {

constexpr const char* toolkitFactor = "QT_SCALE_FACTOR";
constexpr const char* toolkitDotsPerInch = "QT_FONT_DPI";
constexpr double standardDotsPerInch = 96;
constexpr double smallestScale = 0.5;
constexpr double largestScale = 4;
constexpr std::uint32_t maximumDatabaseLength = 1U << 18;

std::string resourceDatabase(const Connection& connection)
{
    const Reply<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(connection.get(),
                               xcb_get_property(connection.get(), 0, connection.root(), XCB_ATOM_RESOURCE_MANAGER,
                                                XCB_ATOM_STRING, 0, maximumDatabaseLength),
                               nullptr));
    if (!reply || reply->format != 8)
        return {};
    return {static_cast<const char*>(xcb_get_property_value(reply.get())),
            static_cast<std::size_t>(xcb_get_property_value_length(reply.get()))};
}

double positiveNumber(const std::string& text, double otherwise)
{
    // QByteArray reads numbers by the C locale, whatever the user's.
    bool isNumber = false;
    const double number = QByteArray::fromStdString(text).toDouble(&isNumber);
    return isNumber && std::isfinite(number) && number > 0 ? number : otherwise;
}

/// MATE raises the desktop's dots per inch along with the scale of its windows, and takes that back for the toolkit.
double scaleOfDotsPerInch(const std::string& database, const std::string& toolkits)
{
    // The toolkit passes over what is no whole number.
    const int whole = QByteArray::fromStdString(toolkits).toInt();
    const double dotsPerInch =
        whole > 0 ? whole : positiveNumber(resourceValue(database, "Xft.dpi"), standardDotsPerInch);
    return dotsPerInch / standardDotsPerInch;
}

} // namespace

std::string resourceValue(const std::string& database, const std::string& resource)
{
    std::istringstream lines(database);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos || line.substr(0, colon) != resource)
            continue;
        const std::size_t start = line.find_first_not_of(" \t", colon + 1);
        if (start == std::string::npos)
            return {};
        return line.substr(start, line.find_last_not_of(" \t\r") - start + 1);
    }
    return {};
}

double displayScaleFrom(const std::string& database, const ToolkitVariables& variables)
{
    const double scale = scaleOfDotsPerInch(database, variables.dotsPerInch) * positiveNumber(variables.factor, 1);
    return std::clamp(scale, smallestScale, largestScale);
}

double displayScale(Connection& connection)
{
    return displayScaleFrom(resourceDatabase(connection), {.dotsPerInch = qgetenv(toolkitDotsPerInch).toStdString(),
                                                           .factor = qgetenv(toolkitFactor).toStdString()});
}

double toolkitFactorFrom(const std::string& database, const std::string& toolkits, int windowScalingFactor)
{
    const double factor = std::min<double>(windowScalingFactor, largestScale) / scaleOfDotsPerInch(database, toolkits);
    return std::max(1.0, factor);
}

void scaleToolkitAsDesktop()
{
    if (qEnvironmentVariableIsSet(toolkitFactor))
        return;
    const auto connection = Connection::open();
    if (!connection)
        return;
    const auto settings = desktopIntegers(**connection);
    const auto windows = settings.find("Gdk/WindowScalingFactor");
    const double factor = toolkitFactorFrom(resourceDatabase(**connection), qgetenv(toolkitDotsPerInch).toStdString(),
                                            windows == settings.end() ? 0 : windows->second);
    if (factor > 1)
        qputenv(toolkitFactor, QByteArray::number(factor));
}

} // namespace nimbrale::x11
