// nimbrale_virtual_sound sink|microphone|player [--id ID] [--name NAME] [--channels COUNT] [--target SINK] [--tone HZ]
// [--beep HZ]
// A loudspeaker, a microphone or a program that plays, on the session's PipeWire. The latter two give a tone of level
// 0.4, or 100 ms of it from every whole second of CLOCK_MONOTONIC on, or silence. Takes lines: "plug", "unplug". Prints
// "plugged", "unplugged", and of a microphone "heard" and "unheard" when somebody listens and when nobody does any
// more; and "clock DRIVER RATE QUANTUM" when what drives it changes, DRIVER being that node's number.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <numbers>
#include <pipewire/pipewire.h>
#include <spa/param/audio/format-utils.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace nimbrale::test {
namespace {

constexpr std::uint32_t sampleRate = 48000;
constexpr double level = 0.4;
constexpr double beepLength = 0.1;

struct Device {
    std::string kind;
    std::string id = "sound";
    std::string name;
    std::string target;
    int channels = 2;
    double frequency = 0; ///< 0 is silence
    bool isBeep = false;

    pw_main_loop* loop = nullptr;
    pw_core* core = nullptr;
    pw_stream* stream = nullptr;
    spa_hook listener{};
    spa_io_position* position = nullptr; ///< what drives the stream
    std::string clock;                   ///< that was told of

    pw_proxy* sink = nullptr;
    spa_hook sinkListener{};
    std::string input;
};

Device& of(void* data)
{
    return *static_cast<Device*>(data);
}

void say(const char* text)
{
    std::printf("%s\n", text);
    std::fflush(stdout);
}

/// When the first sample of the next buffer, of so many, is heard. A microphone is asked for it in the cycle in which
/// it is heard, a player one cycle before, while the buffer before is played.
std::int64_t nextTime(Device& device, std::uint32_t count)
{
    pw_time time{};
    pw_stream_get_time_n(device.stream, &time, sizeof time);
    constexpr auto second = static_cast<std::int64_t>(SPA_NSEC_PER_SEC);
    const std::int64_t delay = time.rate.denom != 0 ? time.delay * second * time.rate.num / time.rate.denom : 0;
    return time.now + delay + (device.kind == "player" ? std::int64_t{count} * second / sampleRate : 0);
}

float sampleAt(const Device& device, std::int64_t time)
{
    constexpr auto second = static_cast<std::int64_t>(SPA_NSEC_PER_SEC);
    const double within = static_cast<double>(time % second) / static_cast<double>(second);
    if (device.frequency == 0 || (device.isBeep && within >= beepLength))
        return 0;
    return static_cast<float>(level * std::sin(2 * std::numbers::pi * device.frequency * within));
}

/// Called on the thread for data, which is all right for a test's program.
void tellClock(Device& device)
{
    if (!device.position)
        return;
    const spa_io_clock& clock = device.position->clock;
    const std::string text = "clock " + std::to_string(clock.id) + ' ' + std::to_string(clock.rate.denom) + ' ' +
                             std::to_string(clock.duration);
    if (text == device.clock)
        return;
    device.clock = text;
    say(text.c_str());
}

void process(void* data)
{
    Device& device = of(data);
    tellClock(device);
    pw_buffer* const buffer = pw_stream_dequeue_buffer(device.stream);
    if (!buffer)
        return;
    spa_data& plane = buffer->buffer->datas[0];
    const auto stride = static_cast<std::uint32_t>(sizeof(float)) * static_cast<std::uint32_t>(device.channels);
    std::uint32_t count = plane.maxsize / stride;
    if (buffer->requested > 0)
        count = std::min(count, static_cast<std::uint32_t>(buffer->requested));
    const std::int64_t begin = nextTime(device, count);
    auto* sample = static_cast<float*>(plane.data);
    for (std::uint32_t index = 0; index < count; ++index) {
        const std::int64_t time = begin + std::int64_t{index} * std::int64_t{SPA_NSEC_PER_SEC} / sampleRate;
        sample = std::fill_n(sample, device.channels, sampleAt(device, time));
    }
    *plane.chunk = {0, count * stride, static_cast<std::int32_t>(stride), 0};
    pw_stream_queue_buffer(device.stream, buffer);
}

void stateChanged(void* data, pw_stream_state before, pw_stream_state state, const char* error)
{
    const bool isMicrophone = of(data).kind == "microphone";
    if (state == PW_STREAM_STATE_ERROR)
        std::fprintf(stderr, "error: %s\n", error ? error : "");
    if (state == PW_STREAM_STATE_PAUSED && before == PW_STREAM_STATE_CONNECTING)
        say("plugged");
    else if (isMicrophone && state == PW_STREAM_STATE_PAUSED)
        say("unheard");
    else if (isMicrophone && state == PW_STREAM_STATE_STREAMING)
        say("heard");
}

void plugSink(Device& device)
{
    pw_properties* const properties =
        pw_properties_new("factory.name", "support.null-audio-sink", PW_KEY_MEDIA_CLASS, "Audio/Sink", PW_KEY_NODE_NAME,
                          device.id.c_str(), PW_KEY_NODE_DESCRIPTION, device.name.c_str(), "audio.position", "FL,FR",
                          "monitor.channel-volumes", "true", nullptr);
    device.sink = static_cast<pw_proxy*>(
        pw_core_create_object(device.core, "adapter", PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, &properties->dict, 0));
    pw_properties_free(properties);
    static const pw_proxy_events events = [] {
        pw_proxy_events list{};
        list.version = PW_VERSION_PROXY_EVENTS;
        list.bound = [](void*, std::uint32_t) { say("plugged"); };
        return list;
    }();
    pw_proxy_add_listener(device.sink, &device.sinkListener, &events, &device);
}

void plugStream(Device& device)
{
    const bool isMicrophone = device.kind == "microphone";
    pw_properties* const properties = pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Playback",
                                                        PW_KEY_NODE_NAME, device.id.c_str(), PW_KEY_NODE_DESCRIPTION,
                                                        device.name.c_str(), PW_KEY_NODE_LATENCY, "480/48000", nullptr);
    if (isMicrophone)
        pw_properties_set(properties, PW_KEY_MEDIA_CLASS, "Audio/Source");
    if (!device.target.empty()) {
        pw_properties_set(properties, PW_KEY_TARGET_OBJECT, device.target.c_str());
        // The session manager would move it along when the user prefers another loudspeaker.
        pw_properties_set(properties, PW_KEY_NODE_DONT_RECONNECT, "true");
    }
    device.stream = pw_stream_new(device.core, device.id.c_str(), properties);
    static const pw_stream_events events = [] {
        pw_stream_events list{};
        list.version = PW_VERSION_STREAM_EVENTS;
        list.state_changed = stateChanged;
        list.io_changed = [](void* data, std::uint32_t kind, void* area, std::uint32_t) {
            if (kind == SPA_IO_Position)
                of(data).position = static_cast<spa_io_position*>(area);
        };
        list.process = process;
        return list;
    }();
    pw_stream_add_listener(device.stream, &device.listener, &events, &device);
    spa_audio_info_raw format{};
    format.format = SPA_AUDIO_FORMAT_F32;
    format.rate = sampleRate;
    format.channels = static_cast<std::uint32_t>(device.channels);
    format.position[0] = device.channels == 1 ? SPA_AUDIO_CHANNEL_MONO : SPA_AUDIO_CHANNEL_FL;
    format.position[1] = SPA_AUDIO_CHANNEL_FR;
    std::array<std::uint8_t, 1024> bytes{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    const spa_pod* offer = spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &format);
    const auto flags = static_cast<pw_stream_flags>((isMicrophone ? 0 : PW_STREAM_FLAG_AUTOCONNECT) |
                                                    PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS);
    pw_stream_connect(device.stream, PW_DIRECTION_OUTPUT, PW_ID_ANY, flags, &offer, 1);
}

