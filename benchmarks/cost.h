#pragma once

#include "benchmarks/desktop.h"
#include "benchmarks/effort.h"
#include "benchmarks/sharer.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
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

/// In percent of one core.
struct Cost {
    /// The server, and the compositing manager.
    double system = 0;
    double process = 0;
    double framesPerSecond = 0;
};

/// A program that shows pictures in a window.
struct Shower {
    pid_t process = 0;
    /// 0 where it shows none; no pictures are counted then.
    std::uint32_t window = 0;
};

/// What is spent from now on during that time, by a program if one is named. Throws Failure when that has ended.
[[nodiscard]] Cost measureCost(test::PrivateDesktop& desktop, std::optional<Shower> shower,
                               std::chrono::milliseconds time);

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
