// The replies of an FTP control connection (RFC 959, 4.2), from bytes that come in any pieces.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vantlow {

/// One reply, of one line or of several.
struct FtpReply {
    int code = 0;                    ///< 100 to 599
    std::vector<std::string> lines;  ///< as they came, without line ends; never empty

    [[nodiscard]] int kind() const noexcept { return code / 100; }
    [[nodiscard]] bool is_success() const noexcept { return kind() == 2; }
    /// A "421": the server is about to close the connection, whatever was asked.
    [[nodiscard]] bool says_goodbye() const noexcept { return code == 421; }
    /// The last line, fit for a log: the one that a person should read.
    [[nodiscard]] std::string text() const;
};

/// Takes bytes, gives replies. Bounded: a line or a reply that is too long, and bytes that are no reply at
/// all, make it broken for good.
class FtpReplyReader {
  public:
    static constexpr std::size_t longest_line = 64 * 1024;
    static constexpr std::size_t longest_reply = 4 * 1024 * 1024;

    void add(std::string_view bytes);
    /// The next whole reply; none while it is not there yet.
    std::optional<FtpReply> take();
    [[nodiscard]] bool is_broken() const noexcept { return broken_; }
    /// True when nothing is held that belongs to a reply which did not come whole.
    [[nodiscard]] bool is_empty() const noexcept { return bytes_.empty() && reply_.lines.empty(); }

  private:
    bool take_line(std::string_view line);

    std::string bytes_;         ///< not yet a line
    std::size_t searched_ = 0;  ///< of bytes_: no line end in front of this
    FtpReply reply_;            ///< what has come of it
    std::size_t reply_size_ = 0;
    bool broken_ = false;
};

/// A line of the wire as UTF-8 without control characters, for logs and messages.
std::string ftp_line_for_log(std::string_view line);

}  // namespace vantlow
