#include "benchmarks/measure.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <fstream>
#include <sstream>

namespace nimbrale::benchmarks {

Nanoseconds cpuTimeOf(pid_t process)
{
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0)
        throw Failure("the processor time of process " + std::to_string(process) + " cannot be read; it has ended");
    return std::chrono::seconds{time.tv_sec} + Nanoseconds{time.tv_nsec};
}

std::int64_t residentMemoryOf(pid_t process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        std::istringstream words(line);
        std::string name;
        std::int64_t kibibytes = 0;
        if (words >> name >> kibibytes && name == "VmRSS:")
            return kibibytes * 1024;
    }
    throw Failure("the memory of process " + std::to_string(process) + " cannot be read; it has ended");
}

Summary summaryOf(const std::vector<double>& values)
{
    return {quantileOf(values, 0.5), quantileOf(values, 0), quantileOf(values, 1)};
}

double quantileOf(std::vector<double> values, double part)
{
    if (values.empty())
        throw Failure("nothing was measured");
    std::sort(values.begin(), values.end());
    const auto count = static_cast<double>(values.size());
    const double rank = std::clamp(std::ceil(part * count), 1.0, count);
    return values[static_cast<std::size_t>(rank) - 1];
}

std::string textOf(const Summary& summary, int digits, const std::string& unit)
{
    std::ostringstream text;
    text.setf(std::ios::fixed);
    text.precision(digits);
    text << summary.median << " (" << summary.least << "–" << summary.greatest << ")";
    if (!unit.empty())
        text << ' ' << unit;
    return text.str();
}

} // namespace nimbrale::benchmarks
