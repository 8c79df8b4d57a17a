#include "platform/pulseaudio/server_connection.h"

#include "platform/log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace nimbrale::pulseaudio {

namespace {

constexpr std::chrono::milliseconds shortestRetry{100};
constexpr std::chrono::milliseconds longestRetry{5000};

} // namespace

struct ServerConnection::Events {
    static ServerConnection& of(void* data) { return *static_cast<ServerConnection*>(data); }

    static void stateChanged(pa_context* context, void* data)
    {
        ServerConnection& self = of(data);
        switch (pa_context_get_state(context)) {
        case PA_CONTEXT_READY:
            self.connected_ = std::chrono::steady_clock::now();
            self.subscription_.reset(pa_context_subscribe(context, self.watched_, nullptr, nullptr));
            self.handlers_.onConnected(context);
            break;
        case PA_CONTEXT_FAILED:
        case PA_CONTEXT_TERMINATED:
            self.gone();
            break;
        default:
            break;
        }
    }

    static void changed(pa_context* /*context*/, pa_subscription_event_type_t /*kind*/, std::uint32_t /*number*/,
                        void* data)
    {
        of(data).handlers_.onChanged();
    }

    static void connectionIsDue(void* data) { of(data).connect(); }
};

ServerConnection::ServerConnection(const char* thread, pa_subscription_mask_t watched, Handlers handlers)
    : watched_(watched), handlers_(std::move(handlers)), loop_(pa_threaded_mainloop_new()), retryDelay_(shortestRetry)
{
    if (!loop_)
        return;
    pa_threaded_mainloop_set_name(loop_.get(), thread);
    timer_.emplace(pa_threaded_mainloop_get_api(loop_.get()), &Events::connectionIsDue, this);
}

bool ServerConnection::start()
{
    if (loop_) {
        // Connecting reads files: that is the thread's work.
        timer_->start(0);
        isRunning_ = pa_threaded_mainloop_start(loop_.get()) == 0;
    }
    if (!isRunning_)
        qCWarning(sessionLog, "No thread for what PulseAudio tells: %s", std::strerror(errno));
    return isRunning_;
}

void ServerConnection::stop()
{
    if (std::exchange(isRunning_, false))
        pa_threaded_mainloop_stop(loop_.get());
}

void ServerConnection::connect()
{
    isLost_ = false;
    subscription_.reset();
    const Properties properties(pa_proplist_new());
    pa_proplist_sets(properties.get(), PA_PROP_APPLICATION_NAME, "Nimbrale");
    pa_proplist_sets(properties.get(), PA_PROP_APPLICATION_ICON_NAME, "nimbrale");
    context_.reset(pa_context_new_with_proplist(pa_threaded_mainloop_get_api(loop_.get()), nullptr, properties.get()));
    if (!context_) {
        gone();
        return;
    }
    pa_context_set_state_callback(context_.get(), &Events::stateChanged, this);
    pa_context_set_subscribe_callback(context_.get(), &Events::changed, this);
    if (pa_context_connect(context_.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
        gone();
}

// The context goes later: this is called from within it.
void ServerConnection::gone()
{
    if (std::exchange(isLost_, true))
        return;
    if (std::chrono::steady_clock::now() > connected_ + longestRetry &&
        connected_ != std::chrono::steady_clock::time_point{})
        retryDelay_ = shortestRetry;
    connected_ = {};
    handlers_.onGone();
    timer_->start(static_cast<pa_usec_t>(retryDelay_.count()));
    retryDelay_ = std::min<std::chrono::microseconds>(retryDelay_ * 2, longestRetry);
}

} // namespace nimbrale::pulseaudio
