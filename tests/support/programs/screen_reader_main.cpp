// nimbrale_screen_reader
// A program that shares the screen, as far as the server can tell: it shows nothing, hears when the pointer's image
// changes, and has memory to fetch pictures through. Prints "reading" and goes on until it is stopped.

#include "tests/support/x_reply.h"

#include <iostream>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>

int main()
{
    using nimbrale::test::Reply;
    xcb_connection_t* const connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection))
        return 1;
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    const Reply<xcb_xfixes_query_version_reply_t> version(
        xcb_xfixes_query_version_reply(connection, xcb_xfixes_query_version(connection, 4, 0), nullptr));
    const auto watched =
        xcb_xfixes_select_cursor_input_checked(connection, root, XCB_XFIXES_CURSOR_NOTIFY_MASK_DISPLAY_CURSOR);
    const int memory = shmget(IPC_PRIVATE, 4096, IPC_CREAT | 0600);
    const auto attached =
        xcb_shm_attach_checked(connection, xcb_generate_id(connection), static_cast<std::uint32_t>(memory), 0);
    const bool isRefused = !version || Reply<xcb_generic_error_t>(xcb_request_check(connection, watched)) ||
                           Reply<xcb_generic_error_t>(xcb_request_check(connection, attached));
    shmctl(memory, IPC_RMID, nullptr);
    if (isRefused)
        return 1;
    std::cout << "reading" << std::endl;
    while (const Reply<xcb_generic_event_t> event{xcb_wait_for_event(connection)}) {
    }
    return 0;
}
