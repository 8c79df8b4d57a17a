#pragma once

#include <unistd.h>
#include <utility>

namespace nimbrale {

/// Owner of a file descriptor, which it closes. Move-only.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    ~FileDescriptor() { reset(); }
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        if (this != &other) {
            reset();
            descriptor_ = std::exchange(other.descriptor_, -1);
        }
        return *this;
    }

    /// -1 when it owns nothing.
    [[nodiscard]] int get() const { return descriptor_; }
    explicit operator bool() const { return descriptor_ >= 0; }
    /// Closes it now.
    void reset()
    {
        if (descriptor_ >= 0)
            close(std::exchange(descriptor_, -1));
    }
    /// It is the caller's to close from now on.
    [[nodiscard]] int release() { return std::exchange(descriptor_, -1); }

private:
    int descriptor_ = -1;
};

} // namespace nimbrale
