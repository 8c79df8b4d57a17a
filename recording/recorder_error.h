#pragma once

#include <filesystem>
#include <string>

namespace nimbrale {

/// Why nothing was recorded, or not any more.
struct RecorderError {
    enum class Kind { failed, noScreen, microphoneDenied, nothingRecorded };

    Kind kind = Kind::failed;
    /// For the user, in sentences.
    std::string message;

    [[nodiscard]] static RecorderError failed(std::string message);
    /// "The movie couldn't be created in …", and why, in sentences.
    [[nodiscard]] static RecorderError notCreated(const std::filesystem::path& folder, const std::string& why);
    /// The same, for a folder whose disk does not answer.
    [[nodiscard]] static RecorderError noAnswerOf(const std::filesystem::path& folder);
    [[nodiscard]] static RecorderError noScreen();
    [[nodiscard]] static RecorderError microphoneDenied();
    [[nodiscard]] static RecorderError nothingRecorded();

    bool operator==(const RecorderError&) const = default;
};

} // namespace nimbrale
