#include "benchmarks/table.h"

#include <algorithm>

namespace nimbrale::benchmarks {

namespace {

std::string wordFor(Verdict verdict)
{
    switch (verdict) {
    case Verdict::reached:
        return "yes";
    case Verdict::missed:
        return "**no**";
    case Verdict::notMeasured:
        return "not measured";
    }
    return {};
}

} // namespace

Summary ratioOf(const std::vector<double>& ours, const std::vector<double>& alternative)
{
    std::vector<double> ratios;
    for (std::size_t index = 0; index < std::min(ours.size(), alternative.size()); ++index) {
        if (alternative[index] <= 0)
            throw Failure("the alternative's cost was lost in the noise of this machine");
        ratios.push_back(ours[index] / alternative[index]);
    }
    return summaryOf(ratios);
}

void printTable(std::ostream& output, const std::vector<TableRow>& rows)
{
    output << "| | ours | alternative | ratio | must reach | reached |\n|---|---|---|---|---|---|\n";
    for (const TableRow& row : rows) {
        output << "| " << row.subject << " | " << row.ours << " | " << row.alternative << " | " << row.ratio << " | "
               << row.mustReach << " | " << wordFor(row.verdict) << " |\n";
    }
}

} // namespace nimbrale::benchmarks
