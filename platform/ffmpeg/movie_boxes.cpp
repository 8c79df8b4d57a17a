#include "platform/ffmpeg/movie_boxes.h"

#include <algorithm>

namespace nimbrale::ffmpeg {

namespace {

constexpr std::uint64_t largestSize = std::uint64_t{1} << 62;
constexpr std::size_t mostBoxes = 1000;

} // namespace

std::optional<BoxHeader> readBoxHeader(Bytes bytes)
{
    NumberReader reader(bytes);
    BoxHeader header;
    std::uint64_t size = reader.read32();
    header.type = reader.read32();
    if (size == 1) {
        size = reader.read64();
        header.length = BoxHeader::largest;
    }
    if (reader.failed() || size < header.length || size >= largestSize)
        return std::nullopt;
    header.size = static_cast<std::int64_t>(size);
    return header;
}

std::optional<std::vector<Box>> readBoxes(Bytes content)
{
    std::vector<Box> boxes;
    while (!content.empty()) {
        const auto header = readBoxHeader(content);
        if (!header || header->size > static_cast<std::int64_t>(content.size()) || boxes.size() == mostBoxes)
            return std::nullopt;
        const Bytes whole = content.first(static_cast<std::size_t>(header->size));
        boxes.push_back({header->type, whole, whole.subspan(header->length)});
        content = content.subspan(whole.size());
    }
    return boxes;
}

const Box* onlyBox(const std::vector<Box>& boxes, BoxType type)
{
    const auto isOfType = [type](const Box& box) { return box.type == type; };
    const auto found = std::find_if(boxes.begin(), boxes.end(), isOfType);
    if (found == boxes.end() || std::any_of(found + 1, boxes.end(), isOfType))
        return nullptr;
    return &*found;
}

void NumberReader::skip(std::size_t count)
{
    failed_ = failed_ || count > bytes_.size();
    bytes_ = failed_ ? Bytes() : bytes_.subspan(count);
}

std::uint64_t NumberReader::read(std::size_t count)
{
    std::uint64_t number = 0;
    const Bytes bytes = bytes_;
    skip(count);
    if (failed_)
        return 0;
    for (const std::uint8_t byte : bytes.first(count))
        number = number << 8 | byte;
    return number;
}

void BoxWriter::write(std::uint64_t number, int count)
{
    for (int shift = (count - 1) * 8; shift >= 0; shift -= 8)
        bytes_.push_back(static_cast<std::uint8_t>(number >> shift));
}

void BoxWriter::setSize(std::size_t begin)
{
    const std::size_t size = bytes_.size() - begin;
    for (std::size_t i = 0; i < 4; ++i)
        bytes_[begin + i] = static_cast<std::uint8_t>(size >> (24 - 8 * i));
}

} // namespace nimbrale::ffmpeg
