#include "settings/app_settings_store.h"

#include "platform/log.h"
#include "settings/replacement_file.h"

#include <system_error>
#include <utility>

namespace nimbrale {

namespace {

const char* whatIsWrong(SettingsFileState state)
{
    switch (state) {
    case SettingsFileState::unreadable:
        return "cannot be read";
    case SettingsFileState::damaged:
        return "is damaged";
    case SettingsFileState::absent:
    case SettingsFileState::readable:
        return "is cut off";
    }
    return "";
}

} // namespace

SettingsStore::SettingsStore(std::filesystem::path path) : path_(std::move(path)), watch_(path_)
{
    std::error_code error; // Where this fails, the first write says what is the matter.
    std::filesystem::create_directories(path_.parent_path(), error);
    ReplacementFile::removeLeftovers(path_);
    open();
}

void SettingsStore::open()
{
    const SettingsFileState state = readSettingsFile(path_).state;
    if (state == SettingsFileState::unreadable) {
        qCCritical(settingsLog, "The settings file %s cannot be read; the defaults are in use", path_.c_str());
        isTaken_ = false;
    }
    if (state != SettingsFileState::damaged)
        return;
    if (const Result<std::filesystem::path> name = setAsideDamagedFile(path_)) {
        qCCritical(settingsLog, "The settings file was damaged and is kept as %s; the defaults are in use",
                   name->c_str());
    } else {
        qCCritical(settingsLog, "The settings file %s: %s", path_.c_str(), name.error().message.c_str());
        isTaken_ = false;
    }
}

std::optional<SettingsStore::Value> SettingsStore::value(std::string_view key)
{
    if (watch_.mayHaveChanged())
        load();
    for (const Values* values : {&assigned_, &unwritten_}) {
        if (const auto found = values->find(key); found != values->end())
            return found->second;
    }
    return document_ ? document_->value(key) : std::nullopt;
}

void SettingsStore::setValue(std::string_view key, Value value)
{
    assigned_.insert_or_assign(std::string(key), std::move(value));
    if (openGroups_ == 0)
        write();
}

void SettingsStore::beginGroup()
{
    ++openGroups_;
}

void SettingsStore::endGroup()
{
    if (--openGroups_ == 0 && !assigned_.empty())
        write();
}

void SettingsStore::load()
{
    SettingsFile file = readSettingsFile(path_);
    const bool isUnderstood = file.state == SettingsFileState::absent || file.state == SettingsFileState::readable;
    const bool wasTaken = std::exchange(isTaken_, isUnderstood && !isCutOff(file));
    state_ = file.state;
    if (isTaken_)
        adopt(std::move(file.document));
    else if (wasTaken)
        qCCritical(settingsLog, "The settings file %s %s; what it held before stays in use", path_.c_str(),
                   whatIsWrong(state_));
}

bool SettingsStore::isCutOff(const SettingsFile& file) const
{
    if (file.state != SettingsFileState::readable || !document_)
        return false;
    const std::string whole = document_->text();
    return file.document.text() != whole && whole.starts_with(file.content);
}

void SettingsStore::adopt(SettingsDocument document)
{
    if (document_) {
        std::erase_if(unwritten_,
                      [&](const auto& entry) { return document.value(entry.first) != document_->value(entry.first); });
    }
    document_ = std::move(document);
}

void SettingsStore::write()
{
    load();
    for (auto& [key, value] : std::exchange(assigned_, {}))
        unwritten_.insert_or_assign(key, std::move(value));
    const Result<void> result = replaceFile();
    if (result)
        return;
    std::string keys;
    for (const auto& [key, value] : unwritten_)
        keys += (keys.empty() ? "" : ", ") + key;
    qCCritical(settingsLog, "%s %s could not be written to %s: %s",
               unwritten_.size() == 1 ? "The setting" : "The settings", keys.c_str(), path_.c_str(),
               result.error().message.c_str());
}

Result<void> SettingsStore::replaceFile()
{
    if (state_ == SettingsFileState::unreadable)
        return fail(ErrorCode::permanent, "it cannot be read, and what it holds would be lost");
    SettingsDocument document = document_.value_or(SettingsDocument());
    for (const auto& [key, value] : unwritten_)
        document.setValue(key, value);
    Result<ReplacementFile> replacement = ReplacementFile::create(path_, document.text());
    if (!replacement)
        return tl::make_unexpected(replacement.error());
    if (state_ == SettingsFileState::damaged) {
        const Result<std::filesystem::path> name = setAsideDamagedFile(path_);
        if (!name)
            return tl::make_unexpected(name.error());
        qCCritical(settingsLog, "The settings file was damaged and is kept as %s", name->c_str());
    }
    if (Result<void> result = replacement->takePlace(); !result)
        return result;
    document_ = std::move(document);
    unwritten_.clear();
    return {};
}

} // namespace nimbrale
