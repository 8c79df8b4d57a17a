#include "platform/x11/server/connection.h"

#include "platform/x11/server/handles.h"

#include <algorithm>
#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/randr.h>
#include <xcb/res.h>
#include <xcb/shape.h>
#include <xcb/shm.h>
#include <xcb/sync.h>
#include <xcb/xfixes.h>
#include <xcb/xinput.h>

namespace nimbrale::x11 {

namespace {

constexpr std::uint32_t maximumPropertyLength = 4096;

Extension queryExtension(xcb_connection_t* connection, xcb_extension_t& id)
{
    const xcb_query_extension_reply_t* const data = xcb_get_extension_data(connection, &id);
    if (!data || !data->present)
        return {};
    return {true, data->first_event, data->major_opcode};
}

/// Tells an extension that is there the version that is spoken here: its answer; null where there is none. An extension
/// refuses requests, or answers in an older way, until it was told one.
template <typename Cookie, typename Number, typename Answer>
Reply<Answer> agreeOnVersion(xcb_connection_t* connection, const Extension& extension,
                             Cookie (*ask)(xcb_connection_t*, Number, Number),
                             Answer* (*answer)(xcb_connection_t*, Cookie, xcb_generic_error_t**), Number major,
                             Number minor)
{
    if (!extension.isPresent)
        return nullptr;
    return Reply<Answer>(answer(connection, ask(connection, major, minor), nullptr));
}

} // namespace

Result<std::unique_ptr<Connection>> Connection::open(const std::string& displayName)
{
    int screenNumber = 0;
    xcb_connection_t* const raw = xcb_connect(displayName.empty() ? nullptr : displayName.c_str(), &screenNumber);
    if (xcb_connection_has_error(raw)) {
        xcb_disconnect(raw);
        return fail(ErrorCode::permanent, "Nimbrale cannot reach an X display. Start it from a desktop session, or set "
                                          "DISPLAY to a running X server.");
    }
    std::unique_ptr<Connection> connection(new Connection(raw, screenNumber));
    connection->queryExtensions();
    const Extensions& extensions = connection->extensions();
    if (!extensions.render.isPresent || !extensions.fixes.isPresent || !extensions.shape.isPresent) {
        return fail(ErrorCode::unsupported,
                    "This X server lacks the RENDER, XFIXES or SHAPE extension, without which nothing can be captured "
                    "or shown. Turn them on in the server's configuration.");
    }
    connection->queryFormats();
    return connection;
}

Connection::Connection(xcb_connection_t* connection, int screenNumber)
    : connection_(connection), screenNumber_(screenNumber)
{
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection_));
    for (int index = 0; index < screenNumber_; ++index)
        xcb_screen_next(&screens);
    screen_ = screens.data;
}

Connection::~Connection()
{
    xcb_disconnect(connection_);
}

void Connection::queryExtensions()
{
    xcb_extension_t* const all[] = {&xcb_composite_id, &xcb_damage_id, &xcb_xfixes_id, &xcb_input_id, &xcb_randr_id,
                                    &xcb_render_id,    &xcb_res_id,    &xcb_shape_id,  &xcb_shm_id,   &xcb_sync_id};
    for (xcb_extension_t* const id : all)
        xcb_prefetch_extension_data(connection_, id);
    extensions_.composite = queryExtension(connection_, xcb_composite_id);
    extensions_.damage = queryExtension(connection_, xcb_damage_id);
    extensions_.fixes = queryExtension(connection_, xcb_xfixes_id);
    extensions_.input = queryExtension(connection_, xcb_input_id);
    extensions_.randr = queryExtension(connection_, xcb_randr_id);
    extensions_.render = queryExtension(connection_, xcb_render_id);
    extensions_.resources = queryExtension(connection_, xcb_res_id);
    extensions_.shape = queryExtension(connection_, xcb_shape_id);
    extensions_.sharedMemory = queryExtension(connection_, xcb_shm_id);
    extensions_.sync = queryExtension(connection_, xcb_sync_id);

    xcb_connection_t* const raw = connection_;
    agreeOnVersion(raw, extensions_.composite, xcb_composite_query_version, xcb_composite_query_version_reply, 0U, 4U);
    agreeOnVersion(raw, extensions_.damage, xcb_damage_query_version, xcb_damage_query_version_reply, 1U, 1U);
    agreeOnVersion(raw, extensions_.fixes, xcb_xfixes_query_version, xcb_xfixes_query_version_reply, 5U, 0U);
    agreeOnVersion<xcb_input_xi_query_version_cookie_t, std::uint16_t>(
        raw, extensions_.input, xcb_input_xi_query_version, xcb_input_xi_query_version_reply, 2, 2);
    agreeOnVersion(raw, extensions_.render, xcb_render_query_version, xcb_render_query_version_reply, 0U, 11U);
    agreeOnVersion<xcb_sync_initialize_cookie_t, std::uint8_t>(raw, extensions_.sync, xcb_sync_initialize,
                                                               xcb_sync_initialize_reply, 3, 1);
    const auto randr =
        agreeOnVersion(raw, extensions_.randr, xcb_randr_query_version, xcb_randr_query_version_reply, 1U, 6U);
    if (randr)
        randrVersion_ = static_cast<int>(randr->major_version * 100 + randr->minor_version);
}

