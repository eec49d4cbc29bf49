#include "media/media_output.h"

#include <algorithm>
#include <vector>

#include "base/text.h"

namespace vantlow {
namespace {

constexpr std::int64_t move_step = 1024 * 1024;

}  // namespace

MediaOutput::~MediaOutput() {
    if (!file_.is_open()) return;
    file_.close();
    (void)remove_file(working_name_);  // a failure cannot be reported any more
}

Result MediaOutput::failure(const FileError& error) const {
    if (error.ok()) return {};
    return {Code::local_file, to_utf8(working_name_) + ": " + error.text(), error.system_error};
}

Result MediaOutput::open(const std::u16string& name) {
    name_ = name;
    working_name_ = working_name(name);
    if (const PathKind kind = path_kind(name); kind == PathKind::folder) {
        return {Code::local_file, to_utf8(name) + ": this is a folder"};
    }
    File file;
    const FileError opened = file.open_alone(working_name_, OpenMode::write);
    if (opened.fault == FileFault::in_use)
        return {Code::local_file, to_utf8(working_name_) + ": another run is writing it"};
    if (!opened.ok()) return failure(opened);
    file_ = std::move(file);
    // An empty file is not truncated: some file systems write all of a truncated file to the disk when it is
    // closed.
    return file_.size() == 0 ? Result{} : failure(file_.resize(0));
}

Result MediaOutput::write(std::span<const std::byte> bytes) {
    Result result = write_at(position_, bytes);
    if (result.ok()) position_ += static_cast<std::int64_t>(bytes.size());
    return result;
}

Result MediaOutput::write_at(std::int64_t offset, std::span<const std::byte> bytes) {
    return failure(file_.write_at(offset, bytes));
}

Result MediaOutput::copy(const File& from, std::int64_t offset, std::int64_t count) {
    Result result = failure(file_.copy_from(from, offset, position_, count));
    if (result.ok()) position_ += count;
    return result;
}

Result MediaOutput::shift(std::int64_t offset, std::int64_t by) {
    std::vector<std::byte> bytes(move_step);
    const std::int64_t total = position_ - offset;
    for (std::int64_t moved = 0; moved < total;) {
        const std::int64_t count = std::min(move_step, total - moved);
        // Each part is moved out of the way before another takes its place.
        const std::int64_t from = by > 0 ? position_ - moved - count : offset + moved;
        const auto part = std::span(bytes).first(static_cast<std::size_t>(count));
        std::size_t got = 0;
        FileError error = file_.read_at(from, part, got);
        if (error.ok() && got < part.size()) error = {FileFault::other, 0};
        if (error.ok()) error = file_.write_at(from + by, part);
        if (!error.ok()) return failure(error);
        moved += count;
    }
    position_ += by;
    return by < 0 ? failure(file_.resize(position_)) : Result{};
}

Result MediaOutput::commit() {
    // The bytes are flushed before the rename: a power cut must not leave half a film under the final name.
    if (Result result = failure(file_.flush()); !result.ok()) return result;
    file_.close();
    const FileError error = rename_replace(working_name_, name_);
    if (error.ok()) return {};
    (void)remove_file(working_name_);  // the first failure is the one that is reported
    return {Code::local_file, to_utf8(name_) + ": " + error.text(), error.system_error};
}

}  // namespace vantlow
