#include "media/mp4_box_reader.h"

#include <string>
#include <utility>

#include "media/big_endian.h"

namespace vantlow {
namespace {

constexpr std::int64_t most_held = 64 * 1024 * 1024;

}  // namespace

bool BoxReader::load(const Mp4Box& box, Bytes& whole, std::size_t least_body, std::int64_t largest) {
    if (box.body_size() < static_cast<std::int64_t>(least_body))
        return fail(box.offset, "a box that is too short");
    held_ += box.end - box.offset;
    if (held_ > most_held) return fail(box.offset, "too much in the movie box");
    auto bytes = read_range(input, box.offset, box.end, largest);
    if (!bytes) {
        failure = bytes.failure();
        return false;
    }
    whole = *std::move(bytes);
    // "Up to the end of what it stands in" is somewhere else where the box is written again.
    if (load_u32(whole.data()) == 0) store_big(whole.data(), whole.size(), 4);
    return true;
}

bool BoxReader::load(const Mp4Box& parent, std::string_view path, Bytes& whole, std::size_t least_body) {
    Mp4Box box;
    return find(parent, path, box) && load(box, whole, least_body);
}

bool BoxReader::need(const Mp4Box& parent, std::string_view path, Bytes& whole, std::size_t least_body) {
    if (load(parent, path, whole, least_body)) return true;
    return failure.ok() ? fail(parent.offset, "the box \"" + std::string(path) + "\" is missing") : false;
}

}  // namespace vantlow
