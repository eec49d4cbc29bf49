#include "base/safe_name.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "base/text.h"

namespace vantlow {
namespace {

// Leaves room for "(123)" and the suffixes of a partial file and its state within the 255 of all file
// systems.
constexpr std::size_t longest_name = 200;
constexpr std::size_t longest_extension = 32;

bool is_refused(char16_t c) noexcept {
    constexpr std::u16string_view refused = u"<>:\"/\\|?*";
    // Marks that turn the direction of writing hide an extension ("gpj.exe" shown as "exe.jpg").
    const bool turns_direction =
        (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069) || c == 0x200E || c == 0x200F;
    return c < 0x20 || (c >= 0x7F && c <= 0x9F) || turns_direction ||
           refused.find(c) != std::u16string_view::npos;
}

bool is_device(std::u16string_view name) noexcept {
    std::u16string_view stem = name.substr(0, name.find(u'.'));
    while (!stem.empty() && stem.back() == u' ') stem.remove_suffix(1);
    constexpr std::array<std::u16string_view, 6> devices{u"con", u"prn",    u"aux",
                                                         u"nul", u"conin$", u"conout$"};
    if (std::any_of(devices.begin(), devices.end(), [&](auto device) { return iequals(stem, device); }))
        return true;
    const bool numbered = stem.size() == 4 && (istarts_with(stem, u"com") || istarts_with(stem, u"lpt"));
    constexpr std::u16string_view digits = u"0123456789\u00B9\u00B2\u00B3";
    return numbered && digits.find(stem[3]) != std::u16string_view::npos;
}

// An unfinished file, its state, what the state is written to first, or a file whose hash was wrong; in any
// letter case, as Windows reads names.
bool is_ours(std::u16string_view name) noexcept {
    constexpr std::u16string_view while_written = u".new";
    const auto ends_with = [&](std::u16string_view suffix) {
        return name.size() >= suffix.size() && iequals(name.substr(name.size() - suffix.size()), suffix);
    };
    if (ends_with(while_written)) name.remove_suffix(while_written.size());
    return ends_with(partial_suffix) || ends_with(state_suffix) || ends_with(wrong_hash_suffix);
}

void trim_ends(std::u16string& name) {
    while (!name.empty() && (name.back() == u'.' || name.back() == u' ')) name.pop_back();
    name.erase(0, std::min(name.find_first_not_of(u' '), name.size()));
}

bool fits(std::u16string_view name) {
    return name.size() <= longest_name && to_utf8(name).size() <= longest_name;
}

void shorten(std::u16string& name) {
    const auto dot = name.rfind(u'.');
    std::u16string extension;
    if (dot != std::u16string::npos && dot > 0 && name.size() - dot <= longest_extension)
        extension = name.substr(dot);
    std::u16string stem = name.substr(0, name.size() - extension.size());
    stem.resize(std::min(stem.size(), longest_name));
    while (!stem.empty() && !fits(stem + extension)) {
        const bool pair = stem.back() >= 0xDC00 && stem.back() <= 0xDFFF && stem.size() > 1 &&
                          stem[stem.size() - 2] >= 0xD800 && stem[stem.size() - 2] <= 0xDBFF;
        stem.resize(stem.size() - (pair ? 2 : 1));
    }
    name = stem + extension;
}

// Takes "(7)" off the end of a base name; 1 when there is no such number.
std::int64_t take_number(std::u16string_view& base) {
    if (base.empty() || base.back() != u')') return 1;
    const auto open = base.rfind(u'(');
    if (open == std::u16string_view::npos) return 1;
    const auto number = parse_decimal(to_utf8(base.substr(open + 1, base.size() - open - 2)));
    if (!number || *number > INT32_MAX) return 1;
    base = base.substr(0, open);
    return *number;
}

}  // namespace

std::u16string safe_file_name(std::u16string_view name, std::u16string_view otherwise) {
    const auto separator = name.find_last_of(u"/\\");
    if (separator != std::u16string_view::npos) name.remove_prefix(separator + 1);
    std::u16string safe(name);
    std::replace_if(safe.begin(), safe.end(), is_refused, u'_');
    trim_ends(safe);
    const auto fit = [&safe] {
        if (fits(safe)) return;
        shorten(safe);
        trim_ends(safe);
    };
    fit();
    if (safe.empty()) safe = std::u16string(otherwise);
    // Devices are looked for only now: a name may have become one's by being cut. One that begins with a dot
    // is hidden on Linux, and programs read such files for their settings.
    if (is_device(safe) || safe.starts_with(u'.')) {
        safe.insert(safe.begin(), u'_');
        fit();
    }
    // A state beside an unfinished file is believed, and a person believes that a hash was wrong: nobody else
    // names a file so.
    if (is_ours(safe)) safe += u'_';
    return safe;
}

std::u16string free_name(std::u16string_view name,
                         const std::function<bool(const std::u16string&)>& is_taken) {
    const auto dot = name.rfind(u'.');
    const bool has_extension = dot != std::u16string_view::npos && dot > 0;
    const std::u16string extension(has_extension ? name.substr(dot) : std::u16string_view{});
    std::u16string_view base = has_extension ? name.substr(0, dot) : name;
    for (std::int64_t number = take_number(base);; ++number) {
        std::u16string candidate =
            std::u16string(base) + u"(" + to_utf16(std::to_string(number)) + u")" + extension;
        if (!is_taken(candidate)) return candidate;
    }
}

}  // namespace vantlow
