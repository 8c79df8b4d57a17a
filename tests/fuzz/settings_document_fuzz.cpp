// Any bytes as a settings file: it is read or refused, and what is written into it is read back with every other line
// as it was.

#include "settings/app_settings_document.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using nimbrale::SettingsDocument;
    const std::string_view content(reinterpret_cast<const char*>(data), size);
    auto document = SettingsDocument::parse(content);
    if (!document)
        return 0;
    const auto before = document->value("webcamShape");
    // Half of the bytes serve as a value too: all bytes must survive.
    const auto* const bytes = reinterpret_cast<const std::byte*>(data);
    const SettingsDocument::Value value = std::vector<std::byte>(bytes + size / 2, bytes + size);
    document->setValue("webcamDeviceID", value);
    const auto again = SettingsDocument::parse(document->text());
    if (!again || again->value("webcamDeviceID") != value || again->value("webcamShape") != before)
        std::abort();
    return 0;
}
