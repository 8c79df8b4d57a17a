#pragma once

#include <cstdlib>
#include <memory>

namespace nimbrale::test {

struct FreeReply {
    void operator()(void* reply) const { std::free(reply); }
};

/// Owner of what xcb allocates.
template <typename T>
using Reply = std::unique_ptr<T, FreeReply>;

} // namespace nimbrale::test
