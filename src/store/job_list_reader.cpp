#include <algorithm>
#include <cstring>
#include <optional>

#include "base/safe_name.h"
#include "base/text.h"
#include "platform/file.h"
#include "platform/local_text.h"
#include "store/address.h"
#include "store/job_list.h"

namespace vantlow {
namespace {

std::u16string_view trimmed(std::u16string_view text) noexcept {
    const auto is_blank = [](char16_t c) { return c == u' ' || c == u'\t'; };
    while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}

// Takes the next line, without its end.
std::u16string_view next_line(std::u16string_view& rest) noexcept {
    const auto end = std::min(rest.find(u'\n'), rest.size());
    std::u16string_view line = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (!line.empty() && line.back() == u'\r') line.remove_suffix(1);
    return line;
}

struct Header {
    bool there = false;
    std::u16string text_delimiter = u"\"";
    std::u16string column_delimiter = u",";
    std::vector<int> fields;  ///< -1: a column that is left out
    std::vector<std::u16string> unknown;
};

std::optional<std::u16string_view> value_after(std::u16string_view line, std::u16string_view key) noexcept {
    if (!istarts_with(line, key)) return std::nullopt;
    return line.substr(key.size());
}

// True when the line belongs to the header.
bool read_header_line(std::u16string_view line, Header& header) {
    if (const auto text = value_after(line, u"TextDelimiter=")) {
        header.text_delimiter = *text;
    } else if (const auto column = value_after(line, u"ColumnDelimiter=")) {
        header.column_delimiter = *column;
    } else if (auto names = value_after(line, u"ExtraFields=")) {
        while (!names->empty()) {
            const auto end = std::min(names->find(u','), names->size());
            const std::u16string name(trimmed(names->substr(0, end)));
            const int field = job_list_field(name);
            if (field < 0) header.unknown.push_back(name);
            header.fields.push_back(field);
            names->remove_prefix(std::min(end + 1, names->size()));
        }
    } else {
        return false;
    }
    header.there = true;
    return true;
}

// The values of a line; none when a text delimiter that was opened is never closed.
std::optional<std::vector<std::u16string>> split_line(std::u16string_view line, const Header& header) {
    const std::u16string& mark = header.text_delimiter;
    const std::u16string& comma = header.column_delimiter;
    const bool has_mark = !mark.empty() && mark != comma;
    std::vector<std::u16string> values;
    for (std::size_t at = 0;;) {
        std::u16string value;
        if (has_mark && line.substr(at).starts_with(mark)) {
            for (at += mark.size();;) {
                const auto found = line.find(mark, at);
                if (found == std::u16string_view::npos) return std::nullopt;
                value.append(line.substr(at, found - at));
                at = found + mark.size();
                if (!line.substr(at).starts_with(mark)) break;
                value += mark;
                at += mark.size();
            }
        }
        const auto end = comma.empty() ? line.size() : std::min(line.find(comma, at), line.size());
        value.append(line.substr(at, end - at));  // text without delimiters, or behind them
        values.push_back(std::move(value));
        if (end >= line.size()) return values;
        at = end + comma.size();
    }
}

std::u16string with_line_breaks(std::u16string_view value) {
    std::u16string text;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const bool is_break = value[i] == u'\\' && i + 1 < value.size() && value[i + 1] == u'n';
        if (is_break) {
            text += u"\r\n";
            ++i;
        } else {
            text.push_back(value[i]);
        }
    }
    return text;
}

std::optional<std::int32_t> number_in(std::u16string_view value, std::int32_t smallest,
                                      std::int32_t largest) {
    const std::string narrow = to_utf8(trimmed(value));
    const bool negative = narrow.starts_with('-');
    const auto number = parse_decimal(std::string_view(narrow).substr(negative ? 1 : 0));
    if (!number) return std::nullopt;
    const std::int64_t with_sign = negative ? -*number : *number;
    if (with_sign < smallest || with_sign > largest) return std::nullopt;
    return static_cast<std::int32_t>(with_sign);
}

bool is_absolute(const std::u16string& folder) {
    if (path_separator() == u'/') return folder.starts_with(u'/');
    const bool drive = folder.size() >= 2 && folder[1] == u':';
    return drive || folder.starts_with(u"\\\\");
}

// False when the value does not fit its column; the job then keeps its default. An empty value means nothing.
bool set_value(CJobNode& job, int field, const std::u16string& value) {
    const auto set_number = [&](std::int32_t& to, std::int32_t smallest, std::int32_t largest) {
        const auto number = number_in(value, smallest, largest);
        if (number) to = *number;
        return number.has_value() || value.empty();
    };
    switch (field) {
        case 0:
            job.referer = value;
            return true;
        case 1:
            if (is_absolute(value)) job.path = join_path(value, u"");
            return is_absolute(value) || value.empty();
        case 2:
            if (!name_of(value).empty()) job.file_name = safe_file_name(name_of(value));
            return true;
        case 3:
            return set_number(job.locally, 0, 1);
        case 4:
            job.user = value;
            return true;
        case 5:
            job.password = value;
            return true;
        case 6:
            return set_number(job.start_mode, 0, 2);
        case 7:
            job.comment = with_line_breaks(value);
            return true;
        case 8:
            return set_number(job.connections, 1, most_connections);
        case 9:
            return set_number(job.utf8, 0, 1);
        case 10:
            job.agent = value;
            return true;
        default:
            return true;
    }
}

// The reason why the text is no address that a job could fetch; empty when it is one. Blanks stand in those
// that were written by hand, and in every exported list that holds such a job.
std::string fault_of_address(std::u16string_view address) {
    if (address.empty()) return "no address";
    const bool has_scheme =
        address.find(u"://") != std::u16string_view::npos || istarts_with(address, u"magnet:?");
    const auto is_wrong = [has_scheme](char16_t c) {
        return c < u' ' || c == 0x7F || (c == u' ' && !has_scheme);
    };
    if (std::any_of(address.begin(), address.end(), is_wrong)) return "not an address: it contains blanks";
    if (!has_scheme && address.find_first_of(u"./") == std::u16string_view::npos) return "no address";
    if (link_kind(address) == LinkKind::unknown) return "an unknown kind of address";
    return {};
}

void set_address(CJobNode& job, std::u16string_view text) {
    job.address = text;
    const bool has_fragment = !istarts_with(text, u"ed2k://") && !istarts_with(text, u"magnet:?");
    const auto hash = has_fragment ? text.find(u'#') : std::u16string_view::npos;
    if (hash == std::u16string_view::npos) return;
    job.address = text.substr(0, hash);
    job.fragment = text.substr(hash);
}

class Reader {
  public:
    explicit Reader(JobList& list) : list_(list) {}

