#pragma once

#include "tests/support/process.h"

#include <QColor>
#include <QImage>
#include <QPoint>
#include <QRect>
#include <QSize>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct xcb_connection_t;
struct xcb_screen_t;

namespace nimbrale::test {

/// An X server with, where asked for, a window manager and a compositor, for one test alone: a display number that the
/// server itself found free, no TCP, folders of its own. All of it ends with this object. Everything here is in pixels
/// of the root window, the origin at the top-left.
class PrivateDesktop {
public:
    enum class Server { xvnc, xvfb, xorgDummy };
    /// mutter and muffin composite always; i3, bspwm and awesome tile.
    enum class WindowManager { none, openbox, xfwm4, kwin, marco, mutter, muffin, i3, bspwm, awesome };
    /// As the names of tests have it: "Xfwm4".
    [[nodiscard]] static std::string managerName(WindowManager manager);
    /// `picom` draws by RENDER, `picomGlx` by OpenGL; `windowManagersOwn` switches on the compositor that xfwm4, KWin
    /// and marco bring; openbox has none.
    enum class Compositor { none, picom, picomGlx, windowManagersOwn };

    struct Options {
        Server server = Server::xvnc;
        int width = 1280;
        int height = 720;
        /// 16, 24 or 30.
        int depth = 24;
        /// Xft.dpi in the resource database: 96 is scale 1, 192 is scale 2; 0 leaves it out.
        int dotsPerInch = 96;
        /// By how much toolkits are told to scale whole windows, as XFCE does it; 0 where nobody tells.
        int windowScalingFactor = 0;
        WindowManager windowManager = WindowManager::none;
        Compositor compositor = Compositor::none;
        /// Further arguments of the X server, such as {"-extension", "COMPOSITE"}, which leaves that extension out.
        std::vector<std::string> serverArguments = {};
        /// Loopback TCP port on which Xvnc serves the picture; absent serves only a private socket.
        std::optional<int> vncPort = {};
        /// Largest size to which Xvfb can grow; its first output then shows width × height of it. Ignored elsewhere.
        std::optional<QSize> growableTo = {};
    };

    /// What this machine lacks for such a desktop; empty when it lacks nothing.
    [[nodiscard]] static std::string missingFor(const Options& options);
    /// Null, with what is missing in `reason`, when this machine lacks a program for it. What is installed and does not
    /// start is a failure of the test, with null too. Tests call `requireDesktop`.
    [[nodiscard]] static std::unique_ptr<PrivateDesktop> start(const Options& options, std::string& reason);
    ~PrivateDesktop();
    PrivateDesktop(const PrivateDesktop&) = delete;
    PrivateDesktop& operator=(const PrivateDesktop&) = delete;

    /// ":123"
    [[nodiscard]] const std::string& displayName() const { return displayName_; }
    /// The whole environment of programs on this desktop: DISPLAY, HOME, XDG folders of its own, no message bus, no
    /// proxy, a UTF-8 locale; sanitizers' options are handed on.
    [[nodiscard]] const Environment& environment() const { return environment_; }
    /// Lays changes over the environment of programs that start from now on.
    void changeEnvironment(const Environment& changes);
    /// Puts DISPLAY, HOME, the XDG folders and DBUS_SESSION_BUS_ADDRESS into this process too, for tests that host
    /// what they test.
    void adoptEnvironment() const;
    /// A folder of this desktop's own, removed at the end; "home", "config" and "runtime" in it are the programs'.
    [[nodiscard]] const std::filesystem::path& folder() const { return folder_; }
    /// $XDG_CONFIG_HOME of the programs.
    [[nodiscard]] std::filesystem::path configFolder() const { return folder_ / "config"; }
    /// The server's process, for tests that kill it.
    [[nodiscard]] Process& server() { return *server_; }
    /// This test's own connection, for requests that are not wrapped here.
    [[nodiscard]] xcb_connection_t* connection() const { return connection_; }
    [[nodiscard]] const xcb_screen_t& screen() const { return *screen_; }

    /// Starts a program on this desktop; its output goes to a file in `folder()`. A name without a slash is looked for
    /// first beside this test program, then by PATH. `changes` are laid over `environment()`. Null when not installed.
    [[nodiscard]] std::unique_ptr<Process> spawn(const std::string& program,
                                                 const std::vector<std::string>& arguments = {},
                                                 const Environment& changes = {}, bool isSpokenWith = false);
    /// Runs a program to its end (at most 10 s): its output.
    std::string run(const std::string& program, const std::vector<std::string>& arguments = {});

    // --- Pictures -------------------------------------------------------------------------------------------------

    /// What is on the screen now, as RGB32. The pointer is not in it.
    [[nodiscard]] QImage screenshot() const;
    /// The part inside the screen of a rectangle; the rest is black.
    [[nodiscard]] QImage screenshot(const QRect& area) const;
    /// What the window that `windowTitled` finds shows, whatever lies over it on a desktop that is composited; null
    /// when there is none.
    [[nodiscard]] QImage windowPicture(const std::string& title) const;
    [[nodiscard]] QColor pixel(int x, int y) const;
    /// Waits until a pixel has exactly this color.
    [[nodiscard]] bool waitForPixel(int x, int y, const QColor& color, Milliseconds timeout = Milliseconds{3000}) const;

    // --- Pointer and keys, as from real devices -------------------------------------------------------------------

