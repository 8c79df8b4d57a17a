// Any bytes as the line that a second instance sends, or gets for an answer: what is understood says the same when it
// is written again.

#include "platform/desktop/instance_messages.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view line(reinterpret_cast<const char*>(data), size);
    const std::string whole = std::string(line) + "\n";
    const auto request = nimbrale::parseRequest(line);
    if (request && (nimbrale::formatRequest(*request) != whole || whole.size() > nimbrale::longestInstanceLine))
        std::abort();
    const auto answer = nimbrale::parseAnswer(line);
    if (answer && nimbrale::formatAnswer(*answer) != whole)
        std::abort();
    // Zero stands for no time.
    for (const auto time : {nimbrale::parseEventTime(line), nimbrale::timeOfLaunch(line)}) {
        if (time && (*time == 0 || line.find(std::to_string(*time)) == std::string_view::npos))
            std::abort();
    }
    return 0;
}
