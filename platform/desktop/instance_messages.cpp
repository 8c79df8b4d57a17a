#include "platform/desktop/instance_messages.h"

#include <algorithm>
#include <array>
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

} // namespace nimbrale