    void movePointer(QPoint position);
    /// As a mouse moves it: what holds a pointer back holds it back.
    void movePointerBy(QPoint distance);
    [[nodiscard]] QPoint pointerPosition() const;
    void pressButton(int button = 1);
    void releaseButton(int button = 1);
    void click(QPoint position, int button = 1);
    /// Presses at `from`, moves in `steps` equal steps with a pause after each, and releases at `to`.
    void drag(QPoint from, QPoint to, int steps = 20, Milliseconds pause = Milliseconds{15});
    /// A keysym, as XK_Super_L.
    void pressKey(std::uint32_t keysym);
    void releaseKey(std::uint32_t keysym);

    // --- Windows --------------------------------------------------------------------------------------------------

    /// Where a viewable window is whose WM_NAME or _NET_WM_NAME contains the text, without the frame of a manager.
    [[nodiscard]] std::optional<QRect> windowTitled(const std::string& text) const;
    /// The title of the window that the window manager calls the active one; empty when there is none.
    [[nodiscard]] std::string activeWindowTitle() const;
    /// Where that window is, without the frame of a manager.
    [[nodiscard]] std::optional<QRect> activeWindowPlace() const;
    /// That window once keys go to it, which may be a moment later; absent before.
    [[nodiscard]] std::optional<std::uint32_t> focusedWindow() const;
    [[nodiscard]] bool isViewable(std::uint32_t window) const;

    // --- Displays -------------------------------------------------------------------------------------------------

    struct Monitor {
        std::string name;
        QRect geometry;
        bool isPrimary = false;
        /// False for monitors that a program set.
        bool isAutomatic = false;
        int outputCount = 0;

        bool operator==(const Monitor&) const = default;
    };
    /// RandR's monitors in its order, those without a place on the screen left out.
    [[nodiscard]] std::vector<Monitor> monitors() const;
    [[nodiscard]] std::optional<Monitor> monitorNamed(const std::string& name) const;
    /// The root window's size now.
    [[nodiscard]] QSize screenSize() const;
    /// Makes a monitor without outputs. Replaces one of the same name.
    void setMonitor(const std::string& name, const QRect& geometry);
    void deleteMonitor(const std::string& name);
    /// RRSetScreenSize with millimetres in proportion. False when the server refuses.
    bool resizeScreen(const QSize& size);
    /// The name of an output, counted from 0: "VNC-0", "DUMMY0", "screen" (Xvfb has one only).
    [[nodiscard]] std::string outputName(int index) const;
    /// Has an output for each rectangle, where the rectangle says. The first must be where it is. False where the
    /// server has not so many or refuses.
    bool arrangeOutputs(const std::vector<QRect>& rectangles);
    /// `xrandr --output NAME --off`: Xvnc then removes the output, the dummy driver keeps it without a picture.
    void unplug(const std::string& output);
    void plug(const std::string& output, const QRect& geometry);

    // --- Window manager and compositor ----------------------------------------------------------------------------

    /// Whether any window manager has announced itself, and still is there.
    [[nodiscard]] bool hasWindowManager() const;
    [[nodiscard]] bool startWindowManager();
    [[nodiscard]] bool stopWindowManager();
    [[nodiscard]] bool isComposited() const;
    /// The program that composites; 0 without one.
    [[nodiscard]] pid_t compositorProcess() const;
    /// Starts or stops picom; xfwm4, KWin and marco are instead started anew with or without their own compositor.
    [[nodiscard]] bool startCompositor();
    [[nodiscard]] bool stopCompositor();
    /// The program that composites stands still, as on a computer that has no time for it, until it goes on.
    [[nodiscard]] bool pauseCompositor();
    void resumeCompositor();

    /// The server's clock, in which it tells the time of events.
    [[nodiscard]] std::uint32_t serverTime();
    /// Waits until the server has done all that this connection sent.
    void synchronize() const;
    /// Sets the root window to one color and clears it.
    void setBackground(const QColor& color);

private:
    explicit PrivateDesktop(Options options);
    bool prepareFolder(std::string& reason);
    bool startServer(std::string& reason);
    bool connect(std::string& reason);
    bool startManagers(std::string& reason);
    void useSmallerMode();
    void writeResources();
    void writeToolkitSettings();
    [[nodiscard]] std::unique_ptr<Process> spawnWindowManager();
    [[nodiscard]] std::vector<std::string> serverCommand() const;
    void fakeInput(std::uint8_t type, std::uint8_t detail, QPoint position = {});
    [[nodiscard]] std::uint8_t keycodeOf(std::uint32_t keysym) const;
    [[nodiscard]] QImage picture(std::uint32_t window, const QRect& area) const;
    /// XCB_WINDOW_NONE when there is none.
    [[nodiscard]] std::uint32_t findWindow(std::uint32_t parent, const std::string& text) const;
    [[nodiscard]] std::optional<QRect> placeOf(std::uint32_t window) const;
    /// XCB_WINDOW_NONE when there is none.
    [[nodiscard]] std::uint32_t activeWindow() const;
    [[nodiscard]] std::string textProperty(std::uint32_t window, std::uint32_t property) const;
    [[nodiscard]] std::uint32_t atom(const std::string& name) const;
    [[nodiscard]] static bool isPicom(Compositor compositor)
    {
        return compositor == Compositor::picom || compositor == Compositor::picomGlx;
    }
    [[nodiscard]] static std::string missingManager(const Options& options);
    [[nodiscard]] bool waitForWindowManager() const;
    void waitUntilWindowManagerIsIdle() const;

    Options options_;
    std::filesystem::path folder_;
    Environment environment_;
    std::string displayName_;
    std::unique_ptr<Process> server_;
    std::unique_ptr<Process> windowManager_;
    std::unique_ptr<Process> compositor_;
    pid_t paused_ = 0;
    xcb_connection_t* connection_ = nullptr;
    xcb_screen_t* screen_ = nullptr;
    int spawned_ = 0;
};

} // namespace nimbrale::test
