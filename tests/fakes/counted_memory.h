#pragma once

// What a test program and all of its threads take of memory, by whatever name it is asked for. One source file of a
// program may include it: it puts its functions in front of the C library's.

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <unistd.h>

namespace nimbrale {

#if defined(__SANITIZE_THREAD__)
/// The thread sanitizer of GCC 12 tells of no memory that is asked for by its alignment, but of its being given back.
constexpr bool isAlignedMemoryCounted = false;
#else
constexpr bool isAlignedMemoryCounted = true;
#endif

/// Handles of shared pictures are smaller, everything that is made of pixels is larger.
constexpr std::size_t smallPiece = 256;

} // namespace nimbrale

namespace {

std::atomic<std::size_t> pieces = 0;
std::atomic<std::size_t> bytes = 0;
std::atomic<std::size_t> largePieces = 0;
std::atomic<std::size_t> largest = 0;
std::atomic<std::size_t> givenBack = 0;

void countTaken(std::size_t size)
{
    ++pieces;
    bytes += size;
    if (size > nimbrale::smallPiece)
        ++largePieces;
    std::size_t before = largest;
    while (size > before && !largest.compare_exchange_weak(before, size)) {
    }
}

void countGivenBack()
{
    ++givenBack;
}

} // namespace

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

// GCC has it in the sanitizers' libraries, but in no header of its own.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onTaken)(const volatile void* memory, std::size_t size),
                                                         void (*onGivenBack)(const volatile void* memory));

namespace {

/// The sanitizers have an allocator of their own.
const int installed = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void* /*memory*/, std::size_t size) { countTaken(size); },
    [](const volatile void* memory) {
        if (memory)
            countGivenBack();
    });

} // namespace

#else

// In front of the C library's own, by whose names its functions are reached. `new` ends here too.
// NOLINTBEGIN(bugprone-reserved-identifier, readability-inconsistent-declaration-parameter-name)
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);

void* malloc(std::size_t size) noexcept
{
    countTaken(size);
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept
{
    countTaken(count * size);
    return __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) noexcept
{
    if (memory)
        countGivenBack();
    countTaken(size);
    return __libc_realloc(memory, size);
}

void free(void* memory) noexcept
{
    if (memory)
        countGivenBack();
    __libc_free(memory);
}

void* memalign(std::size_t alignment, std::size_t size) noexcept
{
    countTaken(size);
    return __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept
{
    return memalign(alignment, size);
}

// Under another name here, since the compilers' headers do not agree on its exceptions.
int takeAligned(void** memory, std::size_t alignment, std::size_t size) noexcept __asm__("posix_memalign");
int takeAligned(void** memory, std::size_t alignment, std::size_t size) noexcept
{
    *memory = memalign(alignment, size);
    return *memory ? 0 : ENOMEM;
}

void* valloc(std::size_t size) noexcept
{
    return memalign(static_cast<std::size_t>(sysconf(_SC_PAGESIZE)), size);
}

} // extern "C"
  // NOLINTEND(bugprone-reserved-identifier, readability-inconsistent-declaration-parameter-name)

#endif

namespace nimbrale {
namespace {

/// What the whole program has taken since it was made.
class Taken {
public:
    Taken() { ::largest = 0; }
    [[nodiscard]] std::size_t pieces() const { return ::pieces - pieces_; }
    [[nodiscard]] std::size_t bytes() const { return ::bytes - bytes_; }
    [[nodiscard]] std::size_t largePieces() const { return ::largePieces - largePieces_; }
    [[nodiscard]] std::size_t givenBack() const { return ::givenBack - givenBack_; }
    [[nodiscard]] std::size_t largest() const { return ::largest; }

private:
    std::size_t pieces_ = ::pieces;
    std::size_t bytes_ = ::bytes;
    std::size_t largePieces_ = ::largePieces;
    std::size_t givenBack_ = ::givenBack;
};

} // namespace
} // namespace nimbrale
