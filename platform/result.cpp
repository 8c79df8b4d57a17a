#include "platform/result.h"

#include <cstdio>
#include <cstdlib>

namespace nimbrale {

void programmingError(const char* what)
{
    std::fprintf(stderr, "Nimbrale: programming error: %s\n", what);
    std::abort();
}

} // namespace nimbrale
