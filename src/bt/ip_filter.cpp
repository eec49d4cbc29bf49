#include "bt/ip_filter.h"

#include <algorithm>

#include "base/text.h"

namespace vantlow {
namespace {

using Four = std::uint32_t;
using Six = std::array<std::uint8_t, 16>;

constexpr std::string_view blanks = " \t";
constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
constexpr std::size_t longest_address = 45;  // of IPv6 with an IPv4 one at its end
constexpr std::int64_t least_harmless_level = 128;
// A text may have colons, and so has an address behind it.
constexpr int most_colons = 64;

/// An address of either family: of IPv4 its number.
struct Address {
    bool is_six = false;
    Four four = 0;
    Six six{};
};

struct Range {
    Address first;
    Address last;
};

bool is_digit(char c) noexcept {
    return c >= '0' && c <= '9';
}

bool is_of_address(char c) noexcept {
    return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F') || c == '.' || c == ':';
}

void skip_blanks(std::string_view& text) noexcept {
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
}

// Digits in front of the text, three at most. Lists fill up with zeros, which the system's functions refuse.
std::optional<unsigned> take_small_number(std::string_view& text) noexcept {
    unsigned number = 0;
    std::size_t digits = 0;
    for (; digits < text.size() && digits < 3 && is_digit(text[digits]); ++digits)
        number = number * 10 + static_cast<unsigned>(text[digits] - '0');
    if (digits == 0) return std::nullopt;
    text.remove_prefix(digits);
    return number;
}

std::optional<Four> read_four(std::string_view text) noexcept {
    Four address = 0;
    for (int part = 0; part < 4; ++part) {
        if (part > 0) {
            if (!text.starts_with('.')) return std::nullopt;
            text.remove_prefix(1);
        }
        const auto number = take_small_number(text);
        if (!number || *number > 255) return std::nullopt;
        address = address << 8U | *number;
    }
    return text.empty() ? std::optional(address) : std::nullopt;
}

std::optional<Address> take_address(std::string_view& text) {
    skip_blanks(text);
    const auto end = std::find_if_not(text.begin(), text.end(), is_of_address);
    const std::string_view token = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    if (token.empty() || token.size() > longest_address) return std::nullopt;
    Address address;
    if (token.find(':') == std::string_view::npos) {
        const auto four = read_four(token);
        if (!four) return std::nullopt;
        address.four = *four;
    } else {
        const auto six = SocketAddress::from_literal(token, 0);
        if (!six || !six->is_ipv6()) return std::nullopt;
        address.is_six = true;
        address.six = six->ipv6();
    }
    text.remove_prefix(token.size());
    return address;
}

// All addresses with the same first bits.
std::optional<Range> with_prefix(const Address& address, unsigned bits) noexcept {
    Range range{address, address};
    if (!address.is_six) {
        if (bits > 32) return std::nullopt;
        const Four rest = bits == 0 ? ~Four{0} : bits == 32 ? Four{0} : ~Four{0} >> bits;
        range.first.four &= ~rest;
        range.last.four |= rest;
        return range;
    }
    if (bits > 128) return std::nullopt;
    for (unsigned byte = 0; byte < 16; ++byte) {
        const unsigned kept = std::min(std::max(bits, byte * 8) - byte * 8, 8U);
        const auto rest = static_cast<std::uint8_t>(0xFFU >> kept);
        range.first.six[byte] &= static_cast<std::uint8_t>(~rest);
        range.last.six[byte] |= rest;
    }
    return range;
}

/// Takes a range in any form from the front of the text. `is_single`: it was one address.
std::optional<Range> take_range(std::string_view& text, bool& is_single) {
    const auto first = take_address(text);
    if (!first) return std::nullopt;
    is_single = false;
    std::string_view behind = text;
    skip_blanks(behind);
    if (text.starts_with('/')) {
        text.remove_prefix(1);
        const auto bits = take_small_number(text);
        return bits ? with_prefix(*first, *bits) : std::nullopt;
    }
    if (!behind.starts_with('-')) {
        is_single = true;
        return Range{*first, *first};
    }
    text = behind.substr(1);
    const auto last = take_address(text);
    if (!last || last->is_six != first->is_six) return std::nullopt;
    if (first->is_six ? last->six < first->six : last->four < first->four) return std::nullopt;
    return Range{*first, *last};
}

enum class Meaning { nothing, range, bad };

// The end of a line behind its range.
Meaning meaning_of_rest(std::string_view rest) {
    rest = trim(rest);
    if (rest.empty() || rest.front() == '#' || rest.front() == ';') return Meaning::range;
    if (rest.front() != ',') return Meaning::bad;
    const std::string_view level = trim(rest.substr(1, rest.find(',', 1) - 1));
    return parse_decimal(level).value_or(0) >= least_harmless_level ? Meaning::nothing : Meaning::range;
}

bool is_text_with_range(std::string_view line, std::size_t colon, std::optional<Range>& range) {
    if (colon == std::string_view::npos) return false;
    std::string_view text = line.substr(colon + 1);
    bool is_single = false;
    range = take_range(text, is_single);
    return range && !is_single && trim(text).empty();
}

Meaning read_line(std::string_view line, std::optional<Range>& range) {
    line = trim(line);
    if (line.empty() || line.front() == '#' || line.front() == ';' || line.starts_with("//"))
        return Meaning::nothing;
    std::string_view rest = line;
    bool is_single = false;
    range = take_range(rest, is_single);
    if (range) {
        if (const Meaning meaning = meaning_of_rest(rest); meaning != Meaning::bad) return meaning;
    }
    if (is_text_with_range(line, line.rfind(':'), range)) return Meaning::range;
    std::size_t colon = line.find(':');
    for (int colons = 0; colon != std::string_view::npos && colons < most_colons; ++colons) {
        if (is_text_with_range(line, colon, range)) return Meaning::range;
        colon = line.find(':', colon + 1);
    }
    return Meaning::bad;
}

Four next(Four address) noexcept {
    return address + 1;
}

Six next(Six address) noexcept {
    for (auto byte = address.rbegin(); byte != address.rend() && ++*byte == 0; ++byte) continue;
    return address;
}

// Joins ranges that overlap or touch each other.
template <class Ranges>
void merge(Ranges& ranges) {
    if (ranges.empty()) return;
    std::sort(ranges.begin(), ranges.end());
    auto joined = ranges.begin();
    for (auto range = joined + 1; range != ranges.end(); ++range) {
        const bool touches = range->first <= joined->second || range->first == next(joined->second);
        if (touches) {
            joined->second = std::max(joined->second, range->second);
        } else {
            *++joined = *range;
        }
    }
    ranges.erase(joined + 1, ranges.end());
    ranges.shrink_to_fit();
}

template <class Ranges, class Address>
bool holds(const Ranges& ranges, const Address& address) noexcept {
    const auto behind =
        std::upper_bound(ranges.begin(), ranges.end(), address,
                         [](const Address& one, const auto& range) { return one < range.first; });
    return behind != ranges.begin() && address <= std::prev(behind)->second;
}

Four number_of(const std::uint8_t* bytes) noexcept {
    return Four{bytes[0]} << 24U | Four{bytes[1]} << 16U | Four{bytes[2]} << 8U | Four{bytes[3]};
}

}  // namespace

bool IpFilter::blocks(const SocketAddress& address) const noexcept {
    if (address.size() == 0) return false;
    if (!address.is_ipv6()) return holds(four_, number_of(address.ipv4().data()));
    const Six six = address.ipv6();
    return holds(six_, six);
}

void IpFilterReader::feed(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t end = std::min(bytes.find('\n'), bytes.size());
        const std::string_view part = bytes.substr(0, end);
        const bool is_whole = end < bytes.size();
        bytes.remove_prefix(is_whole ? end + 1 : end);
        if (is_whole && begun_.empty() && !is_long_) {
            take(part);
            continue;
        }
        is_long_ = is_long_ || begun_.size() + part.size() > longest_line;
        if (!is_long_) begun_ += part;
        if (is_whole) {
            take(begun_);
            begun_.clear();
            is_long_ = false;
        }
    }
}

