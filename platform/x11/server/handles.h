#pragma once

#include <cstdlib>
#include <memory>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

struct FreeDeleter {
    void operator()(void* pointer) const { std::free(pointer); }
};

/// Owner of what xcb allocates: replies, events and errors.
template <typename T>
using Reply = std::unique_ptr<T, FreeDeleter>;

/// For a `…_checked` request to something that may vanish at any moment, such as another program's window: its error,
/// if there is one, is expected and dropped. All other errors stay visible.
inline void mayFail(xcb_connection_t* connection, xcb_void_cookie_t cookie)
{
    xcb_discard_reply(connection, cookie.sequence);
}

} // namespace nimbrale::x11
