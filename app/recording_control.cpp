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
constexpr std::chrono::milliseconds settingsDebounceTime{100};
constexpr const char* microphonePrivacyLocation =
    "x-apple.systempreferences:com.apple.preference.security?Privacy_Microphone";

std::optional<std::uint64_t> freeSpace(const std::filesystem::path& folder)
{
    std::error_code error;
    const std::filesystem::space_info space = std::filesystem::space(folder, error);
    return error ? std::nullopt : std::optional<std::uint64_t>(space.available);
}

/// The default folder need not be there before the first recording. An error is `errno`'s; 0 where there was none.
int makeIfDefault(const std::filesystem::path& folder)
{
    std::error_code error;
    if (folder == recording_folder::defaultFolder())
        std::filesystem::create_directories(folder, error);
    return error.value();
}

ScreenRecorder::Options recorderOptions(const AppSettings& settings)
{
    ScreenRecorder::Options options;
    options.folder = recording_folder::resolve(settings.recordFolderBookmark());
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
    return control;
}

RecordingControl::RecordingControl(Platform& platform, AppSettings& settings)
    : platform_(platform), settings_(settings),
      recorder_(ScreenRecorder::create({platform.mainQueue(), platform.screens(), platform.screenCapture(),
                                        platform.microphones(), platform.movies(), freeSpace})),
      notices_(UserNotices::create(platform.workspace()))
{}

RecordingControl::~RecordingControl() = default;

void RecordingControl::toggle(std::optional<DisplayID> displayID)
{
    if (recorder_->isBusy())
        return;
    if (recorder_->isRecording())
        recorder_->stop();
    else if (displayID)
        start(*displayID);
    else
        notices_->show(alerts::recordingNotAvailable());
}

void RecordingControl::start(DisplayID displayID)
{
    const ScreenRecorder::Options options = recorderOptions(settings_);
    if (const int error = makeIfDefault(options.folder); error != 0) {
        notices_->show(
            alerts::recordingCouldNotStart(RecorderError::notCreated(options.folder, whyNoFileIsMade(error))));
        return;
    }
    recoverIn(options.folder);
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
    else if (recorder_->isBusy() && !recorder_->isFinishing())
        notices_->mention(alerts::recordingGivenUpForRestart());
    recorder_->stop();
}

TerminateReply RecordingControl::applicationShouldTerminate()
{
    recorder_->stop();
    isTerminatingAfterRecording_ = recorder_->isFinishing();
    return isTerminatingAfterRecording_ ? TerminateReply::later : TerminateReply::now;
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
    settingsObserver_ = settings_.observeChanges([this] {
        settingsDebounce_ = platform_.mainQueue().schedule(settingsDebounceTime, [this] { settingsDidChange(); });
    });
    bookmark_ = settings_.recordFolderBookmark();
    wasAtItsPlace_ = recording_folder::isAtItsPlace(bookmark_);
    // Recordings may have gone to the default folder while the chosen one was away.
    const std::set<std::filesystem::path> folders{recording_folder::resolve(bookmark_),
                                                  recording_folder::defaultFolder()};
    for (const std::filesystem::path& folder : folders)
        recoverIn(folder);
}

void RecordingControl::settingsDidChange()
{
    const recording_folder::Bookmark bookmark = settings_.recordFolderBookmark();
    const bool isAtItsPlace = recording_folder::isAtItsPlace(bookmark);
    // Who chooses a folder once more that was away gets the same bookmark.
    const bool isBack = isAtItsPlace && !wasAtItsPlace_;
    wasAtItsPlace_ = isAtItsPlace;
    if (std::exchange(bookmark_, bookmark) != bookmark || isBack)
        recoverIn(recording_folder::resolve(bookmark));
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
