#include <algorithm>

#include "base/text.h"
#include "platform/file.h"
#include "platform/local_text.h"
#include "store/address.h"
#include "store/job_list.h"

namespace vantlow {
namespace {

// The text before the last separator of either kind; a folder right below the root keeps nothing in front of
// it.
std::u16string folder_text(std::u16string_view path) {
    const auto at = path.find_last_of(u"\\/");
    return std::u16string(at == std::u16string_view::npos ? std::u16string_view{} : path.substr(0, at));
}

std::u16string decimal(std::int32_t number) {
    return to_utf16(std::to_string(number));
}

std::u16string value_of(const CJobNode& job, int field) {
    switch (field) {
        case 0:
            return job.referer;
        case 1:
            return folder_text(job.path);
        case 2:
            return job.file_name.empty() ? name_of(job.path) : job.file_name;
        case 3:
            return job.locally != 0 ? u"1" : u"0";
        case 4:
            return job.user;
        case 5:
            return job.password;
        case 6:
            return decimal(job.start_mode);
        case 7:
            return job.comment;
        case 8:
            return decimal(job.connections);
        case 9:
            return job.utf8 != 0 ? u"1" : u"0";
        case 10:
            return job.agent;
        default:
            return {};
    }
}

// Puts a value on one line.
std::u16string on_one_line(std::u16string_view value, std::u16string_view line_break) {
    std::u16string line;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char16_t c = value[i];
        if (c == u'\r' && i + 1 < value.size() && value[i + 1] == u'\n') continue;
        if (c == u'\r' || c == u'\n') {
            line += line_break;
        } else {
            line.push_back(c);
        }
    }
    return line;
}

class LineWriter {
  public:
    explicit LineWriter(const JobListFormat& format) : format_(format) {}

    void delimited(std::u16string_view value) {
        text_ += format_.text_delimiter;
        const std::u16string& mark = format_.text_delimiter;
        for (std::size_t at = 0; !mark.empty() && at < value.size();) {
            const auto found = std::min(value.find(mark, at), value.size());
            text_.append(value.substr(at, found - at));
            if (found < value.size()) text_ += mark + mark;
            at = found + mark.size();
        }
        if (mark.empty()) text_ += value;
        text_ += format_.text_delimiter;
    }
    void column() { text_ += format_.column_delimiter; }
    void raw(std::u16string_view text) { text_ += text; }
    void end_line() { text_ += u"\r\n"; }
    [[nodiscard]] const std::u16string& text() const noexcept { return text_; }

  private:
    const JobListFormat& format_;
    std::u16string text_;
};

}  // namespace

int job_list_field(std::u16string_view name) noexcept {
    for (std::size_t i = 0; i < attribute_names_wide.size(); ++i) {
        if (iequals(attribute_names_wide[i], name)) return static_cast<int>(i);
    }
    return -1;
}

std::string write_job_list(std::span<const CJobNode* const> jobs, const JobListFormat& format) {
    constexpr int referer_field = 0;
    constexpr int password_field = 5;
    constexpr int comment_field = 7;
    std::vector<int> fields;
    for (const int field : format.fields) {
        if (field >= 0 && field < static_cast<int>(attribute_names_wide.size())) fields.push_back(field);
    }
    LineWriter out(format);
    out.raw(u"TextDelimiter=" + format.text_delimiter);
    out.end_line();
    out.raw(u"ColumnDelimiter=" + format.column_delimiter);
    out.end_line();
    out.raw(u"ExtraFields=");
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (i > 0) out.raw(u",");
        out.raw(attribute_names_wide[static_cast<std::size_t>(fields[i])]);
    }
    out.end_line();
    // Without a column for passwords the file must hold none, in whatever address it stands.
    const bool passwords = std::find(fields.begin(), fields.end(), password_field) != fields.end();
    const auto shown = [&](const std::u16string& address) {
        return passwords ? address : without_password(address);
    };
    for (const CJobNode* job : jobs) {
        out.delimited(on_one_line(shown(job->address) + job->fragment, u""));
        for (const int field : fields) {
            out.column();
            const std::u16string value = field == referer_field ? shown(job->referer) : value_of(*job, field);
            out.delimited(on_one_line(value, field == comment_field ? u"\\n" : u" "));
        }
        out.end_line();
    }
    return to_ansi(out.text());
}

}  // namespace vantlow