void Connection::queryFormats()
{
    const Reply<xcb_render_query_pict_formats_reply_t> reply(
        xcb_render_query_pict_formats_reply(connection_, xcb_render_query_pict_formats(connection_), nullptr));
    if (!reply)
        return;
    for (auto format = xcb_render_query_pict_formats_formats_iterator(reply.get()); format.rem;
         xcb_render_pictforminfo_next(&format)) {
        const xcb_render_pictforminfo_t& info = *format.data;
        formatHasAlpha_[info.id] = info.direct.alpha_mask != 0;
        if (info.type != XCB_RENDER_PICT_TYPE_DIRECT)
            continue;
        if (info.depth == 32 && info.direct.alpha_mask == 0xff && info.direct.alpha_shift == 24 &&
            info.direct.red_shift == 16)
            argbFormat_ = info.id;
        if (info.depth == 8 && info.direct.alpha_mask == 0xff)
            alphaFormat_ = info.id;
    }
    int index = 0;
    for (auto screen = xcb_render_query_pict_formats_screens_iterator(reply.get()); screen.rem;
         xcb_render_pictscreen_next(&screen), ++index) {
        for (auto depth = xcb_render_pictscreen_depths_iterator(screen.data); depth.rem;
             xcb_render_pictdepth_next(&depth)) {
            for (auto visual = xcb_render_pictdepth_visuals_iterator(depth.data); visual.rem;
                 xcb_render_pictvisual_next(&visual)) {
                formats_[visual.data->visual] = visual.data->format;
                if (index == screenNumber_ && visual.data->format == argbFormat_ && argbVisual_ == 0)
                    argbVisual_ = visual.data->visual;
            }
        }
    }
}

xcb_atom_t Connection::atom(const std::string& name)
{
    const auto known = atoms_.find(name);
    if (known != atoms_.end())
        return known->second;
    const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        connection_, xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.data()), nullptr));
    const xcb_atom_t atom = reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
    atoms_[name] = atom;
    return atom;
}

std::string Connection::atomName(xcb_atom_t atom) const
{
    const Reply<xcb_get_atom_name_reply_t> reply(
        xcb_get_atom_name_reply(connection_, xcb_get_atom_name(connection_, atom), nullptr));
    if (!reply)
        return {};
    return {xcb_get_atom_name_name(reply.get()), static_cast<std::size_t>(xcb_get_atom_name_name_length(reply.get()))};
}

std::optional<std::uint32_t> Connection::property32(xcb_window_t window, xcb_atom_t property, xcb_atom_t type)
{
    const Reply<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(connection_, xcb_get_property(connection_, 0, window, property, type, 0, 1), nullptr));
    if (!reply || reply->format != 32 || xcb_get_property_value_length(reply.get()) < 4)
        return std::nullopt;
    return *static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
}

std::vector<std::uint32_t> Connection::numbers32(xcb_window_t window, xcb_atom_t property, xcb_atom_t type) const
{
    const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection_, xcb_get_property(connection_, 0, window, property, type, 0, maximumPropertyLength), nullptr));
    if (!reply || reply->format != 32)
        return {};
    const auto* const first = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
    return {first, first + reply->value_len};
}

xcb_render_pictformat_t Connection::formatOf(xcb_visualid_t visual) const
{
    const auto known = formats_.find(visual);
    return known == formats_.end() ? 0 : known->second;
}

bool Connection::hasAlpha(xcb_render_pictformat_t format) const
{
    const auto known = formatHasAlpha_.find(format);
    return known != formatHasAlpha_.end() && known->second;
}

void Connection::addWindowEvents(xcb_window_t window, std::uint32_t events)
{
    windowEvents_.emplace(window, events);
    applyWindowEvents(window);
}

void Connection::removeWindowEvents(xcb_window_t window, std::uint32_t events)
{
    const auto [first, last] = windowEvents_.equal_range(window);
    const auto entry = std::find_if(first, last, [&](const auto& added) { return added.second == events; });
    if (entry == last)
        return;
    windowEvents_.erase(entry);
    applyWindowEvents(window);
}

// Even when nothing seems to change: the window may be another one than that which bore the identifier before.
void Connection::applyWindowEvents(xcb_window_t window)
{
    std::uint32_t mask = 0;
    const auto [first, last] = windowEvents_.equal_range(window);
    std::for_each(first, last, [&](const auto& added) { mask |= added.second; });
    mayFail(connection_, xcb_change_window_attributes_checked(connection_, window, XCB_CW_EVENT_MASK, &mask));
}

void Connection::synchronize()
{
    Reply<xcb_get_input_focus_reply_t>(
        xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
}

} // namespace nimbrale::x11
