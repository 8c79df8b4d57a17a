#pragma once

#include "platform/audio_sources.h"
#include "platform/pulseaudio/server_connection.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale::pulseaudio {

/// Whether it is a microphone, and not what a loudspeaker plays.
[[nodiscard]] bool isMicrophone(const pa_source_info& source);

/// What the application sees of the server's sources.
struct SourceSnapshot {
    std::vector<MicrophoneDevice> microphones;
    std::optional<std::string> preferred;
    /// Whether the server has told of all that it has, or there is none.
    bool isKnown = false;

    bool operator==(const SourceSnapshot&) const = default;
};

/// Follows which microphones the server has, on a thread of its own, as the server comes and goes.
class SourceList {
public:
    using Handler = std::function<void(const SourceSnapshot& snapshot)>;

    /// `onChange` is called on the list's thread when something changed, which counts from nothing known at all.
    explicit SourceList(Handler onChange);
    /// No handler is called any more after it.
    ~SourceList() { connection_.stop(); }
    SourceList(const SourceList&) = delete;
    SourceList& operator=(const SourceList&) = delete;

private:
    struct Events;

    void ask();
    void report(SourceSnapshot snapshot);

    Handler onChange_;
    SourceSnapshot reported_;
    pa_context* context_ = nullptr;
    std::string default_;
    std::vector<MicrophoneDevice> found_; ///< of the answer that is coming in
    ServerConnection connection_;
    Question serverQuestion_;
    Question sourceQuestion_;
};

} // namespace nimbrale::pulseaudio
