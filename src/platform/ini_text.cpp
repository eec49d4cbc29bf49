#include "platform/ini_text.h"

#include <algorithm>

#include "base/text.h"

namespace vantlow {
namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

bool is_control(char c) noexcept {
    return static_cast<unsigned char>(c) < 0x20 && c != '\t';
}

std::string_view without_quotes(std::string_view text) noexcept {
    return text.substr(1, text.size() - 2);
}

bool is_quoted(std::string_view text) noexcept {
    return text.size() >= 2 && text.front() == '"' && text.back() == '"';
}

std::u16string read_value(std::string_view text) {
    if (is_quoted(text)) return to_utf16(without_quotes(text));
    const bool escaped = text.starts_with('%') && is_quoted(text.substr(1));
    return to_utf16(escaped ? percent_decode(without_quotes(text.substr(1))) : std::string(text));
}

std::string write_value(std::u16string_view value) {
    const std::string text = to_utf8(value);
    if (std::any_of(text.begin(), text.end(), is_control)) {
        std::string escaped = "%\"";
        for (const char c : text) {
            const bool plain = !is_control(c) && c != '%';
            escaped += plain ? std::string(1, c)
                             : print("%%%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
        }
        return escaped + '"';
    }
    const bool as_it_is = trim(text) == text && !text.starts_with('"') && !text.starts_with("%\"");
    return as_it_is ? text : '"' + text + '"';
}

bool can_be_name(std::string_view name) noexcept {
    // A name that begins with a byte order mark would lose it at the beginning of the file.
    return trim(name) == name && !name.starts_with(byte_order_mark) &&
           std::none_of(name.begin(), name.end(), is_control);
}

bool can_be_key(std::string_view key) noexcept {
    return can_be_name(key) && !key.empty() && key.find('=') == std::string_view::npos &&
           std::string_view("[;#").find(key.front()) == std::string_view::npos;
}

}  // namespace

IniText::Line IniText::read_line(std::string_view text, const std::u16string& section) {
    Line line{std::string(text), LineKind::other, section, {}};
    const std::string_view content = trim(text);
    if (content.empty() || content.front() == ';' || content.front() == '#') return line;
    if (content.front() == '[') {
        if (content.back() != ']') return line;
        line.kind = LineKind::section;
        line.section = to_utf16(trim(without_quotes(content)));
        return line;
    }
    const std::size_t equals = content.find('=');
    if (equals == std::string_view::npos || equals == 0) return line;
    line.kind = LineKind::value;
    line.key = to_utf16(trim(content.substr(0, equals)));
    sections_[section][line.key] = read_value(trim(content.substr(equals + 1)));
    return line;
}

bool IniText::parse(std::string_view bytes) {
    if (bytes.find('\0') != std::string_view::npos) return false;  // UTF-16, or no text at all
    lines_.clear();
    sections_.clear();
    while (bytes.starts_with(byte_order_mark)) bytes.remove_prefix(byte_order_mark.size());
    const std::size_t first_end = bytes.find('\n');
    const bool two_bytes =
        first_end != std::string_view::npos && first_end > 0 && bytes[first_end - 1] == '\r';
    line_end_ = two_bytes ? "\r\n" : "\n";
    std::u16string section;
    while (!bytes.empty()) {
        const std::size_t end = std::min(bytes.find('\n'), bytes.size());
        std::string_view text = bytes.substr(0, end);
        bytes.remove_prefix(std::min(end + 1, bytes.size()));
        while (text.ends_with('\r')) text.remove_suffix(1);
        lines_.push_back(read_line(text, section));
        section = lines_.back().section;
    }
    return true;
}

std::string IniText::bytes() const {
    std::string text;
    for (const Line& line : lines_) text.append(line.text).append(line_end_);
    return text;
}

const std::u16string* IniText::find(std::u16string_view section, std::u16string_view key) const {
    const auto in = sections_.find(section);
    if (in == sections_.end()) return nullptr;
    const auto at = in->second.find(key);
    return at == in->second.end() ? nullptr : &at->second;
}

// The place behind the section's last value or heading (a comment further down may belong to the next
// section); 0 where the section does not occur.
std::size_t IniText::insert_position(std::u16string_view section) const {
    for (std::size_t i = lines_.size(); i > 0; --i) {
        const Line& line = lines_[i - 1];
        if (line.kind != LineKind::other && iequals(line.section, section)) return i;
    }
    return 0;
}

bool IniText::set(std::u16string_view section, std::u16string_view key, std::u16string_view value) {
    const std::string section_name = to_utf8(section);
    const std::string key_name = to_utf8(key);
    if (!can_be_name(section_name) || !can_be_key(key_name)) return false;
    std::string text = key_name + '=' + write_value(value);
    sections_[std::u16string(section)][std::u16string(key)] = value;
    const auto same = std::find_if(lines_.rbegin(), lines_.rend(), [&](const Line& line) {
        return line.kind == LineKind::value && iequals(line.section, section) && iequals(line.key, key);
    });
    if (same != lines_.rend()) {
        same->text = std::move(text);
        return true;
    }
    std::size_t at = insert_position(section);
    if (at == 0 && !section.empty()) {
        if (!lines_.empty() && !trim(lines_.back().text).empty())
            lines_.push_back({"", LineKind::other, {}, {}});
        lines_.push_back({'[' + section_name + ']', LineKind::section, std::u16string(section), {}});
        at = lines_.size();
    }
    Line line{std::move(text), LineKind::value, std::u16string(section), std::u16string(key)};
    lines_.insert(lines_.begin() + static_cast<std::ptrdiff_t>(at), std::move(line));
    return true;
}

bool IniText::erase(std::u16string_view section, std::u16string_view key) {
    const auto in = sections_.find(section);
    if (in == sections_.end()) return false;
    const auto at = in->second.find(key);
    if (at == in->second.end()) return false;
    in->second.erase(at);
    if (in->second.empty()) sections_.erase(in);
    std::erase_if(lines_, [&](const Line& line) {
        return line.kind == LineKind::value && iequals(line.section, section) && iequals(line.key, key);
    });
    return true;
}

}  // namespace vantlow