void plug(Device& device)
{
    if (device.kind == "sink")
        plugSink(device);
    else
        plugStream(device);
}

void unplug(Device& device)
{
    if (device.stream) {
        spa_hook_remove(&device.listener);
        pw_stream_destroy(device.stream);
    }
    if (device.sink) {
        spa_hook_remove(&device.sinkListener);
        pw_proxy_destroy(device.sink);
    }
    device.stream = nullptr;
    device.sink = nullptr;
    say("unplugged");
}

void readCommands(void* data, int descriptor, std::uint32_t)
{
    Device& device = of(data);
    std::array<char, 256> bytes{};
    const ssize_t count = read(descriptor, bytes.data(), bytes.size());
    if (count <= 0) {
        pw_main_loop_quit(device.loop);
        return;
    }
    device.input.append(bytes.data(), static_cast<std::size_t>(count));
    for (std::size_t end = 0; (end = device.input.find('\n')) != std::string::npos;) {
        const std::string line = device.input.substr(0, end);
        device.input.erase(0, end + 1);
        if (line == "plug")
            plug(device);
        else if (line == "unplug")
            unplug(device);
    }
}

bool parseArguments(Device& device, const std::vector<std::string>& arguments)
{
    if (arguments.size() % 2 == 0)
        return false;
    device.kind = arguments[0];
    for (std::size_t index = 1; index < arguments.size(); index += 2) {
        const std::string& argument = arguments[index];
        const std::string& value = arguments[index + 1];
        if (argument == "--id")
            device.id = value;
        else if (argument == "--name")
            device.name = value;
        else if (argument == "--target")
            device.target = value;
        else if (argument == "--channels")
            device.channels = std::stoi(value);
        else if (argument == "--tone" || argument == "--beep")
            device.frequency = std::stod(value);
        else
            return false;
        device.isBeep = device.isBeep || argument == "--beep";
    }
    return device.kind == "sink" || device.kind == "microphone" || device.kind == "player";
}

int run(const std::vector<std::string>& arguments)
{
    Device device;
    if (!parseArguments(device, arguments)) {
        std::fprintf(stderr, "nimbrale_virtual_sound: see its source for the arguments\n");
        return 2;
    }
    device.loop = pw_main_loop_new(nullptr);
    pw_loop* const loop = pw_main_loop_get_loop(device.loop);
    pw_context* const context = pw_context_new(loop, nullptr, 0);
    device.core = pw_context_connect(context, nullptr, 0);
    if (!device.core) {
        std::fprintf(stderr, "no PipeWire: %s\n", std::strerror(errno));
        return 1;
    }
    pw_loop_add_io(loop, STDIN_FILENO, SPA_IO_IN | SPA_IO_HUP, false, readCommands, &device);
    plug(device);
    pw_main_loop_run(device.loop);
    unplug(device);
    pw_context_destroy(context);
    pw_main_loop_destroy(device.loop);
    return 0;
}

} // namespace
} // namespace nimbrale::test

int main(int count, char** values)
{
    pw_init(&count, &values);
    return nimbrale::test::run({values + 1, values + count});
}
