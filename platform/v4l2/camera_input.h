#pragma once

#include "platform/camera_pictures/camera_format.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <tl/expected.hpp>

struct AVFormatContext;
struct AVPacket;

namespace nimbrale::v4l2 {

/// A camera that gives pictures, read through FFmpeg's devices without ever waiting for one. Of one thread only.
class CameraInput {
public:
    /// What the library says of cameras goes to the debug log from now on. Its log belongs to the whole process, and it
    /// is switched over without a lock: once, before any thread uses the library.
    static void quietLibrary();
    /// Opens it in the most wanted of the formats that it has: 1280 × 720 at about 30 pictures a second, what needs no
    /// decoding first. Gives an error of the system's: ENOTSUP where no picture of it could be read, and ECANCELED when
    /// `isUnwanted`, which is asked between the attempts, says that nobody wants it any more.
    [[nodiscard]] static tl::expected<std::unique_ptr<CameraInput>, int> open(const std::filesystem::path& file,
                                                                              const std::function<bool()>& isUnwanted);
    ~CameraInput();
    CameraInput(const CameraInput&) = delete;
    CameraInput& operator=(const CameraInput&) = delete;

    [[nodiscard]] const CameraFormat& format() const { return format_; }
    /// From one picture to the next, as the camera says.
    [[nodiscard]] std::chrono::duration<double> interval() const { return interval_; }
    /// What the camera wrote last, until the next call; empty when it has written nothing since the last one, or
    /// something broken. An error of the system's when it gives no pictures any more.
    [[nodiscard]] tl::expected<std::span<const std::uint8_t>, int> readNewest();

private:
    struct Release {
        void operator()(AVFormatContext* context) const;
        void operator()(AVPacket* packet) const;
    };
    using Context = std::unique_ptr<AVFormatContext, Release>;
    struct Attempt;

    CameraInput(Context context, CameraFormat format);
    [[nodiscard]] static tl::expected<Context, int> openAs(const std::filesystem::path& file, const Attempt& attempt);

    Context context_;
    CameraFormat format_;
    std::chrono::duration<double> interval_;
    std::unique_ptr<AVPacket, Release> newest_;
    std::unique_ptr<AVPacket, Release> next_;
};

} // namespace nimbrale::v4l2
