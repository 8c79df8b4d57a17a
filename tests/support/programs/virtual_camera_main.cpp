// nimbrale_virtual_camera [--id ID] [--name NAME] [--description TEXT] [--role ROLE] [--picture FILE] [--sliding FILE]
// [--fault FAULT] FORMAT:WIDTHxHEIGHT@RATE...
// A camera on the session's PipeWire, which shows the picture or stripes that move; with a sliding picture, that one in
// front of the other (`SlidingPicture`). Takes lines: "plug", "unplug", "offer FORMAT:WIDTHxHEIGHT@RATE" (in place of
// what it offers, even while it is watched), "fault FAULT", and "show COLOR", such as "show #102030". Prints what its
// node does, and "shown TIME" when it has written the first picture of that color: in nanoseconds of the monotonic
// clock. The faults are those of the node, and "gap": bytes between the rows.

#include "tests/support/programs/camera_node.h"
#include "tests/support/programs/camera_pictures.h"
#include "tests/support/programs/monotonic_time.h"

#include <QGuiApplication>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>
#include <utility>

namespace nimbrale::test {
namespace {

struct Arguments {
    CameraNode::Properties properties;
    std::vector<CameraFormat> formats;
    std::string fault;
    QImage picture;
    QImage sliding;
};

bool setOption(Arguments& arguments, const std::string& name, const std::string& value)
{
    const QString file = QString::fromStdString(value);
    if (name == "--picture")
        return arguments.picture.load(file);
    if (name == "--sliding")
        return arguments.sliding.load(file);
    const std::array<std::pair<const char*, std::string*>, 5> texts{
        {{"--id", &arguments.properties.id},
         {"--name", &arguments.properties.name},
         {"--description", &arguments.properties.description},
         {"--role", &arguments.properties.role},
         {"--fault", &arguments.fault}}};
    for (const auto& [option, text] : texts) {
        if (name == option) {
            *text = value;
            return true;
        }
    }
    return false;
}

bool parse(Arguments& arguments, const std::vector<std::string>& words)
{
    for (std::size_t index = 0; index < words.size(); ++index) {
        if (words[index].starts_with("--")) {
            ++index;
            if (index == words.size() || !setOption(arguments, words[index - 1], words[index]))
                return false;
            continue;
        }
        const auto format = parseCameraFormat(words[index]);
        if (!format)
            return false;
        arguments.formats.push_back(*format);
    }
    return !arguments.formats.empty() && (arguments.sliding.isNull() || !arguments.picture.isNull());
}

/// The camera as whoever speaks with the program has it.
class Camera {
public:
    Camera(pw_main_loop* loop, pw_core* core, const Arguments& arguments)
        : loop_(loop), node_(
                           loop, core, [this](const CameraFormat& format, std::uint64_t number) -> auto& {
                               return pictures_.encoded(format, number, node_.fault == "gap" ? 64 : 0);
                           })
    {
        node_.properties = arguments.properties;
        node_.formats = arguments.formats;
        node_.fault = arguments.fault;
        node_.onWritten = [this] {
            if (std::exchange(isColorNew_, false))
                say("shown " + std::to_string(now()));
        };
        if (!arguments.sliding.isNull())
            pictures_.show(SlidingPicture(arguments.picture, arguments.sliding));
        else if (!arguments.picture.isNull())
            pictures_.show(arguments.picture);
        node_.plug();
    }

    void readCommands(int descriptor)
    {
        std::array<char, 256> bytes{};
        const ssize_t count = read(descriptor, bytes.data(), bytes.size());
        if (count <= 0) {
            pw_main_loop_quit(loop_);
            return;
        }
        input_.append(bytes.data(), static_cast<std::size_t>(count));
        for (std::size_t end = 0; (end = input_.find('\n')) != std::string::npos;) {
            const std::string line = input_.substr(0, end);
            input_.erase(0, end + 1);
            obey(line);
        }
    }

private:
    void obey(const std::string& line)
    {
        const std::size_t space = line.find(' ');
        const std::string command = line.substr(0, space);
        const std::string rest = space == std::string::npos ? "" : line.substr(space + 1);
        if (command == "plug") {
            node_.plug();
        } else if (command == "unplug") {
            node_.unplug();
        } else if (command == "offer") {
            if (const auto format = parseCameraFormat(rest)) {
                node_.formats = {*format};
                node_.offer();
            }
        } else if (command == "fault") {
            node_.fault = rest;
        } else if (command == "show") {
            pictures_.show(QColor(QString::fromStdString(rest)));
            isColorNew_ = true;
        }
    }

    pw_main_loop* loop_;
    CameraPictures pictures_;
    CameraNode node_;
    /// And not told yet.
    bool isColorNew_ = false;
    std::string input_;
};

int run(const std::vector<std::string>& words)
{
    Arguments arguments;
    if (!parse(arguments, words)) {
        std::fprintf(stderr, "nimbrale_virtual_camera: see its source for the arguments\n");
        return 2;
    }
    pw_main_loop* const loop = pw_main_loop_new(nullptr);
    pw_context* const context = pw_context_new(pw_main_loop_get_loop(loop), nullptr, 0);
    pw_core* const core = pw_context_connect(context, nullptr, 0);
    if (!core) {
        std::fprintf(stderr, "no PipeWire: %s\n", std::strerror(errno));
        return 1;
    }
    {
        Camera camera(loop, core, arguments);
        spa_source* const commands = pw_loop_add_io(
            pw_main_loop_get_loop(loop), STDIN_FILENO, SPA_IO_IN | SPA_IO_HUP, false,
            [](void* data, int descriptor, std::uint32_t) { static_cast<Camera*>(data)->readCommands(descriptor); },
            &camera);
        pw_main_loop_run(loop);
        pw_loop_destroy_source(pw_main_loop_get_loop(loop), commands);
    }
    pw_context_destroy(context);
    pw_main_loop_destroy(loop);
    return 0;
}

} // namespace
} // namespace nimbrale::test

int main(int count, char** values)
{
    QGuiApplication application(count, values);
    pw_init(&count, &values);
    return nimbrale::test::run({values + 1, values + count});
}
