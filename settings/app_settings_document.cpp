#include "settings/app_settings_document.h"

#include <QByteArrayView>
#include <QString>
#include <QUtf8StringView>

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

namespace nimbrale {

namespace {

constexpr std::string_view generalSection = "[General]";
constexpr std::string_view bytesPrefix = "@ByteArray(";

/// Characters that have a letter to be written by, after a backslash.
constexpr std::array<std::pair<char, char>, 9> namedEscapes{{{'\a', 'a'},
                                                             {'\b', 'b'},
                                                             {'\f', 'f'},
                                                             {'\n', 'n'},
                                                             {'\r', 'r'},
                                                             {'\t', 't'},
                                                             {'\v', 'v'},
                                                             {'"', '"'},
                                                             {'\\', '\\'}}};

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool isSection(std::string_view line)
{
    return line.starts_with('[') && line.ends_with(']');
}

bool isPlausible(std::string_view line)
{
    const std::string_view text = trimmed(line);
    if (text.empty() || text.starts_with(';') || text.starts_with('#') || isSection(text))
        return true;
    const std::size_t equals = text.find('=');
    return equals != std::string_view::npos && equals > 0;
}

/// The key of a line that assigns one; empty for any other line.
std::string_view keyOf(std::string_view line)
{
    const std::string_view text = trimmed(line);
    if (text.starts_with(';') || text.starts_with('#'))
        return {};
    const std::size_t equals = text.find('=');
    return equals == std::string_view::npos ? std::string_view() : trimmed(text.substr(0, equals));
}

int hexadecimalDigit(char character)
{
    if (character >= '0' && character <= '9')
        return character - '0';
    if (character >= 'a' && character <= 'f')
        return character - 'a' + 10;
    if (character >= 'A' && character <= 'F')
        return character - 'A' + 10;
    return -1;
}

void appendUtf8(std::string& text, char32_t character)
{
    text += QString::fromUcs4(&character, 1).toStdString();
}

/// Reads what follows a backslash and removes it from `rest`; absent for what means nothing.
std::optional<char32_t> takeEscape(std::string_view& rest)
{
    if (rest.empty())
        return std::nullopt;
    const char kind = rest.front();
    rest.remove_prefix(1);
    for (const auto& [character, letter] : namedEscapes) {
        if (kind == letter)
            return character;
    }
    if (kind == '0')
        return U'\0';
    if (kind != 'x')
        return std::nullopt;
    std::uint32_t character = 0;
    bool hasDigits = false;
    while (!rest.empty() && hexadecimalDigit(rest.front()) >= 0 && character <= 0xffff) {
        character = character * 16 + static_cast<std::uint32_t>(hexadecimalDigit(rest.front()));
        rest.remove_prefix(1);
        hasDigits = true;
    }
    return hasDigits && character <= 0xffff ? std::optional<char32_t>(character) : std::nullopt;
}

/// The text that a value was written from. Absent for a list and for what cannot be understood.
std::optional<std::string> unescaped(std::string_view written)
{
    std::string text;
    bool isQuoted = false;
    for (std::string_view rest = trimmed(written); !rest.empty();) {
        const char character = rest.front();
        rest.remove_prefix(1);
        if (character == '"') {
            isQuoted = !isQuoted;
        } else if (character == '\\') {
            const std::optional<char32_t> escaped = takeEscape(rest);
            if (!escaped)
                return std::nullopt;
            appendUtf8(text, *escaped);
        } else if (character == ',' && !isQuoted) {
            return std::nullopt;
        } else {
            text += character;
        }
    }
    return isQuoted ? std::nullopt : std::optional(text);
}

std::string escaped(std::string_view text)
{
    constexpr std::string_view digits = "0123456789abcdef";
    constexpr std::string_view needingQuotes = ";,= ";
    std::string written;
    bool endsInDigits = false; // After a code, a digit that stands for itself would be read as part of the code.
    for (const char character : text) {
        const auto* named = std::ranges::find(namedEscapes, character, [](const auto& escape) { return escape.first; });
        const bool isControl = static_cast<unsigned char>(character) < 0x20;
        if (named != namedEscapes.end()) {
            written += {'\\', named->second};
            endsInDigits = false;
        } else if (isControl || (endsInDigits && hexadecimalDigit(character) >= 0)) {
            const auto code = static_cast<unsigned char>(character);
            written += {'\\', 'x', digits[code / 16], digits[code % 16]};
            endsInDigits = true;
        } else {
            written += character;
            endsInDigits = false;
        }
    }
    return text.find_first_of(needingQuotes) == std::string_view::npos ? written : '"' + written + '"';
}

/// Bytes as the text of the characters that have their numbers.
std::string textOf(const std::vector<std::byte>& bytes)
{
    const auto size = static_cast<qsizetype>(bytes.size());
    return QString::fromLatin1(reinterpret_cast<const char*>(bytes.data()), size).toStdString();
}

std::vector<std::byte> bytesOf(std::string_view text)
{
    const QByteArray bytes = QString::fromUtf8(QByteArrayView(text)).toLatin1();
    const auto* first = reinterpret_cast<const std::byte*>(bytes.constData());
    return {first, first + bytes.size()};
}

std::string written(const SettingsDocument::Value& value)
{
    if (const auto* bytes = std::get_if<std::vector<std::byte>>(&value))
        return escaped(std::string(bytesPrefix) + textOf(*bytes) + ")");
    const std::string& text = std::get<std::string>(value);
    return escaped(text.starts_with('@') ? '@' + text : text);
}

/// Calls `visit` with the index of each line that assigns `key` in the general section.
template <typename Visit>
void forEachAssignment(const std::vector<std::string>& lines, std::string_view key, Visit visit)
{
    bool isGeneral = true;
    for (std::size_t index = 0; index < lines.size(); ++index) {
        const std::string_view line = trimmed(lines[index]);
        if (isSection(line))
            isGeneral = line == generalSection;
        else if (isGeneral && keyOf(line) == key)
            visit(index);
    }
}

} // namespace

std::optional<SettingsDocument> SettingsDocument::parse(std::string_view content)
{
    const QUtf8StringView utf8(content.data(), static_cast<qsizetype>(content.size()));
    if (content.size() > largestSize || content.find('\0') != std::string_view::npos || !utf8.isValidUtf8())
        return std::nullopt;
    SettingsDocument document;
    while (!content.empty()) {
        const std::size_t end = std::min(content.find('\n'), content.size());
        if (!isPlausible(content.substr(0, end)))
            return std::nullopt;
        document.lines_.emplace_back(content.substr(0, end));
        content.remove_prefix(std::min(end + 1, content.size()));
    }
    return document;
}

std::optional<SettingsDocument::Value> SettingsDocument::value(std::string_view key) const
{
    std::optional<std::string> text;
    forEachAssignment(lines_, key, [&](std::size_t index) {
        const std::string_view line = lines_[index];
        text = unescaped(line.substr(line.find('=') + 1));
    });
    if (!text || !text->starts_with('@'))
        return text;
    if (text->starts_with("@@"))
        return text->substr(1);
    if (!text->starts_with(bytesPrefix) || !text->ends_with(')'))
        return std::nullopt;
    return bytesOf(std::string_view(*text).substr(bytesPrefix.size(), text->size() - bytesPrefix.size() - 1));
}

bool SettingsDocument::hasGeneralSection() const
{
    return std::ranges::any_of(lines_, [](const std::string& line) { return trimmed(line) == generalSection; });
}

void SettingsDocument::setValue(std::string_view key, const Value& value)
{
    const std::string line = std::string(key) + "=" + written(value);
    bool wasThere = false;
    forEachAssignment(lines_, key, [&](std::size_t index) {
        lines_[index] = line;
        wasThere = true;
    });
    if (wasThere)
        return;
    if (!hasGeneralSection())
        lines_.insert(lines_.begin(), std::string(generalSection));
    const auto isGeneral = [](const std::string& candidate) { return trimmed(candidate) == generalSection; };
    const auto isNextSection = [](const std::string& candidate) { return isSection(trimmed(candidate)); };
    auto place = std::find_if(std::ranges::find_if(lines_, isGeneral) + 1, lines_.end(), isNextSection);
    while (trimmed(*(place - 1)).empty())
        --place;
    lines_.insert(place, line);
}

std::string SettingsDocument::text() const
{
    std::string text;
    for (const std::string& line : lines_)
        text += line + "\n";
    return text;
}

} // namespace nimbrale