    void line(std::u16string_view text, std::size_t number) {
        if (trimmed(text).empty()) return;
        if (list_.jobs.empty() && list_.skipped.empty() && read_header_line(text, header_)) {
            for (const auto& name : header_.unknown) {
                list_.notes.push_back({number, "the column \"" + to_utf8(name) + "\" is not known"});
            }
            header_.unknown.clear();
            return;
        }
        if (!header_.there && trimmed(text).front() == u'#') return skip(number, "a comment");
        const auto values = values_of(text);
        if (!values) return skip(number, "a text delimiter is not closed");
        job(*values, number);
    }

  private:
    // Without a header a line is a link, which may hold commas.
    std::optional<std::vector<std::u16string>> values_of(std::u16string_view text) const {
        const std::u16string_view whole = trimmed(text);
        if (header_.there) return split_line(text, header_);
        if (whole.starts_with(u'"')) return split_line(whole, header_);
        return std::vector<std::u16string>{std::u16string(whole)};
    }
    void job(const std::vector<std::u16string>& values, std::size_t number) {
        const std::u16string_view address = trimmed(values.front());
        if (std::string fault = fault_of_address(address); !fault.empty())
            return skip(number, std::move(fault));
        auto job = std::make_unique<CJobNode>();
        set_address(*job, address);
        for (std::size_t i = 1; i < values.size() && i <= header_.fields.size(); ++i) {
            const int field = header_.fields[i - 1];
            if (set_value(*job, field, values[i])) continue;
            const auto name = attribute_names[static_cast<std::size_t>(field)];
            list_.notes.push_back(
                {number, std::string(name) + " cannot be \"" + to_utf8(values[i]) + "\" here: left out"});
        }
        job->max_threads = job->connections;
        for (std::int32_t i = 0; i < job->connections; ++i) job->append_segment(0, 0);
        list_.jobs.push_back(std::move(job));
    }
    void skip(std::size_t number, std::string why) { list_.skipped.push_back({number, std::move(why)}); }

    JobList& list_;
    Header header_;
};

bool is_exported(std::string_view text) {
    constexpr std::string_view begin = "TextDelimiter=";
    return iequals(text.substr(0, begin.size()), begin);
}

}  // namespace

std::u16string list_text(std::span<const std::byte> bytes) {
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (text.starts_with("\xFF\xFE")) {
        std::u16string wide((text.size() - 2) / 2, u'\0');
        for (std::size_t i = 0; i < wide.size(); ++i) {
            const auto low = static_cast<unsigned char>(text[2 + 2 * i]);
            const auto high = static_cast<unsigned char>(text[3 + 2 * i]);
            wide[i] = static_cast<char16_t>(low | (high << 8U));
        }
        return wide;
    }
    if (text.starts_with("\xEF\xBB\xBF")) return to_utf16(text.substr(3));
    // An exported list is in the system's code page, also where its few letters could be UTF-8 by chance.
    return is_exported(text) || !is_utf8(text) ? from_ansi(text) : to_utf16(text);
}

JobList read_job_list(std::span<const std::byte> bytes) {
    JobList list;
    Reader reader(list);
    const std::u16string text = list_text(bytes);
    std::u16string_view rest = text;
    for (std::size_t number = 1; !rest.empty(); ++number) {
        const std::u16string_view line = next_line(rest);
        reader.line(line, number);
    }
    return list;
}

}  // namespace vantlow
