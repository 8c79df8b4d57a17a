#pragma once

#include <chrono>
#include <ctime>
#include <memory>
#include <pipewire/pipewire.h>
#include <utility>

namespace nimbrale::pipewire {

/// Owner of what the library lends, typed by how it is given back. All of it belongs to one loop: give it back with the
/// loop locked, or when its thread has ended, and in the order stream and proxies, core, context, loop.
template <typename T, void (*giveBack)(T*)>
struct GiveBack {
    void operator()(T* object) const { giveBack(object); }
};

template <typename T, void (*giveBack)(T*)>
using Owner = std::unique_ptr<T, GiveBack<T, giveBack>>;

inline void disconnectCore(pw_core* core)
{
    // The result says nothing that could still be acted upon.
    static_cast<void>(pw_core_disconnect(core));
}

using ThreadLoop = Owner<pw_thread_loop, pw_thread_loop_destroy>;
using Context = Owner<pw_context, pw_context_destroy>;
using Core = Owner<pw_core, disconnectCore>;
using Proxy = Owner<pw_proxy, pw_proxy_destroy>;
using Stream = Owner<pw_stream, pw_stream_destroy>;

/// Somebody who listens to an object until the listener goes, which must be before the object does.
class Listener {
public:
    Listener() : hook_() {}
    ~Listener() { stop(); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    /// To give to the library, once.
    [[nodiscard]] spa_hook* hook()
    {
        isListening_ = true;
        return &hook_;
    }
    void stop()
    {
        if (isListening_)
            spa_hook_remove(&hook_);
        isListening_ = false;
        hook_ = {};
    }

private:
    spa_hook hook_;
    bool isListening_ = false;
};

/// Keeps the loop's thread from running anything.
class LoopLock {
public:
    explicit LoopLock(pw_thread_loop* loop) : loop_(loop) { pw_thread_loop_lock(loop_); }
    ~LoopLock() { pw_thread_loop_unlock(loop_); }
    LoopLock(const LoopLock&) = delete;
    LoopLock& operator=(const LoopLock&) = delete;

private:
    pw_thread_loop* loop_;
};

/// A loop whose thread does not run yet; null where the system has no threads or descriptors left. `name` may have 15
/// bytes.
[[nodiscard]] ThreadLoop makeThreadLoop(const char* name);

/// As the library takes it for timers.
[[nodiscard]] timespec timeOf(std::chrono::milliseconds duration);

/// A source of a loop, such as a timer. Goes before its loop does.
class LoopSource {
public:
    LoopSource() = default;
    LoopSource(pw_loop* loop, spa_source* source) : loop_(loop), source_(source) {}
    ~LoopSource() { reset(); }
    LoopSource(LoopSource&& other) noexcept : loop_(other.loop_), source_(std::exchange(other.source_, nullptr)) {}
    LoopSource& operator=(LoopSource&& other) noexcept
    {
        if (this != &other) {
            reset();
            loop_ = other.loop_;
            source_ = std::exchange(other.source_, nullptr);
        }
        return *this;
    }

    [[nodiscard]] spa_source* get() const { return source_; }
    void reset()
    {
        if (source_)
            pw_loop_destroy_source(loop_, std::exchange(source_, nullptr));
    }

private:
    pw_loop* loop_ = nullptr;
    spa_source* source_ = nullptr;
};

} // namespace nimbrale::pipewire
