#pragma once

#include <string>

namespace nimbrale {

/// Why nothing was recorded, or not any more.
struct RecorderError {
    enum class Kind { failed, noScreen, microphoneDenied, nothingRecorded };

    Kind kind = Kind::failed;
    /// One sentence for the user, in the user's language.
    std::string message;

    [[nodiscard]] static RecorderError failed(std::string message);
    [[nodiscard]] static RecorderError noScreen();
    [[nodiscard]] static RecorderError microphoneDenied();
    [[nodiscard]] static RecorderError nothingRecorded();

    bool operator==(const RecorderError&) const = default;
};

} // namespace nimbrale
