// eDonkey links: "ed2k://|file|NAME|SIZE|HASH|/" and the links of servers.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vantlow {

/// The contents of the link of one file. A plain value; one thread at a time.
class CED2KLink {
  public:
    static constexpr std::size_t hash_size = 16;
    using Hash = std::array<std::byte, hash_size>;

    CED2KLink() = default;
    /// The hash text becomes 32 upper-case digits.
    CED2KLink(std::u16string file_name, std::uint64_t file_size, const Hash& hash);

    /// Reads a link, tolerantly: backslashes count as slashes, what follows a line end or the fifth field is
    /// ignored, and a size that is no number is 0. False, with the fields unchanged, when fields are missing,
    /// it is not the link of a file, or the hash has not 32 characters; digits are not looked at here.
    bool parse(std::u16string_view text);

    /// The link. A name with "|" gives one that cannot be read back the same way: the format has no escape
    /// that all programs know.
    [[nodiscard]] std::u16string format() const;

    [[nodiscard]] const std::u16string& file_name() const noexcept { return file_name_; }
    [[nodiscard]] std::uint64_t file_size() const noexcept { return file_size_; }
    /// As it stands in the link that was parsed.
    [[nodiscard]] const std::u16string& hash_text() const noexcept { return hash_text_; }
    /// The eDonkey file identifier, made of MD4 digests; characters that are no digits count as 0.
    [[nodiscard]] const Hash& file_hash() const noexcept { return file_hash_; }
    /// True when the hash text is nothing but hexadecimal digits.
    [[nodiscard]] bool is_hash_valid() const noexcept;

  private:
    std::u16string file_name_;
    std::uint64_t file_size_ = 0;
    std::u16string hash_text_;
    Hash file_hash_{};
};

/// The line that names a server in an exported list, with its line end.
std::string ed2k_server_line(std::string_view address, std::uint16_t port);

}  // namespace vantlow