void IpFilterReader::end_list() {
    if (!begun_.empty() || is_long_) feed("\n");
    number_ = 0;
}

void IpFilterReader::take(std::string_view line) {
    if (++number_ == 1 && line.starts_with(byte_order_mark)) line.remove_prefix(byte_order_mark.size());
    if (line.ends_with('\r')) line.remove_suffix(1);
    std::optional<Range> range;
    const bool is_bad = is_long_ || line.size() > longest_line;
    IpFilter::Reading& reading = filter_.reading_;
    switch (is_bad ? Meaning::bad : read_line(line, range)) {
        case Meaning::nothing:
            return;
        case Meaning::bad:
            if (++reading.bad_lines == 1) reading.first_bad = number_;
            return;
        case Meaning::range:
            break;
    }
    const std::size_t count = range->first.is_six ? filter_.six_.size() : filter_.four_.size();
    reading.is_full = reading.is_full || count == most_ranges;
    if (count == most_ranges) return;
    if (range->first.is_six) {
        filter_.six_.emplace_back(range->first.six, range->last.six);
    } else {
        filter_.four_.emplace_back(range->first.four, range->last.four);
    }
}

IpFilter IpFilterReader::finish() {
    end_list();
    merge(filter_.four_);
    merge(filter_.six_);
    return std::move(filter_);
}

}  // namespace vantlow
