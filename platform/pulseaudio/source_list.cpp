#include "platform/pulseaudio/source_list.h"

#include <QString>

#include <algorithm>
#include <utility>

namespace nimbrale::pulseaudio {

namespace {

constexpr auto watched = static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SOURCE | PA_SUBSCRIPTION_MASK_SERVER);

/// What a driver says of itself need be no UTF-8.
std::string nameOf(const pa_source_info& source)
{
    const std::string description = QString::fromUtf8(source.description).trimmed().toStdString();
    return description.empty() ? source.name : description;
}

} // namespace

struct SourceList::Events {
    static SourceList& of(void* data) { return *static_cast<SourceList*>(data); }

    static void serverTold(pa_context* /*context*/, const pa_server_info* server, void* data)
    {
        of(data).default_ = server && server->default_source_name ? server->default_source_name : "";
    }

    static void sourceTold(pa_context* /*context*/, const pa_source_info* source, int end, void* data)
    {
        SourceList& self = of(data);
        if (end == 0) {
            if (isMicrophone(*source))
                self.found_.push_back({source->name, nameOf(*source)});
            return;
        }
        SourceSnapshot snapshot{std::exchange(self.found_, {}), {}, true};
        const auto isDefault = [&self](const MicrophoneDevice& device) { return device.id == self.default_; };
        if (std::ranges::any_of(snapshot.microphones, isDefault))
            snapshot.preferred = self.default_;
        self.report(std::move(snapshot));
    }
};

bool isMicrophone(const pa_source_info& source)
{
    return source.monitor_of_sink == PA_INVALID_INDEX && source.name && *source.name;
}

SourceList::SourceList(Handler onChange)
    : onChange_(std::move(onChange)), connection_("nimbrale-mics", watched,
                                                  {.onConnected =
                                                       [this](pa_context* context) {
                                                           context_ = context;
                                                           ask();
                                                       },
                                                   .onChanged = [this] { ask(); },
                                                   .onGone =
                                                       [this] {
                                                           serverQuestion_.reset();
                                                           sourceQuestion_.reset();
                                                           report({{}, {}, true});
                                                       }})
{
    // Without a thread there are no devices, which is known at once.
    if (!connection_.start())
        report({{}, {}, true});
}

/// The server answers in the order of the questions. One that is under way is withdrawn: its answer may be outdated.
void SourceList::ask()
{
    found_.clear();
    serverQuestion_.reset(pa_context_get_server_info(context_, &Events::serverTold, this));
    sourceQuestion_.reset(pa_context_get_source_info_list(context_, &Events::sourceTold, this));
}

void SourceList::report(SourceSnapshot snapshot)
{
    if (snapshot == reported_)
        return;
    reported_ = std::move(snapshot);
    onChange_(reported_);
}

} // namespace nimbrale::pulseaudio
