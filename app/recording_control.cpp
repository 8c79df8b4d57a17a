#include "app/recording_control.h"

#include "app/alerts.h"
#include "platform/disk.h"

#include <chrono>
#include <set>
#include <system_error>
#include <utility>

namespace nimbrale {

namespace {

constexpr std::chrono::milliseconds timeRefreshInterval{500};
constexpr const char* microphonePrivacyLocation =
    "x-apple.systempreferences:com.apple.preference.security?Privacy_Microphone";

std::optional<std::uint64_t> freeSpace(const std::filesystem::path& folder)
{
    std::error_code error;
    const std::filesystem::space_info space = std::filesystem::space(folder, error);
    return error ? std::nullopt : std::optional<std::uint64_t>(space.available);
}

/// Without the folder, which the disk is asked for.
ScreenRecorder::Options recorderOptions(const AppSettings& settings)
{
    ScreenRecorder::Options options;
    options.quality = settings.recordQuality();
    options.framerate = settings.framerate();
    if (settings.recordMicrophone())
        options.microphoneID = settings.recordMicrophoneID();
    options.systemAudio = settings.recordSystemAudio();
    return options;
}

} // namespace

std::shared_ptr<RecordingControl> RecordingControl::create(Platform& platform, AppSettings& settings)
{
    const std::shared_ptr<RecordingControl> control(new RecordingControl(platform, settings));
    control->recorder_->onFinish = [weak = std::weak_ptr(control)](const ScreenRecorder::MovieResult& movie) {
        if (const auto self = weak.lock())
            self->recordingFinished(movie);
    };
    control->recorder_->onEndingByItself = [weak = std::weak_ptr(control)](const std::string& reason) {
        if (const auto self = weak.lock())
            self->notices_->tell(alerts::recordingEnded(reason));
    };
    control->recorder_->onSavingStalled = [weak = std::weak_ptr(control)] {
        if (const auto self = weak.lock())
            self->savingStalled();
    };
    return control;
}

RecordingControl::RecordingControl(Platform& platform, AppSettings& settings)
    : platform_(platform), settings_(settings),
      recorder_(ScreenRecorder::create({platform.mainQueue(), platform.screens(), platform.screenCapture(),
                                        platform.microphones(), platform.movies(), freeSpace})),
      notices_(UserNotices::create(platform.workspace())), disk_(platform.mainQueue(), "Nimbrale.folder")
{}

RecordingControl::~RecordingControl() = default;

void RecordingControl::toggle(std::optional<DisplayID> displayID)
{
    if (isBusy())
        return;
    if (recorder_->isRecording())
        recorder_->stop();
    else if (displayID)
        start(*displayID);
    else
        notices_->show(alerts::recordingNotAvailable());
}

RecordingControl::Folder RecordingControl::findFolder(const recording_folder::Bookmark& bookmark)
{
    return {.path = recording_folder::resolve(bookmark), .isAtItsPlace = recording_folder::isAtItsPlace(bookmark)};
}

RecordingControl::Folder RecordingControl::findOrMakeFolder(const recording_folder::Bookmark& bookmark)
{
    Folder folder = findFolder(bookmark);
    std::error_code error;
    // The default folder need not be there before the first recording.
    if (folder.path == recording_folder::defaultFolder())
        std::filesystem::create_directories(folder.path, error);
    folder.error = error.value();
    return folder;
}

void RecordingControl::start(DisplayID displayID)
{
    const recording_folder::Bookmark bookmark = settings_.recordFolderBookmark();
    startPatience_.emplace(platform_.mainQueue(), [this, bookmark] {
        dropStart();
        notices_->show(
            alerts::recordingCouldNotStart(RecorderError::noAnswerOf(recording_folder::lastKnownPath(bookmark))));
    });
    startQuestion_ = disk_.ask<Folder>([bookmark] { return findOrMakeFolder(bookmark); },
                                       [this, displayID, options = recorderOptions(settings_)](const Folder& folder) {
                                           dropStart();
                                           startIn(folder, displayID, options);
                                       });
}

void RecordingControl::dropStart()
{
    startPatience_.reset();
    startQuestion_.reset();
}

void RecordingControl::startIn(const Folder& folder, DisplayID displayID, ScreenRecorder::Options options)
{
    if (folder.error != 0) {
        notices_->show(
            alerts::recordingCouldNotStart(RecorderError::notCreated(folder.path, whyNoFileIsMade(folder.error))));
        return;
    }
    recoverIn(folder.path);
    options.folder = folder.path;
    recorder_->start(displayID, options, [weak = weak_from_this()](const ScreenRecorder::StartResult& result) {
        if (const auto self = weak.lock())
            self->started(result);
    });
}

void RecordingControl::started(const ScreenRecorder::StartResult& result)
{
    if (result) {
        refreshTime();
        recordingTimer_ = platform_.mainQueue().scheduleRepeating(timeRefreshInterval, [this] { refreshTime(); });
        return;
    }
    if (result.error().kind != RecorderError::Kind::microphoneDenied) {
        notices_->show(alerts::recordingCouldNotStart(result.error()));
        return;
    }
    microphoneAlert_ = platform_.workspace().showAlert(alerts::microphoneAccessNeeded(), [this](int button) {
        if (button == alerts::openSystemSettingsButton)
            platform_.workspace().openLocation(microphonePrivacyLocation);
    });
}

void RecordingControl::endForRestart()
{
    if (recorder_->isRecording())
        notices_->mention(alerts::recordingEndedForRestart());
    else if (isBusy() && !recorder_->isFinishing())
        notices_->mention(alerts::recordingGivenUpForRestart());
    dropStart();
    recorder_->stop();
}

TerminateReply RecordingControl::applicationShouldTerminate()
{
    dropStart();
    recorder_->stop();
    if (recorder_->isFinishing() && recorder_->isStalled())
        notices_->tell(alerts::recordingSavedAtNextStart());
    isTerminatingAfterRecording_ = recorder_->isFinishing() && !recorder_->isStalled();
    return isTerminatingAfterRecording_ ? TerminateReply::later : TerminateReply::now;
}

void RecordingControl::savingStalled()
{
    if (!std::exchange(isTerminatingAfterRecording_, false)) {
        notices_->tell(alerts::recordingNotSavedYet());
        return;
    }
    notices_->tell(alerts::recordingSavedAtNextStart());
    platform_.workspace().termination().reply(true);
}

void RecordingControl::refreshTime()
{
    std::optional<double> seconds;
    if (const auto startDate = recorder_->startDate())
        seconds = std::chrono::duration<double>(platform_.mainQueue().now() - *startDate).count();
    if (onTimeChange)
        onTimeChange(seconds);
}

void RecordingControl::recordingFinished(const ScreenRecorder::MovieResult& movie)
{
    recordingTimer_.reset();
    refreshTime();
    if (std::exchange(isTerminatingAfterRecording_, false)) {
        platform_.workspace().termination().reply(true);
        return;
    }
    if (movie)
        platform_.workspace().revealFile(*movie);
    else
        notices_->show(alerts::recordingCouldNotBeSaved(movie.error()));
}

void RecordingControl::recoverLeftovers()
{
    // Recordings may have gone to the default folder while the chosen one was away.
    recoverIn(recording_folder::defaultFolder());
    lookForFolder();
}

void RecordingControl::lookForFolder()
{
    const recording_folder::Bookmark bookmark = settings_.recordFolderBookmark();
    if (searchQuestion_ && bookmark == askedBookmark_)
        return;
    askedBookmark_ = bookmark;
    searchQuestion_ = disk_.ask<Folder>([bookmark] { return findFolder(bookmark); },
                                        [this](const Folder& folder) { folderFound(folder); });
}

void RecordingControl::folderFound(const Folder& folder)
{
    searchQuestion_.reset();
    // Who chooses a folder once more that was away gets the same bookmark.
    const bool isBack = folder.isAtItsPlace && !wasAtItsPlace_;
    wasAtItsPlace_ = folder.isAtItsPlace;
    const auto before = std::exchange(bookmark_, askedBookmark_);
    const bool isSearched =
        before ? *before == askedBookmark_ && !isBack : folder.path == recording_folder::defaultFolder();
    if (!isSearched)
        recoverIn(folder.path);
}

void RecordingControl::recoverIn(const std::filesystem::path& folder)
{
    platform_.movies().recover(folder, [weak = weak_from_this()](const std::vector<RecoveredMovie>& movies) {
        if (const auto self = weak.lock())
            self->recovered(movies);
    });
}

void RecordingControl::recovered(const std::vector<RecoveredMovie>& movies)
{
    for (const RecoveredMovie& movie : movies)
        notices_->tell(movie.error ? alerts::recordingNotRecovered(movie.file)
                                   : alerts::recordingRecovered(movie.file));
}

} // namespace nimbrale
