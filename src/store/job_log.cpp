#include "store/job_log.h"

#include <algorithm>
#include <chrono>
#include <new>

#include "base/text.h"

namespace vantlow {
namespace {

// Cuts the text to at most `most` bytes, never inside a character.
std::string_view cut(std::string_view text, std::size_t most) noexcept {
    if (text.size() <= most) return text;
    std::size_t length = most;
    while (length > 0 && most - length < 4 && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U)
        --length;
    return text.substr(0, length);
}

bool is_control(char16_t c) noexcept {
    return c < 0x20 || (c >= 0x7F && c <= 0x9F) || c == 0x2028 || c == 0x2029;
}

std::int64_t now_in_milliseconds() noexcept {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

// Nearly every line is printable ASCII, which is its own text; only others are looked at character by
// character.
bool is_plain(std::string_view text) noexcept {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
}

}  // namespace

// Text from a server must neither move the cursor of the terminal that shows it, nor make two lines of one.
std::string log_text(std::string_view text) {
    const std::string_view kept = cut(text, CLogNode::max_length);
    if (is_plain(kept)) return std::string(kept);
    std::u16string units = to_utf16(kept);
    char16_t before = 0;
    for (char16_t& c : units) {
        const bool behind_half = before >= 0xD800 && before <= 0xDBFF;
        before = c;
        if (is_control(c)) c = u' ';
        if (c >= 0xDC80 && c <= 0xDCFF && !behind_half) c = u'?';  // a byte that is not UTF-8
    }
    return to_utf8(units);
}

void CJobLog::line(Direction direction, std::string_view text) {
    // The writers of a log are in the middle of other work, so a line is dropped when memory is short.
    try {
        CLogNode node;
        node.time = now_in_milliseconds();
        node.direction = direction;
        node.text = log_text(text);
        {
            const MutexLock guard(mutex_);
            lines_.push_back(node);
            if (lines_.size() > kept) lines_.pop_front();
        }
        if (!listener_) return;
        const MutexLock guard(listener_mutex_);
        listener_(node);
    } catch (const std::bad_alloc&) {
    }
}

std::vector<CLogNode> CJobLog::lines() const {
    const MutexLock guard(mutex_);
    return {lines_.begin(), lines_.end()};
}

}  // namespace vantlow
