#pragma once

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <linux/videodev2.h>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace nimbrale::v4l2 {

/// A camera of the test's own: an ordinary file, to which this program's `ioctl` answers as the kernel's driver of a
/// camera does. The whole way down to the system call is the real one. Any thread.
class VideoDriver {
public:
    struct Format {
        std::uint32_t encoding = V4L2_PIX_FMT_YUYV;
        std::uint32_t width = 1280;
        std::uint32_t height = 720;
        std::uint32_t rate = 30;
    };
    struct Options {
        std::string card = "Test camera";
        std::uint32_t capabilities = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
        std::vector<Format> formats = {Format{}};
        /// What is in each picture; all of its bytes are written from it.
        std::vector<std::uint8_t> picture = {};
    };

    VideoDriver(const std::filesystem::path& file, Options options)
        : file_(file), options_(std::move(options)), current_(options_.formats.front())
    {
        std::ofstream(file_).flush();
        struct stat status {};
        if (stat(file_.c_str(), &status) != 0)
            std::abort();
        key_ = {status.st_dev, status.st_ino};
        const std::lock_guard lock(mutex());
        all()[key_] = this;
    }
    ~VideoDriver()
    {
        unplug();
        const std::lock_guard lock(mutex());
        // Another one's file may have got the same number meanwhile.
        if (const auto known = all().find(key_); known != all().end() && known->second == this)
            all().erase(known);
    }
    VideoDriver(const VideoDriver&) = delete;
    VideoDriver& operator=(const VideoDriver&) = delete;

    /// The file goes, and who has it open gets no picture any more.
    void unplug()
    {
        const std::lock_guard lock(mutex());
        std::error_code ignored;
        std::filesystem::remove(file_, ignored);
        isGone_ = true;
    }
    /// As `unplug`, where the file has gone already.
    void noteUnplugged()
    {
        const std::lock_guard lock(mutex());
        isGone_ = true;
    }
    /// The error that each call with this number fails with; 0 for none.
    void fail(unsigned long request, int error)
    {
        const std::lock_guard lock(mutex());
        failures_[request] = error;
    }
    void stopPictures()
    {
        const std::lock_guard lock(mutex());
        isStill_ = true;
    }
    void show(std::vector<std::uint8_t> picture)
    {
        const std::lock_guard lock(mutex());
        writeDuePictures();
        options_.picture = std::move(picture);
    }
    [[nodiscard]] bool isStreaming() const
    {
        const std::lock_guard lock(mutex());
        return isStreaming_;
    }
    /// What it was set to last.
    [[nodiscard]] Format current() const
    {
        const std::lock_guard lock(mutex());
        return current_;
    }
    /// How often a program wanted to know what it is.
    [[nodiscard]] int questions() const
    {
        const std::lock_guard lock(mutex());
        return questions_;
    }

    /// Called before each call on a file, which it may make a camera.
    static inline std::function<void(int descriptor, const struct stat& status)> beforeCall;

    /// Answers a call, as `ioctl` does; nothing where the file is no camera of the test's.
    static bool answer(int descriptor, unsigned long request, void* argument, int& result)
    {
        struct stat status {};
        if (fstat(descriptor, &status) != 0)
            return false;
        if (beforeCall)
            beforeCall(descriptor, status);
        const std::lock_guard lock(mutex());
        const auto found = all().find({status.st_dev, status.st_ino});
        if (found == all().end())
            return false;
        errno = found->second->obey(descriptor, request, argument);
        result = errno == 0 ? 0 : -1;
        return true;
    }

private:
    using Clock = std::chrono::steady_clock;
    using Key = std::pair<dev_t, ino_t>;

    static std::mutex& mutex()
    {
        static std::mutex one;
        return one;
    }
    /// By their files. Those that are unplugged stay known, since somebody may still have them open.
    static std::map<Key, VideoDriver*>& all()
    {
        static std::map<Key, VideoDriver*> drivers;
        return drivers;
    }

    int obey(int descriptor, unsigned long request, void* argument)
    {
        if (isGone_)
            return ENODEV;
        if (const auto failure = failures_.find(request); failure != failures_.end() && failure->second != 0)
            return failure->second;
        switch (request) {
        case VIDIOC_QUERYCAP:
            return describe(*static_cast<v4l2_capability*>(argument));
        case VIDIOC_S_FMT:
            return setFormat(*static_cast<v4l2_format*>(argument));
        case VIDIOC_G_PARM:
        case VIDIOC_S_PARM:
            return tellRate(*static_cast<v4l2_streamparm*>(argument));
        case VIDIOC_G_INPUT:
            *static_cast<int*>(argument) = 0;
            return 0;
        case VIDIOC_ENUMINPUT:
            return static_cast<v4l2_input*>(argument)->index == 0 ? 0 : EINVAL;
        case VIDIOC_REQBUFS:
            return makeBuffers(descriptor, *static_cast<v4l2_requestbuffers*>(argument));
        case VIDIOC_QUERYBUF:
            return describeBuffer(*static_cast<v4l2_buffer*>(argument));
        case VIDIOC_QBUF:
            queued_.push_back(static_cast<v4l2_buffer*>(argument)->index);
            return 0;
        case VIDIOC_DQBUF:
            return givePicture(*static_cast<v4l2_buffer*>(argument));
        case VIDIOC_STREAMON:
            isStreaming_ = true;
            stream_ = descriptor;
            next_ = Clock::now();
            return 0;
        case VIDIOC_STREAMOFF:
            isStreaming_ = false;
            queued_.clear();
            written_.clear();
            return 0;
        default:
            return ENOTTY;
        }
    }

    int describe(v4l2_capability& capability)
    {
        ++questions_;
        capability = {};
        std::memcpy(capability.card, options_.card.data(), std::min(options_.card.size(), sizeof(capability.card)));
        capability.capabilities = V4L2_CAP_DEVICE_CAPS | V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
        capability.device_caps = options_.capabilities;
        return 0;
    }

    /// As drivers do: the nearest size in the encoding, or else another encoding.
    int setFormat(v4l2_format& wanted)
    {
        if (isStreaming_)
            return EBUSY;
        v4l2_pix_format& pixels = wanted.fmt.pix;
        const Format* best = nullptr;
        const auto distance = [&pixels](const Format& format) {
            return std::abs(static_cast<int>(format.width) - static_cast<int>(pixels.width));
        };
        for (const Format& format : options_.formats) {
            if (format.encoding == pixels.pixelformat && (!best || distance(format) < distance(*best)))
                best = &format;
        }
        current_ = best ? *best : options_.formats.front();
        pixels.pixelformat = current_.encoding;
        pixels.width = current_.width;
        pixels.height = current_.height;
        pixels.sizeimage = size();
        pixels.field = V4L2_FIELD_NONE;
        return 0;
    }

    int tellRate(v4l2_streamparm& parameters) const
    {
        parameters.parm.capture.capability = V4L2_CAP_TIMEPERFRAME;
        parameters.parm.capture.timeperframe = {1, current_.rate};
        return 0;
    }

    int makeBuffers(int descriptor, v4l2_requestbuffers& request)
    {
        request.count = std::min(request.count, buffers);
        queued_.clear();
        return request.count == 0 || ftruncate(descriptor, static_cast<off_t>(request.count * room())) == 0 ? 0 : EIO;
    }

    int describeBuffer(v4l2_buffer& buffer) const
    {
        buffer.length = static_cast<std::uint32_t>(room());
        buffer.m.offset = static_cast<std::uint32_t>(buffer.index * room());
        return 0;
    }

    int givePicture(v4l2_buffer& buffer)
    {
        writeDuePictures();
        if (written_.empty())
            return EAGAIN;
        buffer = written_.front();
        written_.pop_front();
        return 0;
    }

    /// All that should have been written by now; what finds no buffer is dropped, as a camera does.
    void writeDuePictures()
    {
        for (; isStreaming_ && !isStill_ && Clock::now() >= next_;
             next_ += std::chrono::nanoseconds(std::chrono::seconds(1)) / current_.rate) {
            if (queued_.empty())
                continue;
            written_.push_back(writePicture(queued_.front()));
            queued_.pop_front();
        }
    }

    [[nodiscard]] v4l2_buffer writePicture(std::uint32_t index) const
    {
        const std::vector<std::uint8_t>& picture = options_.picture;
        const bool hasOwnSize = current_.encoding == V4L2_PIX_FMT_MJPEG || picture.size() == 1;
        v4l2_buffer buffer{};
        buffer.index = index;
        buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buffer.memory = V4L2_MEMORY_MMAP;
        buffer.bytesused = hasOwnSize ? static_cast<std::uint32_t>(picture.size()) : size();
        const std::size_t length = std::min<std::size_t>(picture.size(), room());
        if (syscall(SYS_pwrite64, stream_, picture.data(), length, static_cast<off_t>(index * room())) < 0)
            std::abort();
        const auto time = std::chrono::duration_cast<std::chrono::microseconds>(next_.time_since_epoch());
        buffer.timestamp = {static_cast<time_t>(time.count() / 1'000'000),
                            static_cast<suseconds_t>(time.count() % 1'000'000)};
        buffer.flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
        return buffer;
    }

    [[nodiscard]] std::uint32_t size() const { return current_.width * current_.height * 2; }
    /// Of a buffer: whole pages.
    [[nodiscard]] std::size_t room() const { return (std::size_t{size()} + 4095) / 4096 * 4096; }

    static constexpr std::uint32_t buffers = 6;

    const std::filesystem::path file_;
    Options options_;
    Key key_;
    Format current_;
    std::map<unsigned long, int> failures_;
    std::deque<std::uint32_t> queued_;
    std::deque<v4l2_buffer> written_;
    int stream_ = -1;
    Clock::time_point next_;
    bool isStreaming_ = false;
    bool isStill_ = false;
    bool isGone_ = false;
    int questions_ = 0;
};

} // namespace nimbrale::v4l2

/// Stands before the system's own, for the libraries, too.
extern "C" int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    // Compared in 32 bits, as the kernel does.
    int result = 0;
    if (nimbrale::v4l2::VideoDriver::answer(descriptor, request & 0xffffffffUL, argument, result))
        return result;
    return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
}
