#pragma once

#include "benchmarks/desktop.h"
#include "benchmarks/effort.h"
#include "benchmarks/sharer.h"

#include <map>
#include <string>
#include <vector>

namespace nimbrale::benchmarks {

/// What one program cost in each repetition, in percent of one processor core.
struct CostSeries {
    /// The program, the X server and a compositing manager together, less what the latter two spend on the same content
    /// without any program.
    std::vector<double> whole = {};
    /// The program's own process.
    std::vector<double> process = {};
    std::vector<double> framesPerSecond = {};
    /// Why there are no values, where there are none.
    std::string missing = {};
};

struct CostQuestion {
    QSize display;
    /// Fills the display: a mode of nimbrale_animation, or one of the contents below.
    std::string content;
    /// What is captured; the whole display where it is empty.
    QRect region = {};
    int contentRate = 30;
    int captureRate = 30;
    std::vector<SharerKind> kinds = {};
    std::chrono::milliseconds time{4000};
    /// How long each program has run before it is measured, beyond its start, and the content before anything is.
    std::chrono::milliseconds timeBefore{0};
    Compositing compositing = Compositing::byServer;
};

/// Painted once.
inline constexpr const char* stillContent = "still";
/// Painted once, and the pointer moves about in the part of the display below the region.
inline constexpr const char* pointerContent = "pointer";
/// Blinks where a still window hides it, in a window that can be seen but for that.
inline constexpr const char* hiddenContent = "hidden";

/// Measures the programs one after another in every repetition, so that a busy moment of the machine meets all of them.
/// Throws Failure when the application cannot be measured; another missing program leaves its series empty.
[[nodiscard]] std::map<SharerKind, CostSeries> compareCosts(const CostQuestion& question, int repetitions);

} // namespace nimbrale::benchmarks
