#include "settings/app_settings.h"

#include "settings/app_settings_store.h"

#include <QDir>

#include <cstdlib>
#include <filesystem>
#include <utility>

namespace nimbrale {

AppSettings& AppSettings::shared()
{
    static AppSettings* const instance = new AppSettings(pathOfUserSettings());
    return *instance;
}

std::string AppSettings::pathOfUserSettings()
{
    const char* configured = std::getenv("XDG_CONFIG_HOME");
    std::filesystem::path folder = configured ? configured : "";
    if (!folder.is_absolute())
        folder = std::filesystem::path(QDir::homePath().toStdString()) / ".config";
    return folder / "Nimbrale" / "Nimbrale.conf";
}

AppSettings::AppSettings(const std::string& filePath) : store_(std::make_unique<SettingsStore>(filePath)) {}

AppSettings::~AppSettings() = default;

Subscription AppSettings::observeChanges(std::function<void()> observer)
{
    return observers_.add(std::move(observer));
}

void AppSettings::changeTogether(const std::function<void()>& assign)
{
    store_->beginGroup();
    assign();
    store_->endGroup();
}

std::optional<SettingsDocument::Value> AppSettings::storedValue(const char* key) const
{
    return store_->value(key);
}

void AppSettings::store(const char* key, SettingsDocument::Value value)
{
    store_->setValue(key, std::move(value));
}

} // namespace nimbrale
