// nimbrale_benchmark [--quick] [--row NAME]...
// Measures the real application beside what else could be used, and prints the table as Markdown.

#include "benchmarks/rows.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <string>
#include <vector>

namespace {

using namespace nimbrale::benchmarks;

struct NamedRow {
    const char* name;
    const char* subject;
    std::vector<TableRow> (*measure)(const Effort&);
};

constexpr std::array rows{
    NamedRow{"static", "static screen", measureStaticScreen},
    NamedRow{"pointer-outside", "still screen, the pointer moves outside the region", measurePointerOutside},
    NamedRow{"hidden-change", "a window draws where another hides it", measureHiddenChange},
    NamedRow{"small-change", "a change of 20×20 pixels at 60 Hz", measureSmallChange},
    NamedRow{"video-1080p30", "1080p30 full video", measureFullHdVideo},
    NamedRow{"video-2160p60", "2160p60 full video", measureUltraHdVideo},
    NamedRow{"latency", "change → shown when idle", measureIdleLatency},
    NamedRow{"latency-video", "change → shown beside a video", measureLatencyBesideVideo},
    NamedRow{"composited-static", "static screen under compositing managers", measureCompositedStill},
    NamedRow{"composited-1080p30", "1080p30 full video under compositing managers", measureCompositedFullHdVideo},
    NamedRow{"composited-2160p60", "2160p60 full video under compositing managers", measureCompositedUltraHdVideo},
    NamedRow{"composited-latency", "change → shown under compositing managers", measureCompositedLatency},
    NamedRow{"start", "start → first picture", measureStart},
    NamedRow{"memory", "resident memory", measureMemory},
    NamedRow{"drag", "a step of a drag at 4K", measureDragStep},
    NamedRow{"webcam", "still screen with a moving webcam", measureWebcamCost},
    NamedRow{"webcam-latency", "camera's picture → shared", measureWebcamLatency},
    NamedRow{"webcam-start", "webcam switched on → its first picture", measureWebcamStart},
    NamedRow{"webcam-memory", "resident memory with a blurred webcam", measureWebcamMemory},
    NamedRow{"recording", "1080p30 of a busy screen recorded with sound", measureRecordingCost},
    NamedRow{"recording-still", "a still screen recorded without sound", measureStillRecordingCost},
    NamedRow{"recording-latency", "change → shown beside a recording", measureRecordingLatency},
    NamedRow{"recording-1440p30", "1440p30 of a busy screen recorded", measureLargeRecording},
    NamedRow{"recording-memory", "resident memory during a recording", measureRecordingMemory},
};

void printHelp(std::ostream& output)
{
    output << "usage: nimbrale_benchmark [--quick] [--row NAME]...\n"
              "Measures the application on private X servers and prints the results as a Markdown table.\n"
              "  --quick     fewer and shorter repetitions, for a first look only\n"
              "  --row NAME  only this row; may be given several times\n"
              "  --help      this text\n"
              "rows:\n";
    for (const NamedRow& row : rows)
        output << "  " << row.name << ": " << row.subject << '\n';
}

struct Options {
    bool isHelpWanted = false;
    bool isQuick = false;
    std::vector<std::string> names;
    std::string error;
};

Options optionsFrom(const std::vector<std::string>& arguments)
{
    Options options;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const std::string& argument = arguments[index];
        if (argument == "--help") {
            options.isHelpWanted = true;
        } else if (argument == "--quick") {
            options.isQuick = true;
        } else if (argument == "--row" && index + 1 < arguments.size()) {
            const std::string& name = arguments[++index];
            if (std::none_of(rows.begin(), rows.end(), [&](const NamedRow& row) { return row.name == name; }))
                options.error = "there is no row " + name;
            options.names.push_back(name);
        } else {
            options.error = "cannot understand " + argument;
        }
    }
    return options;
}

std::vector<TableRow> measureRow(const NamedRow& row, const Effort& effort)
{
    std::cerr << row.name << '\n';
    try {
        return row.measure(effort);
    } catch (const Failure& failure) {
        std::cerr << "  " << failure.what() << '\n';
        return {{.subject = row.subject, .ours = failure.what()}};
    }
}

} // namespace

int main(int count, char** values)
{
    const Options options = optionsFrom({values + 1, values + count});
    if (options.isHelpWanted) {
        printHelp(std::cout);
        return 0;
    }
    if (!options.error.empty()) {
        std::cerr << "nimbrale_benchmark: " << options.error << '\n';
        printHelp(std::cerr);
        return 2;
    }
    const Effort effort = options.isQuick ? Effort::quick() : Effort{};
    std::vector<TableRow> table;
    for (const NamedRow& row : rows) {
        const bool isWanted = options.names.empty() ||
                              std::find(options.names.begin(), options.names.end(), row.name) != options.names.end();
        if (!isWanted)
            continue;
        const std::vector<TableRow> measured = measureRow(row, effort);
        table.insert(table.end(), measured.begin(), measured.end());
    }
    std::cout << "Medians of " << effort.repetitions << " repetitions, with the least and the greatest value.\n\n";
    printTable(std::cout, table);
    const bool isComplete = std::none_of(table.begin(), table.end(),
                                         [](const TableRow& row) { return row.verdict == Verdict::notMeasured; });
    return isComplete ? 0 : 1;
}
