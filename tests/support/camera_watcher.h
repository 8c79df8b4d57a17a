#pragma once

#include "platform/cameras.h"

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale::test {

/// Somebody who watches a camera.
class CameraWatcher {
public:
    CameraWatcher(Cameras& cameras, const std::string& id)
    {
        camera_ = cameras.open(id, {[this](std::shared_ptr<const BufferSurface> picture) {
                                        const std::lock_guard lock(mutex_);
                                        newest_ = std::move(picture);
                                        ++count_;
                                    },
                                    [this](const Error& error) { losses.push_back(error); }});
    }

    void close() { camera_.reset(); }
    [[nodiscard]] int count() const
    {
        const std::lock_guard lock(mutex_);
        return count_;
    }
    [[nodiscard]] std::shared_ptr<const BufferSurface> newest() const
    {
        const std::lock_guard lock(mutex_);
        return newest_;
    }

    std::vector<Error> losses;

private:
    mutable std::mutex mutex_;
    std::shared_ptr<const BufferSurface> newest_;
    int count_ = 0;
    std::unique_ptr<OpenCamera> camera_;
};

} // namespace nimbrale::test
