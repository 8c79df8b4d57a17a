// nimbrale_scene: windows of another application, led by lines on standard input. Each line is answered with "ok", a
// value behind it where there is one, or "no" with the reason, once the server has done what the line asked.

#include "tests/support/programs/scene_window.h"
#include "tests/support/x_reply.h"

#include <array>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <poll.h>
#include <sstream>
#include <unistd.h>

namespace nimbrale::test {

namespace {

class Scene {
public:
    Scene(xcb_connection_t* connection, const xcb_screen_t& screen) : connection_(connection), screen_(screen) {}

    int run()
    {
        std::string unread;
        while (!isOver_) {
            handleEvents();
            xcb_flush(connection_);
            // Sending takes in what has arrived, and the socket does not announce it again.
            if (const Reply<xcb_generic_event_t> event{xcb_poll_for_queued_event(connection_)}) {
                handle(*event);
                continue;
            }
            std::array<pollfd, 2> waiting{pollfd{xcb_get_file_descriptor(connection_), POLLIN, 0},
                                          pollfd{STDIN_FILENO, POLLIN, 0}};
            poll(waiting.data(), waiting.size(), -1);
            if (xcb_connection_has_error(connection_))
                return 1;
            if (!waiting[1].revents)
                continue;
            std::array<char, 4096> buffer{};
            const ssize_t count = read(STDIN_FILENO, buffer.data(), buffer.size());
            if (count <= 0)
                return 0;
            unread.append(buffer.data(), static_cast<std::size_t>(count));
            obeyLines(unread);
        }
        return 0;
    }

private:
    void obeyLines(std::string& unread)
    {
        for (std::size_t end = unread.find('\n'); end != std::string::npos && !isOver_; end = unread.find('\n')) {
            std::istringstream line(unread.substr(0, end));
            unread.erase(0, end + 1);
            const std::string answer = obey(line);
            settle();
            std::cout << answer << std::endl;
        }
    }

    std::string obey(std::istringstream& line)
    {
        std::string command;
        std::string name;
        line >> command >> name;
        if (command == "quit") {
            isOver_ = true;
            return "ok";
        }
        if (command == "settle")
            return "ok"; // As after every other line, the server has been waited for before the answer.
        if (command == "add")
            return add(name, line);
        if (command == "focused") {
            settle();
            return "ok " + focused_;
        }
        const auto found = windows_.find(name);
        if (found == windows_.end())
            return "no window " + name;
        if (command == "remove") {
            windows_.erase(found);
            return "ok";
        }
        return obeyFor(*found->second, command, line);
    }

    std::string obeyFor(SceneWindow& window, const std::string& command, std::istringstream& line)
    {
        const auto number = [&line] {
            std::int64_t value = 0;
            line >> value;
            return static_cast<std::uint32_t>(value);
        };
        if (command == "move") {
            const std::uint32_t x = number();
            window.configure(XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, {x, number()});
        } else if (command == "resize") {
            const std::uint32_t width = number();
            window.configure(XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, {width, number()});
        } else if (command == "raise") {
            window.configure(XCB_CONFIG_WINDOW_STACK_MODE, {XCB_STACK_MODE_ABOVE});
        } else if (command == "lower") {
            window.configure(XCB_CONFIG_WINDOW_STACK_MODE, {XCB_STACK_MODE_BELOW});
        } else if (command == "map") {
            window.map();
        } else if (command == "unmap") {
            window.unmap();
        } else if (command == "repaint") {
            window.repaint(number());
        } else if (command == "fill") {
            const auto x = static_cast<std::int16_t>(number());
            const auto y = static_cast<std::int16_t>(number());
            const auto width = static_cast<std::uint16_t>(number());
            const auto height = static_cast<std::uint16_t>(number());
            window.fill({x, y, width, height}, number());
        } else if (command == "identifier") {
            return "ok " + std::to_string(window.identifier());
        } else if (command == "presses") {
            settle();
            return "ok " + std::to_string(window.presses);
        } else {
            return "no command " + command;
        }
        return "ok";
    }

