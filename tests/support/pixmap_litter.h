#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <xcb/xcb.h>

namespace nimbrale::test {

/// A program that makes, paints and frees pixmaps in loud colors all the while, as large as an X screen: memory that
/// the server hands out without clearing it is full of them. A thread and a connection of its own.
class PixmapLitter {
public:
    explicit PixmapLitter(const std::string& displayName);
    ~PixmapLitter();
    PixmapLitter(const PixmapLitter&) = delete;
    PixmapLitter& operator=(const PixmapLitter&) = delete;

private:
    void run(xcb_connection_t* connection);

    std::atomic<bool> isEnding_ = false;
    std::thread thread_;
};

} // namespace nimbrale::test
