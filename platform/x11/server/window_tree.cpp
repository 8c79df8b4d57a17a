#include "platform/x11/server/window_tree.h"

#include "platform/x11/server/handles.h"

namespace nimbrale::x11 {

namespace {

Reply<xcb_query_tree_reply_t> queryTree(Connection& connection, xcb_window_t window)
{
    return Reply<xcb_query_tree_reply_t>(
        xcb_query_tree_reply(connection.get(), xcb_query_tree(connection.get(), window), nullptr));
}

} // namespace

std::vector<xcb_window_t> childrenOf(Connection& connection, xcb_window_t window)
{
    const Reply<xcb_query_tree_reply_t> tree = queryTree(connection, window);
    if (!tree)
        return {};
    const xcb_window_t* const children = xcb_query_tree_children(tree.get());
    return {children, children + xcb_query_tree_children_length(tree.get())};
}

xcb_window_t topLevelOf(Connection& connection, xcb_window_t window)
{
    while (const Reply<xcb_query_tree_reply_t> tree = queryTree(connection, window)) {
        if (tree->parent == connection.root())
            return window;
        window = tree->parent;
    }
    return XCB_NONE;
}

} // namespace nimbrale::x11
