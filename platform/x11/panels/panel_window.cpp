#include "platform/x11/panels/panel_window.h"

#include <algorithm>
#include <array>
#include <unistd.h>

namespace nimbrale::x11 {

namespace {

constexpr std::uint8_t argbDepth = 32;
constexpr char windowClass[] = "nimbrale\0nimbrale";

// Of the conventions for WM_HINTS and WM_NORMAL_HINTS.
constexpr std::uint32_t inputHint = 1U << 0;
constexpr std::uint32_t stateHint = 1U << 1;
constexpr std::uint32_t normalState = 1;
constexpr std::uint32_t userPosition = 1U << 0;
constexpr std::uint32_t userSize = 1U << 1;
constexpr std::uint32_t windowGravityHint = 1U << 9;

// Of _MOTIF_WM_HINTS.
constexpr std::uint32_t decorationsHint = 1U << 1;

void setWords(Connection& connection, xcb_window_t window, const char* property, xcb_atom_t type,
              const std::uint32_t* words, std::uint32_t count)
{
    xcb_change_property(connection.get(), XCB_PROP_MODE_REPLACE, window, connection.atom(property), type, 32, count,
                        words);
}

void setText(Connection& connection, xcb_window_t window, xcb_atom_t property, xcb_atom_t type, const char* text,
             std::size_t length)
{
    xcb_change_property(connection.get(), XCB_PROP_MODE_REPLACE, window, property, type, 8,
                        static_cast<std::uint32_t>(length), text);
}

} // namespace

PanelWindow::PanelWindow(Connection& connection, PanelStyle style, const PixelRect& pixels)
    : connection_(connection), style_(style), window_(connection, connection.newId()),
      depth_(connection.screen().root_depth), visual_(connection.screen().root_visual), format_(connection.rootFormat())
{
    if (style_ == PanelStyle::overlay && connection_.argbVisual() != 0) {
        depth_ = argbDepth;
        visual_ = connection_.argbVisual();
        format_ = connection_.argbFormat();
        colormap_ = OwnedColormap(connection_, connection_.newId());
        xcb_create_colormap(connection_.get(), XCB_COLORMAP_ALLOC_NONE, colormap_.get(), connection_.root(), visual_);
    }
    xcb_create_window_value_list_t values{};
    values.background_pixmap = XCB_BACK_PIXMAP_NONE;
    values.bit_gravity = XCB_GRAVITY_STATIC;
    values.override_redirect = style_ != PanelStyle::mirrorWindow;
    values.event_mask = XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE |
                        XCB_EVENT_MASK_BUTTON_1_MOTION | XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    values.colormap = hasAlpha() ? colormap_.get() : connection_.screen().default_colormap;
    const std::uint32_t mask = XCB_CW_BACK_PIXMAP | XCB_CW_BORDER_PIXEL | XCB_CW_BIT_GRAVITY |
                               XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK | XCB_CW_COLORMAP;
    xcb_create_window_aux(connection_.get(), depth_, id(), connection_.root(), static_cast<std::int16_t>(pixels.x),
                          static_cast<std::int16_t>(pixels.y), static_cast<std::uint16_t>(pixels.width),
                          static_cast<std::uint16_t>(pixels.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, visual_, mask,
                          &values);
    setProperties();
    if (style_ == PanelStyle::mirrorWindow) {
        setManagedProperties();
        setPlaceHints(pixels);
    }
}

void PanelWindow::setProperties()
{
    setText(connection_, id(), XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, windowClass, sizeof windowClass);
    const auto process = static_cast<std::uint32_t>(getpid());
    setWords(connection_, id(), "_NET_WM_PID", XCB_ATOM_CARDINAL, &process, 1);
    std::array<char, 256> machine{};
    if (gethostname(machine.data(), machine.size() - 1) == 0)
        setText(connection_, id(), XCB_ATOM_WM_CLIENT_MACHINE, XCB_ATOM_STRING, machine.data(),
                std::char_traits<char>::length(machine.data()));
    // Lists of windows leave docks out, and compositing managers draw no shadow around them.
    setAtoms("_NET_WM_WINDOW_TYPE",
             style_ == PanelStyle::mirrorWindow ? "_NET_WM_WINDOW_TYPE_NORMAL" : "_NET_WM_WINDOW_TYPE_DOCK");
}

void PanelWindow::setManagedProperties()
{
    const std::array<std::uint32_t, 5> undecorated{decorationsHint, 0, 0, 0, 0};
    setWords(connection_, id(), "_MOTIF_WM_HINTS", connection_.atom("_MOTIF_WM_HINTS"), undecorated.data(),
             undecorated.size());
    const std::array<std::uint32_t, 9> neverFocused{inputHint | stateHint, 0, normalState, 0, 0, 0, 0, 0, 0};
    setWords(connection_, id(), "WM_HINTS", XCB_ATOM_WM_HINTS, neverFocused.data(), neverFocused.size());
    const std::uint32_t notByTheUser = 0;
    setWords(connection_, id(), "_NET_WM_USER_TIME", XCB_ATOM_CARDINAL, &notByTheUser, 1);
}

void PanelWindow::setPlaceHints(const PixelRect& pixels)
{
    std::array<std::uint32_t, 18> hints{};
    hints[0] = userPosition | userSize | windowGravityHint;
    hints[1] = static_cast<std::uint32_t>(pixels.x);
    hints[2] = static_cast<std::uint32_t>(pixels.y);
    hints[3] = static_cast<std::uint32_t>(pixels.width);
    hints[4] = static_cast<std::uint32_t>(pixels.height);
    hints[17] = XCB_GRAVITY_STATIC;
    setWords(connection_, id(), "WM_NORMAL_HINTS", XCB_ATOM_WM_SIZE_HINTS, hints.data(), hints.size());
}

void PanelWindow::setAtoms(const char* property, const char* value)
{
    const std::uint32_t atom = connection_.atom(value);
    setWords(connection_, id(), property, XCB_ATOM_ATOM, &atom, 1);
}

void PanelWindow::setTitle(const std::string& title)
{
    // Some lists read only the old property; as a STRING it could not hold the title.
    const xcb_atom_t unicode = connection_.atom("UTF8_STRING");
    setText(connection_, id(), XCB_ATOM_WM_NAME, unicode, title.data(), title.size());
    setText(connection_, id(), connection_.atom("_NET_WM_NAME"), unicode, title.data(), title.size());
}

void PanelWindow::configure(const PixelRect& pixels)
{
    if (style_ == PanelStyle::mirrorWindow)
        setPlaceHints(pixels);
    const std::uint32_t values[] = {static_cast<std::uint32_t>(pixels.x), static_cast<std::uint32_t>(pixels.y),
                                    static_cast<std::uint32_t>(pixels.width),
                                    static_cast<std::uint32_t>(pixels.height)};
    xcb_configure_window(connection_.get(), id(),
                         XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                         values);
}

void PanelWindow::map()
{
    // Window managers clear the state of withdrawn windows. Below from the start, the window is not raised when it is
    // chosen in another program's list.
    if (style_ == PanelStyle::mirrorWindow)
        setAtoms("_NET_WM_STATE", "_NET_WM_STATE_BELOW");
    xcb_map_window(connection_.get(), id());
}

void PanelWindow::unmap()
{
    xcb_unmap_window(connection_.get(), id());
    if (style_ != PanelStyle::mirrorWindow)
        return;
    // A managed window is withdrawn only when its manager hears of it, mapped or not.
    xcb_unmap_notify_event_t withdrawn{};
    withdrawn.response_type = XCB_UNMAP_NOTIFY;
    withdrawn.event = connection_.root();
    withdrawn.window = id();
    xcb_send_event(connection_.get(), 0, connection_.root(),
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&withdrawn));
}

void PanelWindow::restack(xcb_stack_mode_t mode)
{
    const std::uint32_t value = mode;
    xcb_configure_window(connection_.get(), id(), XCB_CONFIG_WINDOW_STACK_MODE, &value);
}

} // namespace nimbrale::x11
