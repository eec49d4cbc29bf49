#include "transfer/ftp/reply.h"

#include <algorithm>
#include <utility>

#include "base/text.h"

namespace vantlow {
namespace {

bool is_digit(char c) noexcept {
    return c >= '0' && c <= '9';
}

// The code that a line begins with; 0 when it begins with none.
int code_of(std::string_view line) noexcept {
    if (line.size() < 3 || !std::all_of(line.begin(), line.begin() + 3, is_digit)) return 0;
    const int code = (line[0] - '0') * 100 + (line[1] - '0') * 10 + (line[2] - '0');
    return code >= 100 && code <= 599 ? code : 0;
}

}  // namespace

std::string ftp_line_for_log(std::string_view line) {
    const bool readable = is_utf8(line);
    std::string text;
    for (const char c : line) {
        const auto byte = static_cast<unsigned char>(c);
        text += byte < 0x20 || byte == 0x7F || (byte >= 0x80 && !readable) ? '?' : c;
    }
    return text;
}

std::string FtpReply::text() const {
    return lines.empty() ? std::string() : ftp_line_for_log(std::string_view(lines.back()).substr(0, 500));
}

void FtpReplyReader::add(std::string_view bytes) {
    if (!broken_) bytes_.append(bytes);
}

// True when the line completes the reply.
bool FtpReplyReader::take_line(std::string_view line) {
    const int code = code_of(line);
    const char mark = line.size() > 3 ? line[3] : ' ';
    if (reply_.lines.empty()) {
        if (line.empty()) return false;  // some servers send an empty line between replies
        if (code == 0 || (mark != ' ' && mark != '-')) {
            broken_ = true;
            return false;
        }
        reply_.code = code;
    }
    reply_.lines.emplace_back(line);
    // The same code and a blank end it; other codes within are text (RFC 959, 4.2).
    return code == reply_.code && mark == ' ';
}

std::optional<FtpReply> FtpReplyReader::take() {
    std::size_t taken = 0;
    bool whole = false;
    while (!broken_ && !whole) {
        const auto end = bytes_.find('\n', std::max(taken, searched_));
        if (end == std::string::npos) break;
        std::string_view line(bytes_.data() + taken, end - taken);
        while (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        // The line ends count, too: empty lines are not taken without end.
        reply_size_ += end - taken + 1;
        broken_ = end - taken > longest_line || reply_size_ > longest_reply;
        if (!broken_) whole = take_line(line);
        taken = end + 1;
    }
    bytes_.erase(0, taken);
    searched_ = whole ? 0 : bytes_.size();
    if (!whole) {
        broken_ = broken_ || bytes_.size() > longest_line;
        return std::nullopt;
    }
    reply_size_ = 0;
    return std::exchange(reply_, {});
}

}  // namespace vantlow
