#pragma once

#include "app/user_notices.h"
#include "platform/disk_questions.h"
#include "platform/platform.h"
#include "recording/recording_folder.h"
#include "recording/screen_recorder.h"
#include "settings/app_settings.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale {

/// The user's way to record: one toggle, the elapsed time, what is told when a recording ends or cannot begin, and the
/// movies that a crash left. Main thread only.
class RecordingControl : public std::enable_shared_from_this<RecordingControl> {
public:
    /// Both must outlive it.
    [[nodiscard]] static std::shared_ptr<RecordingControl> create(Platform& platform, AppSettings& settings);
    ~RecordingControl();
    RecordingControl(const RecordingControl&) = delete;
    RecordingControl& operator=(const RecordingControl&) = delete;

    /// The seconds since the recording began, every half second while one runs; absent when it is over.
    std::function<void(std::optional<double> seconds)> onTimeChange;

    /// Saves what a crash left in the folder for recordings, and tells the user where it is. From now on that is done
    /// whenever another folder becomes the one for recordings, and when a recording starts: the folder of a recording
    /// that was cut off may have been away at the start of the application, as one on a disk that is unplugged.
    void recoverLeftovers();
    /// The settings changed, and have been left alone for a moment.
    void settingsDidChange() { lookForFolder(); }
    /// Starts to record that display, or ends the recording. Absent where there is no such display, which the user is
    /// told. Ignored while a recording is being started or finished.
    void toggle(std::optional<DisplayID> displayID);
    /// Ends the recording, if one runs, since what it shows is set up anew, which the user did not ask for; the movie
    /// is saved and revealed as always. One that is being started is given up. A notification tells why, and no alert
    /// where there is none: the frame is to take input, for the next recording.
    void endForRestart();
    /// Ends the recording for the end of the application: `later` while there is something to save, and the workspace's
    /// termination is answered when that is done, or when the disk has not answered for ten seconds: the next start
    /// saves then what the disk has, as the user is told.
    [[nodiscard]] TerminateReply applicationShouldTerminate();

    [[nodiscard]] bool isRecording() const { return recorder_->isRecording(); }
    [[nodiscard]] bool isBusy() const { return startQuestion_ || recorder_->isBusy(); }
    /// The disk is being asked where the folder for recordings is, to look there for what a crash left.
    [[nodiscard]] bool isLookingForFolder() const { return searchQuestion_ != nullptr; }

private:
    RecordingControl(Platform& platform, AppSettings& settings);

    /// What the disk tells of the folder for recordings.
    struct Folder {
        std::filesystem::path path;
        /// Whether it is where it was when it was chosen.
        bool isAtItsPlace = false;
        /// Why it is not there for a recording; `errno`'s, 0 where it is.
        int error = 0;
    };

    /// On another thread: they wait for the disk.
    [[nodiscard]] static Folder findFolder(const recording_folder::Bookmark& bookmark);
    [[nodiscard]] static Folder findOrMakeFolder(const recording_folder::Bookmark& bookmark);

    void start(DisplayID displayID);
    void dropStart();
    void startIn(const Folder& folder, DisplayID displayID, ScreenRecorder::Options options);
    void lookForFolder();
    void folderFound(const Folder& folder);
    void recoverIn(const std::filesystem::path& folder);
    void started(const ScreenRecorder::StartResult& result);
    void recordingFinished(const ScreenRecorder::MovieResult& movie);
    void recovered(const std::vector<RecoveredMovie>& movies);
    void savingStalled();
    void refreshTime();

    Platform& platform_;
    AppSettings& settings_;
    std::shared_ptr<ScreenRecorder> recorder_;
    std::unique_ptr<Timer> recordingTimer_;
    bool isTerminatingAfterRecording_ = false;
    std::shared_ptr<UserNotices> notices_;
    std::unique_ptr<OpenQuestion> microphoneAlert_;
    DiskQuestions disk_;
    /// Of a start whose folder is still looked for.
    DiskQuestions::Asked startQuestion_;
    std::optional<DiskPatience> startPatience_;
    /// Of the folder that was searched last for what a crash left.
    std::optional<recording_folder::Bookmark> bookmark_;
    bool wasAtItsPlace_ = false;
    /// The bookmark that the question under way is about.
    recording_folder::Bookmark askedBookmark_;
    DiskQuestions::Asked searchQuestion_;
};

} // namespace nimbrale
