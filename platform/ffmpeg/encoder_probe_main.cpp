// Tries an encoder on a graphics card for the application, whose process must not suffer from what a driver does.

#include "platform/ffmpeg/encoder_probe.h"

#include <cstdio>
#include <unistd.h>

extern "C" {
#include <libavutil/log.h>
}

namespace {

/// Seconds. The application waits for less, but it may have gone.
constexpr unsigned int longestLife = 20;

} // namespace

int main(int argc, char** argv)
{
    using namespace nimbrale::ffmpeg;
    alarm(longestLife);
    av_log_set_level(AV_LOG_QUIET);
    const auto question = ProbeQuestion::read({argv + 1, static_cast<std::size_t>(argc > 0 ? argc - 1 : 0)});
    if (!question) {
        std::fputs("What to try is told by the application.\n", stderr);
        return 2;
    }
    const auto probed = probeEncoder(*question);
    std::puts(probed ? question->confirmation().c_str() : probed.error().message.c_str());
    return probed ? 0 : 1;
}
