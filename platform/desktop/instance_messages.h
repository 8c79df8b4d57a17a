#pragma once

#include "platform/event_time.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace nimbrale {

/// What a program that was started a second time asks of the one that runs: one line of printable ASCII,
/// "nimbrale/1 COMMAND" or "nimbrale/1 COMMAND ARGUMENT". Commands that an older program does not know get
/// `InstanceAnswer::unknown`; a new number stands for lines that an older program could not even read.
struct InstanceRequest {
    std::string command;
    /// One word, or empty.
    std::string argument;

    bool operator==(const InstanceRequest&) const = default;
};

/// The commands that this program knows.
namespace instance_command {
/// Shows the Settings window. The argument is the time of the user's action in milliseconds of the window system's
/// clock, where it is known.
inline constexpr std::string_view openSettings = "open-settings";
/// Starts a recording, or ends the one that runs. No argument.
inline constexpr std::string_view toggleRecording = "toggle-recording";
} // namespace instance_command

enum class InstanceAnswer {
    done,
    unknown, ///< the command is not known
    ending   ///< the program is about to end; ask again, or start when it has
};

/// The longest line of either direction, its end included. What is longer is not read.
inline constexpr std::size_t longestInstanceLine = 256;

/// The whole line, with its end.
[[nodiscard]] std::string formatRequest(const InstanceRequest& request);
[[nodiscard]] std::string formatAnswer(InstanceAnswer answer);
/// A line without its end; absent for what no program of this kind sends.
[[nodiscard]] std::optional<InstanceRequest> parseRequest(std::string_view line);
[[nodiscard]] std::optional<InstanceAnswer> parseAnswer(std::string_view line);

/// The argument of `openSettings`; absent where there is none, or none that can be read.
[[nodiscard]] std::optional<EventTime> parseEventTime(std::string_view argument);
/// When the user launched a program, from the startup identifier that its launcher gave it.
[[nodiscard]] std::optional<EventTime> timeOfLaunch(std::string_view startupIdentifier);

} // namespace nimbrale
