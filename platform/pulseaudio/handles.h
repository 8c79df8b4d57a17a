#pragma once

#include <memory>
#include <pulse/pulseaudio.h>

namespace nimbrale::pulseaudio {

/// Owner of what the library lends, typed by how it is given back: with the loop locked, on its thread, or when that
/// has ended. Nothing that was given back calls anybody any more.
template <typename T, void (*giveBack)(T*)>
struct GiveBack {
    void operator()(T* object) const { giveBack(object); }
};

template <typename T, void (*giveBack)(T*)>
using Owner = std::unique_ptr<T, GiveBack<T, giveBack>>;

inline void endContext(pa_context* context)
{
    pa_context_set_state_callback(context, nullptr, nullptr);
    pa_context_set_subscribe_callback(context, nullptr, nullptr);
    pa_context_disconnect(context);
    pa_context_unref(context);
}

inline void endStream(pa_stream* stream)
{
    pa_stream_set_state_callback(stream, nullptr, nullptr);
    pa_stream_set_read_callback(stream, nullptr, nullptr);
    // A stream whose server is gone cannot be disconnected any more, and need not.
    static_cast<void>(pa_stream_disconnect(stream));
    pa_stream_unref(stream);
}

inline void endOperation(pa_operation* operation)
{
    pa_operation_cancel(operation);
    pa_operation_unref(operation);
}

using ThreadLoop = Owner<pa_threaded_mainloop, pa_threaded_mainloop_free>;
using Properties = Owner<pa_proplist, pa_proplist_free>;
using Context = Owner<pa_context, endContext>;
using Stream = Owner<pa_stream, endStream>;
/// A question to the server; going, it is withdrawn.
using Question = Owner<pa_operation, endOperation>;

/// Keeps the loop's thread from running anything.
class LoopLock {
public:
    explicit LoopLock(pa_threaded_mainloop* loop) : loop_(loop) { pa_threaded_mainloop_lock(loop_); }
    ~LoopLock() { pa_threaded_mainloop_unlock(loop_); }
    LoopLock(const LoopLock&) = delete;
    LoopLock& operator=(const LoopLock&) = delete;

private:
    pa_threaded_mainloop* loop_;
};

/// Calls once after a delay, on the loop's thread. To be used and destroyed as the owners are.
class LoopTimer {
public:
    using Handler = void (*)(void* data);

    LoopTimer(pa_mainloop_api* api, Handler handler, void* data) : api_(api), handler_(handler), data_(data) {}
    ~LoopTimer() { stop(); }
    LoopTimer(const LoopTimer&) = delete;
    LoopTimer& operator=(const LoopTimer&) = delete;

    /// In place of a call that is due already.
    void start(pa_usec_t delay)
    {
        stop();
        timeval due{};
        pa_gettimeofday(&due);
        pa_timeval_add(&due, delay);
        event_ = api_->time_new(api_, &due, &LoopTimer::isDue, this);
    }
    void stop()
    {
        if (event_)
            api_->time_free(event_);
        event_ = nullptr;
    }

private:
    static void isDue(pa_mainloop_api* /*api*/, pa_time_event* /*event*/, const timeval* /*due*/, void* data)
    {
        auto* const self = static_cast<LoopTimer*>(data);
        self->stop();
        self->handler_(self->data_);
    }

    pa_mainloop_api* api_;
    Handler handler_;
    void* data_;
    pa_time_event* event_ = nullptr;
};

} // namespace nimbrale::pulseaudio
