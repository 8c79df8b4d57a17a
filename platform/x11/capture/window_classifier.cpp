#include "platform/x11/capture/window_classifier.h"

#include "platform/x11/server/handles.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <unistd.h>
#include <xcb/res.h>

namespace nimbrale::x11 {

namespace {

std::optional<std::uint32_t> firstValue(const xcb_get_property_reply_t* reply)
{
    if (!reply || reply->format != 32 || xcb_get_property_value_length(reply) < 4)
        return std::nullopt;
    return *static_cast<const std::uint32_t*>(xcb_get_property_value(reply));
}

bool containsAtom(const xcb_get_property_reply_t* reply, xcb_atom_t atom)
{
    if (!reply || reply->format != 32)
        return false;
    const auto* const atoms = static_cast<const xcb_atom_t*>(xcb_get_property_value(reply));
    return std::find(atoms, atoms + xcb_get_property_value_length(reply) / 4, atom) !=
           atoms + xcb_get_property_value_length(reply) / 4;
}

std::optional<ProcessID> processIn(const xcb_res_query_client_ids_reply_t* reply)
{
    if (!reply)
        return std::nullopt;
    for (auto value = xcb_res_query_client_ids_ids_iterator(reply); value.rem; xcb_res_client_id_value_next(&value)) {
        if (xcb_res_client_id_value_value_length(value.data) > 0)
            return *xcb_res_client_id_value_value(value.data);
    }
    return std::nullopt;
}

/// This process as the server sees it; 0 when it cannot tell.
ProcessID processAtServer(Connection& connection)
{
    if (!connection.extensions().resources.isPresent)
        return 0;
    const xcb_res_client_id_spec_t question{xcb_get_setup(connection.get())->resource_id_base,
                                            XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
    const Reply<xcb_res_query_client_ids_reply_t> reply(xcb_res_query_client_ids_reply(
        connection.get(), xcb_res_query_client_ids(connection.get(), 1, &question), nullptr));
    return processIn(reply.get()).value_or(0);
}

} // namespace

struct WindowClassifier::Cookies {
    std::optional<xcb_res_query_client_ids_cookie_t> client;
    xcb_get_property_cookie_t process{};
    xcb_get_property_cookie_t type{};
    xcb_get_property_cookie_t managed{};
    xcb_get_property_cookie_t state{};
    xcb_get_property_cookie_t workspace{};
    std::optional<xcb_get_property_cookie_t> opacity;
    std::optional<xcb_query_tree_cookie_t> tree;
};

WindowClassifier::WindowClassifier(Connection& connection)
    : connection_(connection), rule_(getpid(), processAtServer(connection)),
      processAtom_(connection.atom("_NET_WM_PID")), typeAtom_(connection.atom("_NET_WM_WINDOW_TYPE")),
      notificationAtom_(connection.atom("_NET_WM_WINDOW_TYPE_NOTIFICATION")),
      dockAtom_(connection.atom("_NET_WM_WINDOW_TYPE_DOCK")), opacityAtom_(connection.atom("_NET_WM_WINDOW_OPACITY")),
      managedAtom_(connection.atom("WM_STATE")), stateAtom_(connection.atom("_NET_WM_STATE")),
      hiddenAtom_(connection.atom("_NET_WM_STATE_HIDDEN")), workspaceAtom_(connection.atom("_NET_WM_DESKTOP"))
{}

void WindowClassifier::classify(const std::vector<CapturedWindow*>& windows)
{
    std::vector<Subject> level;
    for (CapturedWindow* const window : windows) {
        window->owner = {};
        window->managed = {};
        window->opacity = 0xffffffff;
        window->needsClassification = false;
        window->isAskedAgain = false;
        level.push_back({window, window->id, 0});
    }
    while (!level.empty())
        level = classifyLevel(level);
    placeClients(windows);
}

void WindowClassifier::placeClients(const std::vector<CapturedWindow*>& windows)
{
    xcb_connection_t* const raw = connection_.get();
    struct Question {
        CapturedWindow* window;
        xcb_translate_coordinates_cookie_t place;
        xcb_get_geometry_cookie_t size;
        xcb_get_geometry_cookie_t whole;
    };
    std::vector<Question> questions;
    for (CapturedWindow* const window : windows) {
        const xcb_window_t client = window->managed.client;
        if (client != XCB_NONE && client != window->id)
            questions.push_back({window, xcb_translate_coordinates(raw, client, window->id, 0, 0),
                                 xcb_get_geometry(raw, client), xcb_get_geometry(raw, window->id)});
    }
    for (const Question& question : questions) {
        const Reply<xcb_translate_coordinates_reply_t> place(
            xcb_translate_coordinates_reply(raw, question.place, nullptr));
        const Reply<xcb_get_geometry_reply_t> size(xcb_get_geometry_reply(raw, question.size, nullptr));
        const Reply<xcb_get_geometry_reply_t> whole(xcb_get_geometry_reply(raw, question.whole, nullptr));
        if (!place || !size || !whole)
            continue;
        ManagedState& managed = question.window->managed;
        managed.left = place->dst_x + whole->border_width;
        managed.top = place->dst_y + whole->border_width;
        managed.right = whole->width + 2 * whole->border_width - managed.left - size->width;
        managed.bottom = whole->height + 2 * whole->border_width - managed.top - size->height;
    }
}

WindowClassifier::Cookies WindowClassifier::ask(const Subject& subject) const
{
    xcb_connection_t* const raw = connection_.get();
    Cookies cookies;
    if (connection_.extensions().resources.isPresent) {
        const xcb_res_client_id_spec_t question{subject.id, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
        cookies.client = xcb_res_query_client_ids(raw, 1, &question);
    }
    cookies.process = xcb_get_property(raw, 0, subject.id, processAtom_, XCB_ATOM_CARDINAL, 0, 1);
    cookies.type = xcb_get_property(raw, 0, subject.id, typeAtom_, XCB_ATOM_ATOM, 0, 32);
    cookies.managed = xcb_get_property(raw, 0, subject.id, managedAtom_, managedAtom_, 0, 1);
    cookies.state = xcb_get_property(raw, 0, subject.id, stateAtom_, XCB_ATOM_ATOM, 0, 32);
    cookies.workspace = xcb_get_property(raw, 0, subject.id, workspaceAtom_, XCB_ATOM_CARDINAL, 0, 1);
    if (subject.depth == 0)
        cookies.opacity = xcb_get_property(raw, 0, subject.id, opacityAtom_, XCB_ATOM_CARDINAL, 0, 1);
    if (subject.depth < WindowOwnerRule::maximumDepth)
        cookies.tree = xcb_query_tree(raw, subject.id);
    return cookies;
}

void WindowClassifier::takeManagedState(const Subject& subject, const Cookies& cookies, const WindowFacts& facts) const
{
    xcb_connection_t* const raw = connection_.get();
    const Reply<xcb_get_property_reply_t> state(xcb_get_property_reply(raw, cookies.state, nullptr));
    const Reply<xcb_get_property_reply_t> workspace(xcb_get_property_reply(raw, cookies.workspace, nullptr));
    // A window manager may say so later than it maps its frame. Until then another program's window in the frame is
    // taken for the client, so that it is heard.
    const bool isForeign = subject.depth > 0 && facts.client && facts.client != subject.frameProcess;
    if (subject.window->managed.client != XCB_NONE || (!facts.isClient && !isForeign))
        return;
    subject.window->managed = {subject.id, containsAtom(state.get(), hiddenAtom_), firstValue(workspace.get())};
}

std::vector<WindowClassifier::Subject> WindowClassifier::classifyLevel(const std::vector<Subject>& subjects)
{
    xcb_connection_t* const raw = connection_.get();
    std::vector<Cookies> cookies;
    cookies.reserve(subjects.size());
    // All questions are sent before the first answer is read: a window manager that restarts maps hundreds of windows
    // at once, and a round trip each would hold up the picture.
    std::transform(subjects.begin(), subjects.end(), std::back_inserter(cookies),
                   [this](const Subject& subject) { return ask(subject); });

    std::vector<Subject> next;
    for (std::size_t index = 0; index < subjects.size(); ++index) {
        const Subject& subject = subjects[index];
        const Cookies& cookie = cookies[index];
        WindowFacts facts;
        facts.depth = subject.depth;
        if (cookie.client) {
            const Reply<xcb_res_query_client_ids_reply_t> reply(
                xcb_res_query_client_ids_reply(raw, *cookie.client, nullptr));
            facts.client = processIn(reply.get());
        }
        const Reply<xcb_get_property_reply_t> named(xcb_get_property_reply(raw, cookie.process, nullptr));
        facts.namedProcess = firstValue(named.get());
        const Reply<xcb_get_property_reply_t> type(xcb_get_property_reply(raw, cookie.type, nullptr));
        facts.isNotification = containsAtom(type.get(), notificationAtom_);
        facts.isDock = containsAtom(type.get(), dockAtom_);
        const Reply<xcb_get_property_reply_t> managed(xcb_get_property_reply(raw, cookie.managed, nullptr));
        facts.isClient = firstValue(managed.get()).has_value();
        rule_.consider(subject.window->owner, facts);
        takeManagedState(subject, cookie, facts);

        if (cookie.opacity) {
            const Reply<xcb_get_property_reply_t> opacity(xcb_get_property_reply(raw, *cookie.opacity, nullptr));
            subject.window->opacity = firstValue(opacity.get()).value_or(0xffffffff);
        }
        if (cookie.tree) {
            const Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(raw, *cookie.tree, nullptr));
            const xcb_window_t* const children = tree ? xcb_query_tree_children(tree.get()) : nullptr;
            for (int child = 0; tree && child < xcb_query_tree_children_length(tree.get()); ++child)
                next.push_back({subject.window, children[child], subject.depth + 1,
                                subject.depth == 0 ? facts.client : subject.frameProcess});
        }
    }
    // An application's own inner windows say nothing more about it; without this a browser's or toolkit's tree of
    // hundreds of windows would be asked for.
    std::erase_if(next, [](const Subject& subject) { return subject.window->owner.isOwn; });
    return next;
}

} // namespace nimbrale::x11
