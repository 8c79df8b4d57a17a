#pragma once

#include "tests/support/process.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <utility>

namespace nimbrale::test {

/// The time of day of programs that are started with `environment`. It is right until it is set.
class WallClock {
public:
    /// What says by which file it is set.
    static constexpr auto variable = "NIMBRALE_TEST_WALL_CLOCK";

    /// `file` need not be there.
    explicit WallClock(std::filesystem::path file) : file_(std::move(file)) {}

    [[nodiscard]] Environment environment() const
    {
        return {{"LD_PRELOAD", (buildFolder() / "libnimbrale_wall_clock.so").string()}, {variable, file_.string()}};
    }
    [[nodiscard]] const std::filesystem::path& file() const { return file_; }
    /// By how much it is off from now on.
    void set(std::chrono::seconds shift) const { std::ofstream(file_) << shift.count(); }

private:
    std::filesystem::path file_;
};

} // namespace nimbrale::test
