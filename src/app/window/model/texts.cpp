#include "app/window/model/texts.h"

#include <algorithm>
#include <cmath>
#include <ctime>

#include "app/terminal/display_text.h"
#include "app/terminal/quantities.h"
#include "app/window/model/translate.h"
#include "base/text.h"

namespace vantlow {
namespace {

// The terminal's texts have "--" for what is not known; a cell of the window is empty then.
std::string known(std::string text) {
    return text == "--" ? std::string() : text;
}

// Puts the language's decimal sign in place of the point.
std::string with_decimal_sign(std::string text) {
    const auto point = text.find('.');
    if (point == std::string::npos) return text;
    text.replace(point, 1, tr("."));
    return text;
}

std::tm local(std::int64_t seconds) {
    const auto time = static_cast<std::time_t>(seconds);
    const std::tm* const found = std::localtime(&time);  // NOLINT(concurrency-mt-unsafe): one thread
    return found != nullptr ? *found : std::tm{};
}

std::string two(int number) {
    return print("%02d", number);
}

struct FoldedRange {
    char16_t first;
    char16_t last;
    char16_t distance;  ///< of the small letters; 1: large and small ones take turns
};
// Latin, Greek and Cyrillic. Ranges that take turns begin with a large letter.
constexpr FoldedRange folded_ranges[] = {
    {0x41, 0x5A, 32},  {0xC0, 0xD6, 32},   {0xD8, 0xDE, 32},    {0x100, 0x12F, 1},   {0x132, 0x137, 1},
    {0x14A, 0x177, 1}, {0x391, 0x3A1, 32}, {0x3A3, 0x3A9, 32},  {0x400, 0x40F, 80},  {0x410, 0x42F, 32},
    {0x460, 0x481, 1}, {0x48A, 0x4BF, 1},  {0x1E00, 0x1E95, 1}, {0x1EA0, 0x1EFF, 1}, {0xFF21, 0xFF3A, 32},
};

}  // namespace

std::string shown(std::u16string_view text) {
    return printable(to_utf8(text));
}

std::string shown_sentence(std::string_view text) {
    static_assert(first_strong_isolate.size() == pop_isolate.size() &&
                  right_to_left_mark.size() == pop_isolate.size());
    std::string safe;
    for (;;) {
        const std::size_t at = std::min(
            {text.find(first_strong_isolate), text.find(pop_isolate), text.find(right_to_left_mark)});
        safe += printable(text.substr(0, at));
        if (at == std::string_view::npos) return safe;
        safe += text.substr(at, pop_isolate.size());
        text.remove_prefix(at + pop_isolate.size());
    }
}

std::string size_text(std::int64_t bytes) {
    return with_decimal_sign(known(human_size(bytes)));
}

std::string speed_text(double bytes_per_second) {
    return with_decimal_sign(known(human_speed(bytes_per_second)));
}

std::string time_left_text(std::int64_t seconds) {
    return known(human_time(seconds));
}

std::string moment_text(std::int64_t seconds) {
    if (seconds <= 0) return {};
    const std::tm at = local(seconds);
    return fill(tr("%1-%2-%3 %4:%5"), {std::to_string(at.tm_year + 1900), two(at.tm_mon + 1), two(at.tm_mday),
                                       two(at.tm_hour), two(at.tm_min)});
}

std::string clock_text(std::int64_t milliseconds) {
    const std::tm at = local(milliseconds / 1000);
    return two(at.tm_hour) + ":" + two(at.tm_min) + ":" + two(at.tm_sec);
}

std::string percent_text(std::int64_t done, std::int64_t size) {
    if (size <= 0) return {};
    // 100 % is said of a whole file only.
    const double share = static_cast<double>(done) / static_cast<double>(size);
    return std::to_string(std::clamp(static_cast<int>(share * 100), 0, 100)) + " %";
}

std::vector<std::pair<std::int32_t, std::string>> weekdays() {
    return {{2, tr("Mon")},  {4, tr("Tue")},  {8, tr("Wed")}, {16, tr("Thu")},
            {32, tr("Fri")}, {64, tr("Sat")}, {1, tr("Sun")}};
}

std::string as_heading(std::string text) {
    const auto at = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    if (!text.empty() && at(0) >= 'a' && at(0) <= 'z') {
        text[0] = static_cast<char>(at(0) - ('a' - 'A'));
    } else if (text.size() > 1 && at(0) == 0xC3 && at(1) >= 0xA0 && at(1) <= 0xBE && at(1) != 0xB7) {
        text[1] = static_cast<char>(at(1) - 0x20);  // U+00E0 to U+00FE
    }
    return text;
}

std::string state_text(JobState state) {
    switch (state) {
        case JobState::waiting:
            return tr("waiting");
        case JobState::running:
            return tr("running");
        case JobState::stopped:
            return tr("stopped");
        case JobState::finished:
            return tr("finished");
        case JobState::failed:
            return tr("failed");
    }
    return {};
}

std::string rest_sentence(JobState state) {
    switch (state) {
        case JobState::waiting:
            return tr("The download waits for its turn.");
        case JobState::running:
            return tr("Nothing is connected at the moment.");
        case JobState::stopped:
            return tr("The download is stopped.");
        case JobState::finished:
            return tr("The download has finished.");
        case JobState::failed:
            return tr("The download has failed.");
    }
    return {};
}

std::string name_of(const CClassNode& category) {
    if (category.name == u"Downloading") return tr("Downloading");
    if (category.name == u"Completed") return tr("Completed");
    return shown(category.name);
}

std::string kind_text(JobKind kind) {
    switch (kind) {
        case JobKind::transfer:
            return tr("File");
        case JobKind::live:
        case JobKind::timed:
        case JobKind::pieces:
        case JobKind::packets:
            return tr("Stream");
        case JobKind::torrent:
            return tr("Torrent");
        case JobKind::edonkey:
            return tr("eDonkey");
        case JobKind::document:
            return tr("List of files");
    }
    return {};
}

std::string sentence_of(const Done& done) {
    using Fault = Done::Fault;
    switch (done.fault) {
        case Fault::none:
            return {};
        case Fault::no_job:
            return tr("This job is not there any more.");
        case Fault::no_category:
            return tr("This category is not there any more.");
        case Fault::running:
            return tr("The job is running; stop it first.");
        case Fault::moving:
            return tr("The files of the job are on their way to another place.");
        case Fault::not_waiting:
            return tr("The job does not wait for its turn.");
        case Fault::name_refused:
            return tr("This name cannot be given.");
        case Fault::name_taken:
            return fill(tr("There is a \"%1\" already."), {shown(done.path)});
        case Fault::first_category:
            return tr("The first category can be neither moved nor removed.");
        case Fault::below_itself:
            return tr("A category cannot be moved below itself.");
        case Fault::bad_value:
            return tr("This value cannot be used.");
        case Fault::no_hash:
            return tr("Nothing is known that the file could be checked against.");
        case Fault::anothers_file:
            return fill(
                tr("%1 is not the file that the job has downloaded, or was changed since: it is left alone."),
                {shown(done.path)});
        case Fault::nothing_to_undo:
            return tr("There is no removal that could be taken back.");
        case Fault::no_question:
            return tr("Somebody else has answered this question already.");
        case Fault::no_torrent:
        case Fault::no_description:
            return tr("The torrent's description is not known yet.");
        case Fault::file:
            return shown(done.path) + ": " + printable(done.error.text());
        case Fault::setting:
            return fill(tr("The setting cannot be written: %1"), {printable(done.error.text())});
    }
    return {};
}

std::string sentence_of(const DraftFault& fault) {
    using Fault = DraftFault::Kind;
    const std::string subject = shown(fault.subject);
    const std::string item = printable(fault.item);
    switch (fault.kind) {
        case Fault::unreadable:
        case Fault::not_removed:
            return subject + ": " + printable(fault.file.text());
        case Fault::no_torrent:
            return fill(tr("%1 is not a torrent."), {subject});
        case Fault::not_kept:
            return fill(tr("%1 could not be kept: %2"), {subject, printable(fault.file.text())});
        case Fault::no_info_hash:
            return fill(tr("%1 has no info hash."), {subject});
        case Fault::wrong_sizes:
            return fill(tr("The sizes in %1 cannot be right."), {subject});
        case Fault::no_memory:
            return fill(tr("There is not enough memory for %1."), {subject});
        case Fault::no_file_link:
            return fill(tr("%1 is not the link of a file."), {subject});
        case Fault::no_document:
            return fill(tr("%1 cannot be fetched."), {subject});
        case Fault::no_address:
            return fill(tr("%1 in %2 has no address that could be fetched."), {item, subject});
        case Fault::not_fetchable:
            return fill(tr("%1 in %2 cannot be fetched."), {item, subject});
        case Fault::not_chosen:
            return fill(tr("Nothing in %2 is named %1."), {item, subject});
        case Fault::nothing:
            return fill(tr("Nothing in %1 can be fetched."), {subject});
        case Fault::one_name:
            return trn("A name is for one file, but there is %1.",
                       "A name is for one file, but there are %1.", static_cast<std::int64_t>(fault.count));
        case Fault::one_hash:
            return trn("A hash is for one file, but there is %1.",
                       "A hash is for one file, but there are %1.", static_cast<std::int64_t>(fault.count));
    }
    return {};
}

std::string sentence_of(const Question& question) {
    constexpr int most_letters = 150;
    const std::string server = printable(question.server);
    switch (question.kind) {
        case QuestionKind::host_key:
            return fill(tr("The SSH server %1 is not known yet. Its key is\n%2\nIs it trusted from now on?"),
                        {server, printable(question.fingerprint)});
        case QuestionKind::certificate:
            return fill(tr("The certificate of %1 is not trusted. Should this job go on all the same?"),
                        {server});
        case QuestionKind::credentials:
            return fill(question.was_refused
                            ? tr("%1 refuses this user name or this password. Enter the right ones.")
                            : tr("%1 wants a user name and a password."),
                        {server});
        case QuestionKind::overwrite:
            // The end of a path says most; a line of hundreds of letters would be wider than the screen.
            return fill(tr("There is a file %1 already."), {shorten(shown(question.path), most_letters)});
        case QuestionKind::which_files:
            return trn("Which file of this list is meant? It names %1.", "Which of these %1 files are meant?",
                       static_cast<std::int64_t>(question.files.size()));
    }
    return {};
}

char16_t folded(char16_t c) noexcept {
    if (c < 0x80) return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c;
    for (const FoldedRange& range : folded_ranges) {
        if (c < range.first) return c;
        if (c > range.last) continue;
        const bool turns = range.distance == 1;
        if (turns && ((c - range.first) & 1) != 0) return c;
        return static_cast<char16_t>(c + range.distance);
    }
    return c;
}

std::u16string folded(std::u16string_view text) {
    std::u16string made(text);
    for (char16_t& c : made) c = folded(c);
    return made;
}

bool holds_folded(std::u16string_view text, std::u16string_view needle) noexcept {
    if (needle.empty()) return true;
    // Few places have the first character: that is looked for without a call where it is one of ASCII.
    const char16_t first = needle.front();
    const bool is_letter = first >= u'a' && first <= u'z';
    const char16_t other = is_letter ? static_cast<char16_t>(first - 32) : first;
    for (std::size_t i = 0; i + needle.size() <= text.size(); ++i) {
        const bool begins = first < 0x80 ? text[i] == first || text[i] == other : folded(text[i]) == first;
        if (!begins) continue;
        std::size_t same = 1;
        while (same < needle.size() && folded(text[i + same]) == needle[same]) ++same;
        if (same == needle.size()) return true;
    }
    return false;
}

}  // namespace vantlow
