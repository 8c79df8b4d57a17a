#pragma once

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <vector>

namespace nimbrale::benchmarks {

using Nanoseconds = std::chrono::nanoseconds;

/// A measurement that could not be made, with the reason in words. It ends the row, not the program.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The processor time that all threads of a process have used so far. Throws Failure when there is no such process.
[[nodiscard]] Nanoseconds cpuTimeOf(pid_t process);
/// The part of a process's memory that is in RAM, shared libraries included, in bytes. Throws Failure as above.
[[nodiscard]] std::int64_t residentMemoryOf(pid_t process);

/// What several repetitions of one measurement say together.
struct Summary {
    double median = 0;
    double least = 0;
    double greatest = 0;
};

/// Throws Failure without any value.
[[nodiscard]] Summary summaryOf(const std::vector<double>& values);
/// The smallest value that at least this part (0 to 1) of all values does not exceed. Throws Failure without any value.
[[nodiscard]] double quantileOf(std::vector<double> values, double part);

/// "1.25 (1.10–1.40) ms"; without a unit the blank goes too.
[[nodiscard]] std::string textOf(const Summary& summary, int digits, const std::string& unit = {});

} // namespace nimbrale::benchmarks
