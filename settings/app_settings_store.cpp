#include "settings/app_settings_store.h"

#include "platform/log.h"
#include "platform/result.h"

#include <QDate>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QString>

#include <charconv>
#include <cmath>
#include <utility>

namespace nimbrale {

namespace {

enum class FileState { absent, unreadable, damaged, readable };

struct ReadFile {
    FileState state = FileState::absent;
    SettingsDocument document;
};

ReadFile readFile(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists())
        return {};
    QFile file(path);
    if (!info.isFile() || !file.open(QIODevice::ReadOnly))
        return {FileState::unreadable, {}};
    const QByteArray content = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return {FileState::unreadable, {}};
    std::optional<SettingsDocument> document =
        SettingsDocument::parse({content.constData(), static_cast<std::size_t>(content.size())});
    if (!document)
        return {FileState::damaged, {}};
    return {FileState::readable, *std::move(document)};
}

/// A name next to the file that nothing has yet, so that earlier damaged files are kept.
QString nameForDamaged(const QString& path)
{
    const QString base = path + QStringLiteral(".damaged-") + QDate::currentDate().toString(Qt::ISODate);
    QString name = base;
    for (int number = 2; QFileInfo::exists(name); ++number)
        name = QStringLiteral("%1-%2").arg(base).arg(number);
    return name;
}

Result<void> setAside(const QString& path)
{
    const QString name = nameForDamaged(path);
    QFile file(path);
    if (!file.rename(name))
        return fail(ErrorCode::permanent,
                    "it is damaged and could not be renamed: " + file.errorString().toStdString());
    qCCritical(settingsLog, "The settings file was damaged and is kept as %s; the defaults are in use",
               qUtf8Printable(name));
    return {};
}

Result<void> replaceFile(const QString& path, const std::string& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    const auto size = static_cast<qint64>(content.size());
    // A disk that fills up ends a long write early, without an error of its own.
    const bool isWritten = file.open(QIODevice::WriteOnly) && file.write(content.data(), size) == size;
    if (!isWritten || !file.commit())
        return fail(ErrorCode::temporary, file.errorString().toStdString());
    return {};
}

/// Whether the document tells what the file holds.
bool isKnown(const ReadFile& file)
{
    return file.state == FileState::readable || file.state == FileState::absent;
}

/// Whether something else has written the key since.
bool isOverwritten(const ReadFile& file, std::string_view key, const UnwrittenSetting& unwritten)
{
    return unwritten.wasFileKnown && isKnown(file) && file.document.value(key) != unwritten.inFile;
}

using UnwrittenSettings = std::map<std::string, UnwrittenSetting, std::less<>>;

Result<void> writeInto(const QString& path, ReadFile file, const UnwrittenSettings& settings)
{
    if (file.state == FileState::unreadable)
        return fail(ErrorCode::permanent, "it cannot be read, and what it holds would be lost");
    if (file.state == FileState::damaged) {
        if (Result<void> result = setAside(path); !result)
            return result;
    }
    for (const auto& [key, setting] : settings)
        file.document.setValue(key, setting.value);
    return replaceFile(path, file.document.text());
}

/// The whole of `text` as a number, the way the C locale writes it.
template <typename Number>
std::optional<Number> parsed(const std::string& text)
{
    Number value{};
    const char* end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stopped != end)
        return std::nullopt;
    return value;
}

} // namespace

SettingsStore::SettingsStore(std::string filePath) : filePath_(std::move(filePath))
{
    const QString path = QString::fromStdString(filePath_);
    const FileState state = readFile(path).state;
    if (state == FileState::unreadable)
        qCCritical(settingsLog, "The settings file %s cannot be read; the defaults are in use", filePath_.c_str());
    if (state != FileState::damaged)
        return;
    if (Result<void> result = setAside(path); !result)
        qCCritical(settingsLog, "The settings file %s: %s", filePath_.c_str(), result.error().message.c_str());
}

std::optional<SettingsDocument::Value> SettingsStore::stored(std::string_view key) const
{
    const ReadFile file = readFile(QString::fromStdString(filePath_));
    const auto unwritten = unwritten_.find(key);
    if (unwritten != unwritten_.end() && !isOverwritten(file, key, unwritten->second))
        return unwritten->second.value;
    return file.document.value(key);
}

std::optional<std::int64_t> SettingsStore::integer(std::string_view key) const
{
    const std::optional<std::string> value = text(key);
    return value ? parsed<std::int64_t>(*value) : std::nullopt;
}

std::optional<bool> SettingsStore::boolean(std::string_view key) const
{
    const std::optional<std::string> value = text(key);
    if (value == "true")
        return true;
    if (value == "false")
        return false;
    return std::nullopt;
}

std::optional<double> SettingsStore::number(std::string_view key) const
{
    const std::optional<std::string> value = text(key);
    const std::optional<double> number = value ? parsed<double>(*value) : std::nullopt;
    return number && std::isfinite(*number) ? number : std::nullopt;
}

std::optional<std::string> SettingsStore::text(std::string_view key) const
{
    std::optional<SettingsDocument::Value> value = stored(key);
    if (!value || !std::holds_alternative<std::string>(*value))
        return std::nullopt;
    return std::get<std::string>(*std::move(value));
}

std::optional<std::vector<std::byte>> SettingsStore::bytes(std::string_view key) const
{
    std::optional<SettingsDocument::Value> value = stored(key);
    if (!value || !std::holds_alternative<std::vector<std::byte>>(*value))
        return std::nullopt;
    return std::get<std::vector<std::byte>>(*std::move(value));
}

void SettingsStore::setInteger(std::string_view key, std::int64_t value)
{
    write(key, std::to_string(value));
}

void SettingsStore::setBoolean(std::string_view key, bool value)
{
    write(key, value ? "true" : "false");
}

void SettingsStore::setNumber(std::string_view key, double value)
{
    write(key, QString::number(value, 'g', QLocale::FloatingPointShortest).toStdString());
}

void SettingsStore::setText(std::string_view key, const std::string& value)
{
    // There and back, so that bytes that are no UTF-8 cannot make the file look damaged.
    write(key, QString::fromStdString(value).toStdString());
}

void SettingsStore::setBytes(std::string_view key, const std::vector<std::byte>& value)
{
    write(key, value);
}

void SettingsStore::write(std::string_view key, SettingsDocument::Value value)
{
    const QString path = QString::fromStdString(filePath_);
    ReadFile file = readFile(path);
    std::erase_if(unwritten_, [&file](const auto& entry) { return isOverwritten(file, entry.first, entry.second); });
    unwritten_.insert_or_assign(std::string(key),
                                UnwrittenSetting{std::move(value), isKnown(file), file.document.value(key)});
    if (const Result<void> result = writeInto(path, std::move(file), unwritten_); !result) {
        qCCritical(settingsLog, "The setting %.*s could not be written to %s: %s", static_cast<int>(key.size()),
                   key.data(), filePath_.c_str(), result.error().message.c_str());
        return;
    }
    unwritten_.clear();
}

} // namespace nimbrale
