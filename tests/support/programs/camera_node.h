#pragma once

#include "tests/support/programs/camera_encoding.h"

#include <cstdint>
#include <functional>
#include <pipewire/pipewire.h>
#include <spa/pod/builder.h>
#include <string>
#include <vector>

namespace nimbrale::test {

/// A camera's node on the session's PipeWire, which drives itself. It prints "plugged", "unplugged", "streaming
/// FORMAT:WIDTHxHEIGHT" and "paused".
class CameraNode {
public:
    struct Properties {
        std::string id = "camera";
        std::string name;
        std::string description = "Virtual camera";
        std::string role = "Camera";
    };
    /// Gives a picture in that format.
    using Picture = std::function<const EncodedPicture&(const CameraFormat& format, std::uint64_t number)>;

    /// Both are the caller's and must outlive it.
    CameraNode(pw_main_loop* loop, pw_core* core, Picture picture);
    ~CameraNode();
    CameraNode(const CameraNode&) = delete;
    CameraNode& operator=(const CameraNode&) = delete;

    Properties properties;
    /// What it offers; at least one, before it is plugged in.
    std::vector<CameraFormat> formats;
    /// What is wrong with what it writes: "no-stride", "wide-stride", "narrow-stride", "negative-stride", "half",
    /// "too-long", "far-offset", "empty", "marked", "scrambled" or "no-time"; "silent" writes nothing.
    std::string fault;
    /// Called when a picture was written.
    std::function<void()> onWritten;

    void plug();
    void unplug();
    /// Offers `formats` as they are now, even while it is watched.
    void offer();

private:
    [[nodiscard]] std::vector<const spa_pod*> offered(spa_pod_builder& builder) const;
    void stateChanged(pw_stream_state before, pw_stream_state state, const char* error);
    void formatChanged(const spa_pod* format);
    void process();
    void write(spa_buffer& buffer);
    void setClock(bool isRunning);

    pw_main_loop* loop_;
    pw_core* core_;
    Picture picture_;
    pw_stream* stream_ = nullptr;
    spa_hook listener_{};
    spa_source* clock_;
    CameraFormat current_;
    std::uint64_t count_ = 0;
};

/// Prints a line at once.
void say(const std::string& text);

} // namespace nimbrale::test
