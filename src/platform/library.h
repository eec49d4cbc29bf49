// Shared libraries that are loaded while the program runs.
#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace vantlow {

/// A loaded library. Operations stay valid while the object lives.
class Library {
  public:
    Library() = default;
    Library(Library&& other) noexcept : native_(std::exchange(other.native_, nullptr)) {}
    Library& operator=(Library&& other) noexcept {
        std::swap(native_, other.native_);
        return *this;
    }
    ~Library();

    /// Loads the file of this full path; false when it is missing or cannot be loaded.
    bool load(const std::u16string& path) noexcept;
    /// Finds an exported operation; null where there is none.
    [[nodiscard]] void* find(const char* operation) const noexcept;
    [[nodiscard]] bool is_loaded() const noexcept { return native_ != nullptr; }

    /// The file name of a run-time library of this system: "libssh" gives "libssh.dll" or "libssh.so".
    static std::u16string file_name(std::string_view library);
    /// The full path of a library of the system itself, in the system's own folder: "rasapi32". Empty on
    /// systems that have no such folder.
    static std::u16string system_path(std::string_view library);

  private:
    void* native_ = nullptr;
};

}  // namespace vantlow
