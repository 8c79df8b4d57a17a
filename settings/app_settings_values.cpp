#include "settings/app_settings_values.h"

#include "settings/app_settings.h"

#include <QLocale>
#include <QString>

#include <array>
#include <charconv>
#include <cmath>
#include <string_view>
#include <type_traits>
#include <utility>

namespace nimbrale {

namespace {

using Stored = SettingsDocument::Value;
using Bytes = std::vector<std::byte>;

/// Each case of an enumeration with the string that stands for it in the file.
template <typename Enum, std::size_t count>
using CaseNames = std::array<std::pair<Enum, std::string_view>, count>;

template <typename Enum>
constexpr int caseNames = 0;

template <>
constexpr CaseNames<AppSettings::WebcamShape, 3> caseNames<AppSettings::WebcamShape>{{
    {AppSettings::WebcamShape::rectangle, "rectangle"},
    {AppSettings::WebcamShape::rounded, "rounded"},
    {AppSettings::WebcamShape::circle, "circle"},
}};

template <>
constexpr CaseNames<AppSettings::WebcamBackground, 3> caseNames<AppSettings::WebcamBackground>{{
    {AppSettings::WebcamBackground::original, "original"},
    {AppSettings::WebcamBackground::blurred, "blurred"},
    {AppSettings::WebcamBackground::transparent, "transparent"},
}};

template <>
constexpr CaseNames<AppSettings::RecordingQuality, 2> caseNames<AppSettings::RecordingQuality>{{
    {AppSettings::RecordingQuality::standard, "standard"},
    {AppSettings::RecordingQuality::high, "high"},
}};

template <>
constexpr CaseNames<AppSettings::SettingsTab, 3> caseNames<AppSettings::SettingsTab>{{
    {AppSettings::SettingsTab::general, "general"},
    {AppSettings::SettingsTab::webcam, "webcam"},
    {AppSettings::SettingsTab::recording, "recording"},
}};

/// The whole of `text` as a number, the way the C locale writes it.
template <typename Number>
std::optional<Number> numberOf(const std::string& text)
{
    Number value{};
    const char* end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stopped != end)
        return std::nullopt;
    return value;
}

std::optional<bool> booleanOf(const std::string& text)
{
    if (text == "true")
        return true;
    if (text == "false")
        return false;
    return std::nullopt;
}

template <typename Enum>
std::optional<Enum> caseOf(const std::string& text)
{
    for (const auto& [value, name] : caseNames<Enum>) {
        if (text == name)
            return value;
    }
    return std::nullopt;
}

template <typename Enum>
std::string nameOf(Enum wanted)
{
    for (const auto& [value, name] : caseNames<Enum>) {
        if (value == wanted)
            return std::string(name);
    }
    return {};
}

} // namespace

template <typename Type>
Stored storedForm(const Type& value)
{
    if constexpr (std::is_enum_v<Type>)
        return nameOf(value);
    else if constexpr (std::is_same_v<Type, bool>)
        return value ? "true" : "false";
    else if constexpr (std::is_same_v<Type, double>)
        return QString::number(value, 'g', QLocale::FloatingPointShortest).toStdString();
    else if constexpr (std::is_same_v<Type, std::int64_t>)
        return std::to_string(value);
    else if constexpr (std::is_same_v<Type, std::string>)
        return QString::fromStdString(value).toStdString(); // Bytes that are no UTF-8 would make the file look damaged.
    else
        return value;
}

template <typename Type>
std::optional<Type> valueOfStoredForm(const Stored& stored)
{
    if constexpr (std::is_same_v<Type, Bytes>) {
        const auto* bytes = std::get_if<Bytes>(&stored);
        return bytes ? std::optional(*bytes) : std::nullopt;
    } else {
        const auto* text = std::get_if<std::string>(&stored);
        if (!text)
            return std::nullopt;
        if constexpr (std::is_enum_v<Type>) {
            return caseOf<Type>(*text);
        } else if constexpr (std::is_same_v<Type, bool>) {
            return booleanOf(*text);
        } else if constexpr (std::is_same_v<Type, double>) {
            const std::optional<double> number = numberOf<double>(*text);
            return number && std::isfinite(*number) ? number : std::nullopt;
        } else if constexpr (std::is_same_v<Type, std::int64_t>) {
            return numberOf<std::int64_t>(*text);
        } else {
            return *text;
        }
    }
}

template Stored storedForm(const std::int64_t& value);
template Stored storedForm(const bool& value);
template Stored storedForm(const double& value);
template Stored storedForm(const std::string& value);
template Stored storedForm(const Bytes& value);
template Stored storedForm(const AppSettings::WebcamShape& value);
template Stored storedForm(const AppSettings::WebcamBackground& value);
template Stored storedForm(const AppSettings::RecordingQuality& value);
template Stored storedForm(const AppSettings::SettingsTab& value);

template std::optional<std::int64_t> valueOfStoredForm(const Stored& stored);
template std::optional<bool> valueOfStoredForm(const Stored& stored);
template std::optional<double> valueOfStoredForm(const Stored& stored);
template std::optional<std::string> valueOfStoredForm(const Stored& stored);
template std::optional<Bytes> valueOfStoredForm(const Stored& stored);
template std::optional<AppSettings::WebcamShape> valueOfStoredForm(const Stored& stored);
template std::optional<AppSettings::WebcamBackground> valueOfStoredForm(const Stored& stored);
template std::optional<AppSettings::RecordingQuality> valueOfStoredForm(const Stored& stored);
template std::optional<AppSettings::SettingsTab> valueOfStoredForm(const Stored& stored);

} // namespace nimbrale
