#include "store/data_folder_lock.h"

#include <utility>
#include <vector>

#include "platform/file_marks.h"

namespace vantlow {
namespace {

constexpr std::size_t longest_text = 4096;

std::u16string lock_path(const std::u16string& folder) {
    return join_path(folder, lock_file_name);
}

bool is_unwritable(const FileError& error) noexcept {
    return error.fault == FileFault::read_only || error.fault == FileFault::access ||
           error.fault == FileFault::no_space;
}

}  // namespace

DataFolderLock::Claim DataFolderLock::claim(const std::u16string& folder, FileError& error) {
    error = make_folders(folder);
    if (error.ok()) error = file_.open(lock_path(folder), OpenMode::write, Privacy::owner_only);
    if (!error.ok()) return is_unwritable(error) ? Claim::no_disk : Claim::failed;
    if (file_.try_lock()) {
        path_ = lock_path(folder);
        identity_ = file_stamp(path_).identity;
        // The text in the file is an earlier owner's; where it cannot be removed, nobody answers at that
        // address anyway.
        static_cast<void>(file_.resize(0));
        return Claim::mine;
    }
    file_.close();
    return Claim::taken;
}

bool DataFolderLock::is_in_place() const noexcept {
    if (!is_mine() || identity_ == 0) return true;
    // A single look may fail for other reasons, so there are two.
    return file_stamp(path_).identity == identity_ || file_stamp(path_).identity == identity_;
}

DataFolderLock::Claim DataFolderLock::claim_again(FileError& error) {
    DataFolderLock fresh;
    const Claim claim = fresh.claim(folder_of(path_), error);
    if (claim == Claim::taken && is_in_place())
        return Claim::mine;  // it was there all the time and only missed a moment ago
    if (claim != Claim::mine) return claim;
    const std::string where = std::move(published_);
    *this = std::move(fresh);
    static_cast<void>(publish(where));  // without it nobody reaches this owner, but the folder is its own
    return Claim::mine;
}

FileError DataFolderLock::publish(std::string_view where) {
    published_ = where;
    if (FileError error = file_.resize(0); !error.ok()) return error;
    return file_.write_at(0, std::as_bytes(std::span(where)));
}

void DataFolderLock::release() noexcept {
    if (!file_.is_open()) return;
    static_cast<void>(file_.resize(0));  // a new owner empties it anyway
    file_.close();
}

std::string DataFolderLock::read(const std::u16string& folder) {
    std::vector<std::byte> bytes;
    if (!read_file(lock_path(folder), longest_text, bytes).ok()) return {};
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace vantlow
