#include "media/media_input.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "base/text.h"

namespace vantlow {

Result MediaInput::open(const std::u16string& path) {
    path_ = path;
    const FileError error = file_.open(path, OpenMode::read);
    if (!error.ok()) return {Code::local_file, to_utf8(path) + ": " + error.text(), error.system_error};
    size_ = path_kind(path) == PathKind::file ? file_.size() : -1;
    if (size_ < 0) return {Code::local_file, to_utf8(path) + ": this is no plain file"};
    return {};
}

bool MediaInput::read(std::int64_t offset, std::span<std::byte> into) const noexcept {
    std::size_t got = 0;
    const FileError error = file_.read_at(offset, into, got);
    if (!error.ok() && read_error_.ok()) read_error_ = error;
    return error.ok() && got == into.size();
}

Result MediaInput::read_failure(std::int64_t offset) const {
    return damaged(offset, "cannot be read or has become shorter");
}

Result MediaInput::damaged(std::int64_t offset, std::string_view what) const {
    if (!read_error_.ok()) {
        return {Code::local_file,
                to_utf8(path_) + ": " + read_error_.text() + " (at offset " + std::to_string(offset) + ")",
                read_error_.system_error};
    }
    return {Code::unsupported,
            to_utf8(path_) + ": " + std::string(what) + " (at offset " + std::to_string(offset) + ")"};
}

const std::byte* InputWindow::at(std::int64_t offset, std::size_t count) {
    if (count > bytes_.size() || offset < 0 || offset > input_->size()) return nullptr;
    const auto end = offset + static_cast<std::int64_t>(count);
    if (offset < start_ || end > start_ + static_cast<std::int64_t>(filled_)) {
        if (end > input_->size()) return nullptr;
        const auto left = static_cast<std::uint64_t>(input_->size() - offset);
        const auto room = static_cast<std::size_t>(std::min<std::uint64_t>(left, bytes_.size()));
        filled_ = 0;
        if (!input_->read(offset, std::span(bytes_).first(room))) return nullptr;
        start_ = offset;
        filled_ = room;
    }
    return bytes_.data() + (offset - start_);
}

MediaKind media_kind(const MediaInput& input) {
    std::array<char, 8> head{};
    const auto bytes = std::as_writable_bytes(std::span(head));
    if (!input.read(0, bytes.first(3))) return MediaKind::other;
    const std::string_view text(head.data(), head.size());
    if (text.starts_with("FLV")) return MediaKind::flv;
    if (!input.read(0, bytes)) return MediaKind::other;
    static constexpr std::string_view first_boxes[] = {"ftyp", "moov", "mdat", "free", "skip",
                                                       "wide", "styp", "moof", "pnot", "sidx"};
    const bool box =
        std::find(std::begin(first_boxes), std::end(first_boxes), text.substr(4)) != std::end(first_boxes);
    return box ? MediaKind::mp4 : MediaKind::other;
}

}  // namespace vantlow
