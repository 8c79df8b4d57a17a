#pragma once

#include <string>
#include <tl/expected.hpp>

namespace nimbrale {

/// Why an operation failed, as far as callers decide by it. The negative values are the capture codes that the
/// application tells apart; they are part of what is logged and shown, so their numbers are fixed.
enum class ErrorCode {
    temporary,   ///< may work when tried again
    permanent,   ///< will not work in this process
    unsupported, ///< this system cannot do it
    captureDeclined = -3801,
    captureFailedToStart = -3802,
    captureNoDisplayList = -3814,
};

struct Error {
    ErrorCode code = ErrorCode::permanent;
    /// One sentence that a user can be shown: what failed and, where there is something to do, what to do.
    std::string message;

    bool operator==(const Error&) const = default;
};

template <typename T>
using Result = tl::expected<T, Error>;

/// `return fail(ErrorCode::temporary, "…")` from a function that returns a Result.
[[nodiscard]] inline tl::unexpected<Error> fail(ErrorCode code, std::string message)
{
    return tl::make_unexpected(Error{code, std::move(message)});
}

/// Ends the process with one line on standard error. For conditions that only a programming error can bring about.
[[noreturn]] void programmingError(const char* what);

} // namespace nimbrale
