#include "transfer/http/content_name.h"

#include <algorithm>
#include <array>
#include <optional>

#include "base/codes.h"
#include "base/text.h"
#include "platform/local_text.h"
#include "transfer/http/field_value.h"

namespace vantlow {
namespace {

// ISO-8859-1 as everybody reads it: with the letters of Windows-1252 in place of control characters.
std::u16string latin1(std::string_view bytes) {
    static constexpr std::u16string_view from_80 =
        u"\u20AC\u0081\u201A\u0192\u201E\u2026\u2020\u2021\u02C6\u2030\u0160\u2039\u0152\u008D\u017D\u008F"
        u"\u0090\u2018\u2019\u201C\u201D\u2022\u2013\u2014\u02DC\u2122\u0161\u203A\u0153\u009D\u017E\u0178";
    std::u16string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        const bool is_letter = byte >= 0x80 && byte < 0xA0;
        text.push_back(is_letter ? from_80[byte - 0x80U] : static_cast<char16_t>(byte));
    }
    return text;
}

// A character that a code page made of a byte that it does not have: its stand-in, or a byte kept aside as a
// lone surrogate.
bool is_stand_in(char16_t c) noexcept {
    return c == u'\uFFFD' || (c >= 0xDC80 && c <= 0xDCFF);
}

std::optional<std::u16string> in_charset(std::string_view charset, const std::string& bytes) {
    if (iequals(charset, "iso-8859-1")) return latin1(bytes);
    if (iequals(charset, "utf-8") && is_utf8(bytes)) return to_utf16(bytes);
    return std::nullopt;
}

// The bytes of an encoded word: 'b' is base64, 'q' writes "=XX" for a byte and "_" for a blank.
std::optional<std::string> encoded_bytes(char coding, std::string_view text) {
    if (coding == 'b') {
        const auto bytes = from_base64(text);
        if (!bytes) return std::nullopt;
        return std::string(reinterpret_cast<const char*>(bytes->data()), bytes->size());
    }
    if (coding != 'q') return std::nullopt;
    std::string escaped;
    for (const char c : text) {
        if (c == '%') {
            escaped += "%25";
        } else {
            escaped += c == '=' ? '%' : c == '_' ? ' ' : c;
        }
    }
    return percent_decode(escaped);
}

// Reads "=?charset?coding?text?=" and further ones behind blanks: the way of mail (RFC 2047), which some
// servers take and browsers read.
std::optional<std::u16string> encoded_words(std::string_view text) {
    std::u16string all;
    for (text = trim(text); !text.empty(); text = trim(text)) {
        constexpr std::string_view begin = "=?";
        constexpr std::string_view end = "?=";
        const auto mark = text.find('?', begin.size());
        if (!text.starts_with(begin) || mark == std::string_view::npos || text.substr(mark).size() < 3)
            return std::nullopt;
        const auto stop = text.find(end, mark + 3);
        if (text[mark + 2] != '?' || stop == std::string_view::npos) return std::nullopt;
        const auto bytes = encoded_bytes(ascii_lower(text[mark + 1]), text.substr(mark + 3, stop - mark - 3));
        const auto word =
            bytes ? in_charset(text.substr(begin.size(), mark - begin.size()), *bytes) : std::nullopt;
        if (!word) return std::nullopt;
        all += *word;
        text.remove_prefix(stop + end.size());
    }
    return all.empty() ? std::nullopt : std::optional(all);
}

// Reads charset'language'percent-encoded text (RFC 8187).
std::optional<std::u16string> extended_value(std::string_view value) {
    const auto first = value.find('\'');
    if (first == std::string_view::npos) return std::nullopt;
    const auto second = value.find('\'', first + 1);
    if (second == std::string_view::npos) return std::nullopt;
    const std::string_view charset = value.substr(0, first);
    const std::string bytes = percent_decode(value.substr(second + 1));
    return in_charset(charset, bytes);
}

}  // namespace

std::u16string decode_name(std::string_view bytes) {
    if (is_utf8(bytes)) return to_utf16(bytes);
    std::u16string text = from_ansi(bytes);
    // No code page has letters that are written with surrogates.
    return std::any_of(text.begin(), text.end(), is_stand_in) ? latin1(bytes) : text;
}

std::u16string disposition_name(std::string_view field) {
    std::string_view rest = field;
    std::u16string plain;
    // The disposition type ("attachment") reads as a parameter without a value.
    while (const auto parameter = next_parameter(rest)) {
        if (parameter->name == "filename*") {
            if (auto name = extended_value(parameter->value)) return *name;
        } else if (parameter->name == "filename" && plain.empty()) {
            // Browsers decode escapes that some servers send here against RFC 6266; a name that is meant
            // to hold "%20" is the rarer case.
            const auto words = encoded_words(parameter->value);
            plain = words ? *words : decode_name(percent_decode(parameter->value));
        }
    }
    return plain;
}

std::int64_t disposition_size(std::string_view field) {
    std::string_view rest = field;
    while (const auto parameter = next_parameter(rest)) {
        if (parameter->name == "size") return parse_decimal(parameter->value).value_or(-1);
    }
    return -1;
}

bool is_gzip_file(std::string_view media_type, std::u16string_view name) {
    constexpr std::array types{"application/gzip",  "application/x-gzip",       "application/x-gunzip",
                               "application/x-tgz", "application/x-compressed", "application/gzipped"};
    constexpr std::array<std::u16string_view, 4> endings{u".gz", u".tgz", u".taz", u".svgz"};
    const auto dot = name.rfind(u'.');
    const std::u16string_view ending = dot == std::u16string_view::npos ? u"" : name.substr(dot);
    return std::find(types.begin(), types.end(), media_type) != types.end() ||
           std::any_of(endings.begin(), endings.end(), [&](auto one) { return iequals(ending, one); });
}

std::u16string path_name(std::string_view path) {
    path = path.substr(0, path.find_first_of("?#"));
    const auto slash = path.rfind('/');
    if (slash != std::string_view::npos) path.remove_prefix(slash + 1);
    return decode_name(percent_decode(path));
}

}  // namespace vantlow
