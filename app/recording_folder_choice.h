#pragma once

#include "platform/disk_questions.h"
#include "platform/platform.h"
#include "recording/recording_folder.h"
#include "settings/app_settings.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace nimbrale {

/// The folder for recordings as the user sees and chooses it. Its disk is asked on other threads. Main thread only.
class RecordingFolderChoice {
public:
    /// Both must outlive it.
    RecordingFolderChoice(Platform& platform, AppSettings& settings);

    /// What the user knows the folder by, as far as is known; UTF-8. Asks the disk where it is by now.
    [[nodiscard]] std::string name();
    /// The disk told that the folder has another name.
    std::function<void()> onNameChange;

    /// Lets the user choose another folder, which is stored when its disk has answered. One whose disk does not answer
    /// for ten seconds is not, as the user is told.
    void choose();

    /// Whether a disk is being asked.
    [[nodiscard]] bool isAsking() const { return place_ || bookmarkOfChosen_; }

private:
    struct Known {
        recording_folder::Bookmark bookmark;
        std::filesystem::path path;
    };

    [[nodiscard]] std::filesystem::path knownPath() const;
    void lookForFolder();
    void store(const std::filesystem::path& folder);
    void notStored(const std::filesystem::path& folder);

    Platform& platform_;
    AppSettings& settings_;
    DiskQuestions disk_;
    std::optional<Known> known_;
    DiskQuestions::Asked place_;
    /// The bookmark that the question is about.
    recording_folder::Bookmark askedBookmark_;
    std::unique_ptr<OpenQuestion> dialog_;
    DiskQuestions::Asked bookmarkOfChosen_;
    std::optional<DiskPatience> patience_;
    std::unique_ptr<OpenQuestion> alert_;
};

} // namespace nimbrale
