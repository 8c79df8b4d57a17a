#pragma once

#include "tests/support/private_desktop.h"
#include "tests/support/scene_pattern.h"

#include <QColor>
#include <QRect>

#include <cstdint>
#include <memory>
#include <string>

namespace nimbrale::test {

/// Windows of another application: a process of its own, nimbrale_scene, that paints what it is told. Every method
/// returns when the server has done it (what a window manager or compositor makes of it may come later). Positions are
/// root pixels; a managed window's are asked of the window manager.
class Scene {
public:
    enum class Type { normal, notification, dock, desktop };
    struct Window {
        QRect geometry = {};
        /// Content: a pattern of small rectangles in colors made from the number (greys with the bit
        /// greyPattern set); 0 fills with the color instead.
        std::uint32_t seed = 1;
        QColor color = Qt::white;
        /// 0 is the root's depth; 32 has alpha, and a pattern then has varied alpha.
        int depth = 0;
        int borderWidth = 0;
        Type type = Type::normal;
        /// Not left to the window manager: placed exactly, without a frame.
        bool overrideRedirect = true;
        /// Cut to an ellipse.
        bool isRound = false;
        bool isFullScreen = false;
        bool isMapped = true;
    };

    [[nodiscard]] static std::unique_ptr<Scene> start(PrivateDesktop& desktop);
    ~Scene();

    /// The name is also the window's title; it has no blanks.
    void add(const std::string& name, const Window& window);
    void move(const std::string& name, QPoint position);
    void resize(const std::string& name, QSize size);
    void raise(const std::string& name);
    void lower(const std::string& name);
    void map(const std::string& name);
    void unmap(const std::string& name);
    void remove(const std::string& name);
    /// Repaints with another pattern.
    void repaint(const std::string& name, std::uint32_t seed);
    /// A rectangle of one color, in the window's own pixels. Lost when the window is exposed or repainted.
    void fill(const std::string& name, const QRect& area, const QColor& color);
    /// Returns when the windows have painted again what others had exposed of them.
    void settle();
    /// The window's X identifier.
    [[nodiscard]] std::uint32_t identifier(const std::string& name);
    /// How often the window was pressed with a button, for click-through tests.
    [[nodiscard]] int pressCount(const std::string& name);
    /// The name of the window that has the keyboard focus, empty when it is none of these.
    [[nodiscard]] std::string focused();
    [[nodiscard]] Process& process() { return *process_; }

    /// The picture that the pattern paints, for comparisons (opaque windows only).
    [[nodiscard]] static QImage pattern(std::uint32_t seed, QSize size);

private:
    explicit Scene(std::unique_ptr<Process> process) : process_(std::move(process)) {}
    std::string command(const std::string& line);

    std::unique_ptr<Process> process_;
};

/// `Scene::start`, never null: the running test ends where it fails.
[[nodiscard]] std::unique_ptr<Scene> requireScene(PrivateDesktop& desktop);

} // namespace nimbrale::test
