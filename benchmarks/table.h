#pragma once

#include "benchmarks/measure.h"

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace nimbrale::benchmarks {

enum class Verdict { reached, missed, notMeasured };

/// One line of the table that the benchmark prints, as Markdown text.
struct TableRow {
    std::string subject = {};
    std::string ours = {};
    std::string alternative = {};
    /// Ours to the alternative's.
    std::string ratio = {};
    std::string mustReach = {};
    Verdict verdict = Verdict::notMeasured;
};

[[nodiscard]] inline Verdict reachedWhen(bool isReached)
{
    return isReached ? Verdict::reached : Verdict::missed;
}

/// The quotients of values that were measured in the same repetition. Throws Failure when an alternative cost nothing.
[[nodiscard]] Summary ratioOf(const std::vector<double>& ours, const std::vector<double>& alternative);

void printTable(std::ostream& output, const std::vector<TableRow>& rows);

} // namespace nimbrale::benchmarks
