#include <thread>

#include "base/mutex.h"
#include "platform/file_marks.h"
#include "platform/ini_text.h"
#include "platform/settings_backend.h"
#include "platform/stop.h"

namespace vantlow {
namespace {

constexpr std::size_t largest_file = 1U << 20U;
// The time in which another process may finish its write before its lock counts as an error.
constexpr std::chrono::milliseconds lock_patience{5000};
constexpr std::chrono::milliseconds lock_step{5};

class SettingsFile final : public SettingsBackend {
  public:
    explicit SettingsFile(const std::u16string& path) : path_(absolute_path(path)) {
        const MutexLock own(mutex_);
        load(file_stamp(path_));
    }

    std::optional<std::u16string> read(std::u16string_view section, std::u16string_view key) override;
    FileError write(std::u16string_view section, std::u16string_view key, std::u16string_view value) override;
    FileError erase(std::u16string_view section, std::u16string_view key) override;
    Values all() override;
    bool refresh() override;
    [[nodiscard]] bool is_readable() const override;

  private:
    void load(const FileStamp& stamp) VANTLOW_REQUIRES(mutex_);
    bool load_when_changed() VANTLOW_REQUIRES(mutex_);
    FileError lock(File& guard);
    template <class Change>
    FileError change(Change change);

    const std::u16string path_;
    mutable Mutex mutex_;  // held across the file too: one change after the other
    IniText text_ VANTLOW_GUARDED_BY(mutex_);
    FileStamp stamp_ VANTLOW_GUARDED_BY(mutex_);  ///< taken before the bytes were read
    FileError unreadable_ VANTLOW_GUARDED_BY(mutex_);
};

void SettingsFile::load(const FileStamp& stamp) {
    std::vector<std::byte> bytes;
    unreadable_ = read_file(path_, largest_file, bytes);
    if (unreadable_.fault == FileFault::not_found) unreadable_ = {};
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    // A text that cannot be read leaves the values as they were known.
    if (unreadable_.ok() && !text_.parse(text)) unreadable_ = {FileFault::other, 0};
    stamp_ = stamp;
}

bool SettingsFile::load_when_changed() {
    const FileStamp stamp = file_stamp(path_);
    if (stamp == stamp_) return false;
    load(stamp);
    return true;
}

// The lock keeps other processes from writing between this one's reading and its writing.
FileError SettingsFile::lock(File& guard) {
    if (FileError error = make_folders(folder_of(path_)); !error.ok()) return error;
    if (FileError error = guard.open(path_ + u".lock", OpenMode::write, Privacy::owner_only); !error.ok())
        return error;
    const Deadline deadline(lock_patience);
    while (!guard.try_lock()) {
        if (deadline.left() == 0) return {FileFault::in_use, 0};
        std::this_thread::sleep_for(lock_step);
    }
    return {};
}

template <class Change>
FileError SettingsFile::change(Change change) {
    const MutexLock own(mutex_);
    File others;
    if (FileError error = lock(others); !error.ok()) return error;
    load_when_changed();
    if (!unreadable_.ok()) return unreadable_;
    IniText changed = text_;
    if (!change(changed)) return {FileFault::other, 0};
    const std::string bytes = changed.bytes();
    if (bytes == text_.bytes()) return {};
    if (bytes.size() > largest_file) return {FileFault::too_large, 0};
    const FileError error =
        write_file_atomically(path_, std::as_bytes(std::span(bytes)), Privacy::owner_only);
    if (!error.ok()) return error;
    text_ = std::move(changed);
    stamp_ = file_stamp(path_);
    return {};
}

std::optional<std::u16string> SettingsFile::read(std::u16string_view section, std::u16string_view key) {
    const MutexLock own(mutex_);
    const std::u16string* const value = text_.find(section, key);
    return value == nullptr ? std::nullopt : std::optional(*value);
}

FileError SettingsFile::write(std::u16string_view section, std::u16string_view key,
                              std::u16string_view value) {
    return change([&](IniText& text) { return text.set(section, key, value); });
}

FileError SettingsFile::erase(std::u16string_view section, std::u16string_view key) {
    refresh();
    if (!read(section, key) && is_readable()) return {};
    return change([&](IniText& text) {
        text.erase(section, key);
        return true;
    });
}

SettingsBackend::Values SettingsFile::all() {
    const MutexLock own(mutex_);
    return text_.sections();
}

bool SettingsFile::refresh() {
    const MutexLock own(mutex_);
    return load_when_changed();
}

bool SettingsFile::is_readable() const {
    const MutexLock own(mutex_);
    return unreadable_.ok();
}

}  // namespace

std::unique_ptr<SettingsBackend> open_settings_file(const std::u16string& path) {
    return std::make_unique<SettingsFile>(path);
}

}  // namespace vantlow