    std::string add(const std::string& name, std::istringstream& line)
    {
        SceneWindowOptions options;
        options.name = name;
        line >> options.x >> options.y >> options.width >> options.height;
        for (std::string word; line >> word;) {
            const std::size_t equals = word.find('=');
            const std::string key = word.substr(0, equals);
            const std::string value = equals == std::string::npos ? std::string() : word.substr(equals + 1);
            if (key == "seed")
                options.seed = static_cast<std::uint32_t>(std::stoul(value));
            else if (key == "color")
                options.color = static_cast<std::uint32_t>(std::stoul(value));
            else if (key == "depth")
                options.depth = static_cast<std::uint8_t>(std::stoul(value));
            else if (key == "border")
                options.borderWidth = static_cast<std::uint16_t>(std::stoul(value));
            else if (key == "type")
                options.type = value;
            else if (key == "unmanaged")
                options.isUnmanaged = true;
            else if (key == "round")
                options.isRound = true;
            else if (key == "fullscreen")
                options.isFullScreen = true;
            else if (key == "unmapped")
                options.isMapped = false;
            else
                return "no option " + word;
        }
        windows_[name] = std::make_unique<SceneWindow>(connection_, screen_, options);
        return "ok";
    }

    /// Waits for the server, twice, for painting on the exposures that the first round brings.
    void settle()
    {
        for (int round = 0; round < 2; ++round) {
            const Reply<xcb_get_input_focus_reply_t> reply(
                xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
            handleEvents();
        }
        const Reply<xcb_get_input_focus_reply_t> reply(
            xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
    }

    void handleEvents()
    {
        while (const Reply<xcb_generic_event_t> event{xcb_poll_for_event(connection_)})
            handle(*event);
    }

    template <typename Event>
    static const Event& as(const xcb_generic_event_t& event)
    {
        return reinterpret_cast<const Event&>(event);
    }

    void handle(const xcb_generic_event_t& event)
    {
        switch (event.response_type & 0x7f) {
        case XCB_EXPOSE:
            with(as<xcb_expose_event_t>(event).window, [](SceneWindow& window) { window.paint(); });
            break;
        case XCB_CONFIGURE_NOTIFY: {
            const auto& change = as<xcb_configure_notify_event_t>(event);
            with(change.window, [&](SceneWindow& window) { window.resized(change.width, change.height); });
            break;
        }
        case XCB_BUTTON_PRESS:
            with(as<xcb_button_press_event_t>(event).event, [](SceneWindow& window) { ++window.presses; });
            break;
        case XCB_FOCUS_IN:
            focusChanged(as<xcb_focus_in_event_t>(event), true);
            break;
        case XCB_FOCUS_OUT:
            focusChanged(as<xcb_focus_in_event_t>(event), false);
            break;
        default:
            break;
        }
    }

    void focusChanged(const xcb_focus_in_event_t& event, bool isFocused)
    {
        // A grab takes the keyboard for a moment without moving the focus; a focus that follows the pointer is not a
        // window's own.
        if (event.mode == XCB_NOTIFY_MODE_GRAB || event.mode == XCB_NOTIFY_MODE_UNGRAB ||
            event.detail == XCB_NOTIFY_DETAIL_POINTER)
            return;
        for (const auto& [name, window] : windows_) {
            if (window->identifier() != event.event)
                continue;
            if (isFocused)
                focused_ = name;
            else if (focused_ == name)
                focused_.clear();
        }
    }

    void with(xcb_window_t identifier, const std::function<void(SceneWindow&)>& action)
    {
        for (const auto& [name, window] : windows_) {
            if (window->identifier() == identifier)
                action(*window);
        }
    }

    xcb_connection_t* connection_;
    const xcb_screen_t& screen_;
    std::map<std::string, std::unique_ptr<SceneWindow>> windows_;
    std::string focused_;
    bool isOver_ = false;
};

} // namespace

} // namespace nimbrale::test

int main()
{
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection)) {
        std::cerr << "nimbrale_scene: no X server\n";
        return 1;
    }
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    const int result = nimbrale::test::Scene(connection, *screen).run();
    xcb_disconnect(connection);
    return result;
}
