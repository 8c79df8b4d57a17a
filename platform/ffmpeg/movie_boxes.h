#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// The boxes that a movie file consists of: a big-endian size, four letters, and a content.
namespace nimbrale::ffmpeg {

using Bytes = std::span<const std::uint8_t>;
using BoxType = std::uint32_t;

constexpr BoxType boxType(const char (&letters)[5])
{
    BoxType type = 0;
    for (int i = 0; i < 4; ++i)
        type = type << 8 | static_cast<std::uint8_t>(letters[i]);
    return type;
}

struct BoxHeader {
    static constexpr std::size_t smallest = 8;
    static constexpr std::size_t largest = 16;

    BoxType type = 0;
    /// Of the header itself.
    std::size_t length = smallest;
    /// Of the whole box; at least `length`, and less than 2^62.
    std::int64_t size = 0;
};

/// Reads a header from the first bytes of a box. Nothing where they are none, or too few to tell. A box without a size,
/// which goes on to the end of its file, is none.
[[nodiscard]] std::optional<BoxHeader> readBoxHeader(Bytes bytes);

struct Box {
    BoxType type = 0;
    /// With and without the header.
    Bytes whole;
    Bytes content;
};

/// The boxes that `content` consists of. Nothing where it does not consist of whole boxes, or of more than a thousand.
[[nodiscard]] std::optional<std::vector<Box>> readBoxes(Bytes content);

/// The only box of this type; nothing where there is none or a second one.
[[nodiscard]] const Box* onlyBox(const std::vector<Box>& boxes, BoxType type);

/// Reads numbers one after another. What lies beyond the end is 0 and counts as a failure.
class NumberReader {
public:
    explicit NumberReader(Bytes bytes) : bytes_(bytes) {}

    std::uint32_t read32() { return static_cast<std::uint32_t>(read(4)); }
    std::uint64_t read64() { return read(8); }
    void skip(std::size_t count);
    /// What is not read yet.
    [[nodiscard]] Bytes rest() const { return bytes_; }
    [[nodiscard]] bool failed() const { return failed_; }

private:
    std::uint64_t read(std::size_t count);

    Bytes bytes_;
    bool failed_ = false;
};

/// Puts boxes together.
class BoxWriter {
public:
    void write32(std::uint32_t number) { write(number, 4); }
    void write64(std::uint64_t number) { write(number, 8); }
    void write(Bytes bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }

    /// A box of what `writeContent` writes. Its content must stay below 4 GB.
    template <typename WriteContent>
    void box(BoxType type, WriteContent writeContent)
    {
        const std::size_t begin = bytes_.size();
        write32(0);
        write32(type);
        writeContent();
        setSize(begin);
    }

    [[nodiscard]] const std::vector<std::uint8_t>& bytes() const { return bytes_; }

private:
    void write(std::uint64_t number, int count);
    void setSize(std::size_t begin);

    std::vector<std::uint8_t> bytes_;
};

} // namespace nimbrale::ffmpeg
