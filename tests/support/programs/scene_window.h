#pragma once

#include <cstdint>
#include <string>
#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::test {

/// What a window of the scene is to be, as read from a line of input.
struct SceneWindowOptions {
    std::string name;
    std::int16_t x = 0;
    std::int16_t y = 0;
    std::uint16_t width = 1;
    std::uint16_t height = 1;
    std::uint32_t seed = 0;
    std::uint32_t color = 0xffffffff; ///< 0xAARRGGBB
    std::uint8_t depth = 0;
    std::uint16_t borderWidth = 0;
    std::string type = "normal";
    bool isUnmanaged = false;
    bool isRound = false;
    bool isFullScreen = false;
    bool isMapped = true;
};

/// One window of the scene, which keeps its content through exposures and changes of size.
class SceneWindow {
public:
    SceneWindow(xcb_connection_t* connection, const xcb_screen_t& screen, SceneWindowOptions options);
    ~SceneWindow();
    SceneWindow(const SceneWindow&) = delete;
    SceneWindow& operator=(const SceneWindow&) = delete;

    [[nodiscard]] xcb_window_t identifier() const { return window_; }
    void paint();
    void repaint(std::uint32_t seed);
    void fill(const xcb_rectangle_t& area, std::uint32_t color);
    /// Follows a ConfigureNotify.
    void resized(std::uint16_t width, std::uint16_t height);
    void configure(std::uint16_t mask, const std::vector<std::uint32_t>& values);
    void map();
    void unmap();

    int presses = 0;

private:
    void setProperties();
    void makeRound();
    [[nodiscard]] std::uint32_t pixelOf(std::uint32_t color) const;
    [[nodiscard]] xcb_atom_t atom(const std::string& name) const;
    void setAtom(const std::string& property, const std::string& value);

    xcb_connection_t* connection_;
    const xcb_screen_t& screen_;
    SceneWindowOptions options_;
    xcb_window_t window_;
    xcb_gcontext_t context_;
};

} // namespace nimbrale::test
