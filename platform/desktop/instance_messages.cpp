#include "platform/desktop/instance_messages.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>
#include <utility>

namespace nimbrale {

namespace {

constexpr std::string_view greeting = "nimbrale/1 ";

constexpr std::array<std::pair<InstanceAnswer, std::string_view>, 3> answers{{
    {InstanceAnswer::done, "done"},
    {InstanceAnswer::unknown, "unknown"},
    {InstanceAnswer::ending, "ending"},
}};

bool isWord(std::string_view text)
{
    return !text.empty() &&
           std::ranges::all_of(text, [](char character) { return character > ' ' && character < 127; });
}

} // namespace

std::string formatRequest(const InstanceRequest& request)
{
    std::string line = std::string(greeting) + request.command;
    if (!request.argument.empty())
        line += " " + request.argument;
    return line + "\n";
}

std::string formatAnswer(InstanceAnswer answer)
{
    const auto* const found = std::ranges::find(answers, answer, &std::pair<InstanceAnswer, std::string_view>::first);
    return std::string(found->second) + "\n";
}

std::optional<InstanceRequest> parseRequest(std::string_view line)
{
    if (!line.starts_with(greeting) || line.size() >= longestInstanceLine)
        return std::nullopt;
    line.remove_prefix(greeting.size());
    const std::size_t space = line.find(' ');
    const std::string_view command = line.substr(0, space);
    if (!isWord(command))
        return std::nullopt;
    if (space == std::string_view::npos)
        return InstanceRequest{std::string(command), {}};
    const std::string_view argument = line.substr(space + 1);
    if (!isWord(argument))
        return std::nullopt;
    return InstanceRequest{std::string(command), std::string(argument)};
}

std::optional<InstanceAnswer> parseAnswer(std::string_view line)
{
    const auto* const found = std::ranges::find(answers, line, &std::pair<InstanceAnswer, std::string_view>::second);
    if (found == answers.end())
        return std::nullopt;
    return found->first;
}

std::optional<EventTime> parseEventTime(std::string_view argument)
{
    EventTime time = 0;
    const auto [end, error] = std::from_chars(argument.data(), argument.data() + argument.size(), time);
    // Zero stands for no time in the window system.
    if (error != std::errc() || end != argument.data() + argument.size() || time == 0)
        return std::nullopt;
    return time;
}

std::optional<EventTime> timeOfLaunch(std::string_view startupIdentifier)
{
    constexpr std::string_view mark = "_TIME";
    const std::size_t found = startupIdentifier.rfind(mark);
    if (found == std::string_view::npos)
        return std::nullopt;
    return parseEventTime(startupIdentifier.substr(found + mark.size()));
}

} // namespace nimbrale
