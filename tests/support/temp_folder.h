// Folders that one test has for itself.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vantlow::test {

/// A fresh folder in the system's temporary folder, removed with everything in it when the object ends.
class TempFolder {
  public:
    enum class Name {
        ascii,
        foreign,  ///< with characters outside ASCII and outside any one code page, and a blank
    };
    explicit TempFolder(Name name = Name::ascii);
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    [[nodiscard]] const std::u16string& path() const noexcept { return path_; }
    /// The path of something in the folder, with the system's separators.
    [[nodiscard]] std::u16string path(std::u16string_view name) const;
    /// The same as UTF-8.
    [[nodiscard]] std::string utf8_path(std::string_view name = {}) const;

    /// Writes a small file of the folder; throws std::runtime_error when that fails. Gives its path.
    std::u16string write(std::u16string_view name, std::string_view text) const;
    /// The bytes of a file of the folder; throws std::runtime_error when it cannot be read.
    [[nodiscard]] std::string read(std::u16string_view name) const;
    [[nodiscard]] bool has(std::u16string_view name) const;
    /// The names of everything in the folder, sorted.
    [[nodiscard]] std::vector<std::u16string> names() const;

  private:
    std::u16string path_;
};

/// Another home folder for this process, as long as the object lives.
class OtherHome {
  public:
    OtherHome();
    ~OtherHome();
    OtherHome(const OtherHome&) = delete;
    OtherHome& operator=(const OtherHome&) = delete;

  private:
    TempFolder folder_;
    std::u16string before_;
};

}  // namespace vantlow::test
