#include "app/recording_folder_choice.h"

#include "app/alerts.h"

#include <QCoreApplication>
#include <QDir>

#include <utility>

namespace nimbrale {

namespace {

std::string translated(const char* text)
{
    return QCoreApplication::translate("RecordingSettings", text).toStdString();
}

} // namespace

RecordingFolderChoice::RecordingFolderChoice(Platform& platform, AppSettings& settings)
    : platform_(platform), settings_(settings), disk_(platform.mainQueue(), "Nimbrale.choice")
{}

std::string RecordingFolderChoice::name()
{
    lookForFolder();
    return platform_.workspace().folderName(knownPath());
}

std::filesystem::path RecordingFolderChoice::knownPath() const
{
    const recording_folder::Bookmark bookmark = settings_.recordFolderBookmark();
    return known_ && known_->bookmark == bookmark ? known_->path : recording_folder::lastKnownPath(bookmark);
}

void RecordingFolderChoice::lookForFolder()
{
    const recording_folder::Bookmark bookmark = settings_.recordFolderBookmark();
    if (place_ && bookmark == askedBookmark_)
        return;
    askedBookmark_ = bookmark;
    place_ = disk_.ask<std::filesystem::path>([bookmark] { return recording_folder::resolve(bookmark); },
                                              [this](std::filesystem::path path) {
                                                  place_.reset();
                                                  const std::filesystem::path before = knownPath();
                                                  known_ = {askedBookmark_, std::move(path)};
                                                  if (knownPath() != before && onNameChange)
                                                      onNameChange();
                                              });
}

void RecordingFolderChoice::choose()
{
    FolderQuestion question;
    question.message = translated(QT_TRANSLATE_NOOP("RecordingSettings", "Choose where Nimbrale saves recordings"));
    question.prompt = translated(QT_TRANSLATE_NOOP("RecordingSettings", "Choose"));
    // The dialog waits for the disk of the folder that it begins in: that must be one that has answered.
    const bool isKnown = known_ && known_->bookmark == settings_.recordFolderBookmark() && !place_;
    question.start = isKnown ? known_->path : std::filesystem::path(QDir::homePath().toStdString());
    dialog_ = platform_.workspace().chooseFolder(question, [this](const std::optional<std::filesystem::path>& folder) {
        if (folder)
            store(*folder);
    });
}

void RecordingFolderChoice::store(const std::filesystem::path& folder)
{
    patience_.emplace(platform_.mainQueue(), [this, folder] { notStored(folder); });
    bookmarkOfChosen_ = disk_.ask<recording_folder::Bookmark>([folder] { return recording_folder::bookmarkOf(folder); },
                                                              [this](const recording_folder::Bookmark& bookmark) {
                                                                  patience_.reset();
                                                                  bookmarkOfChosen_.reset();
                                                                  if (!bookmark.empty())
                                                                      settings_.setRecordFolderBookmark(bookmark);
                                                              });
}

void RecordingFolderChoice::notStored(const std::filesystem::path& folder)
{
    patience_.reset();
    bookmarkOfChosen_.reset();
    alert_ = platform_.workspace().showAlert(alerts::folderNotChosen(folder), [](int) {});
}

} // namespace nimbrale
