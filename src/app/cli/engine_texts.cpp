#include "app/cli/engine_texts.h"

#include "app/terminal/display_text.h"
#include "app/terminal/quantities.h"
#include "base/text.h"
#include "engine/selection.h"

namespace vantlow {
namespace {

std::string quoted_item(const DraftFault& fault) {
    const bool is_number = fault.item.starts_with('#');
    return is_number ? "file " + fault.item.substr(1) : "\"" + fault.item + "\"";
}

std::string for_one_file(const char* option, std::size_t count) {
    return std::string(option) + " is for one file, but there are " + std::to_string(count) +
           "; --select chooses one.";
}

}  // namespace

std::string text_of(const DraftFault& fault) {
    using Fault = DraftFault::Kind;
    const std::string subject = to_utf8(fault.subject) + ": ";
    switch (fault.kind) {
        case Fault::unreadable:
        case Fault::not_removed:
            return subject + fault.file.text();
        case Fault::not_kept:
            return subject + "the torrent could not be kept: " + fault.file.text();
        case Fault::no_torrent:
            return subject + "it is not a torrent.";
        case Fault::no_info_hash:
            return subject + "it has no info hash.";
        case Fault::wrong_sizes:
            return subject + "the sizes in it cannot be right.";
        case Fault::no_memory:
            return subject + "there is not enough memory for it.";
        case Fault::no_document:
            return subject +
                   "it is a file of this machine, and neither a torrent nor a metafile nor a playlist.";
        case Fault::no_file_link:
            return subject + "it is not the eDonkey link of a file.";
        case Fault::no_address:
            return subject + quoted_item(fault) + " has no address that could be fetched.";
        case Fault::not_fetchable:
            return subject + quoted_item(fault) + " cannot be fetched.";
        case Fault::not_chosen:
            return subject + "nothing in it is named \"" + fault.item + "\".";
        case Fault::nothing:
            return subject + "nothing in it can be fetched.";
        case Fault::one_name:
            return for_one_file("--output", fault.count);
        case Fault::one_hash:
            return for_one_file("--hash", fault.count);
    }
    return {};
}

Complaint text_of(const ProxyFault& fault) {
    return fault.ok() ? std::nullopt : Complaint(fault.text_for_people());
}

Complaint text_of(const Done& done, const std::string& subject) {
    using Fault = Done::Fault;
    switch (done.fault) {
        case Fault::none:
            return std::nullopt;
        case Fault::no_job:
            return "There is no job " + subject + ".";
        case Fault::no_category:
            return "There is no category \"" + subject + "\".";
        case Fault::running:
            return subject + " is running; stop it first.";
        case Fault::moving:
            return "The files of " + subject + " are on their way to another place.";
        case Fault::not_waiting:
            return subject + " does not wait for its turn.";
        case Fault::name_refused:
            return "Nothing can be called \"" + subject + "\".";
        case Fault::name_taken:
            return "There is a \"" + to_utf8(done.path) + "\" already.";
        case Fault::first_category:
            return "The first category can be neither moved nor removed.";
        case Fault::below_itself:
            return "A category cannot be moved below itself.";
        case Fault::bad_value:
            return subject + ": this value cannot be used.";
        case Fault::no_hash:
            return subject + ": nothing is known that its file could be checked against.";
        case Fault::anothers_file:
            return to_utf8(done.path) + " is not the file that " + subject +
                   " has downloaded, or was changed since: it is left alone.";
        case Fault::nothing_to_undo:
            return "There is no removal that could be taken back.";
        case Fault::no_question:
            return "There is no question " + subject + ".";
        case Fault::no_torrent:
            return "The job " + subject + " is no torrent's.";
        case Fault::no_description:
            return subject + ": the torrent's description is not known yet.";
        case Fault::file:
            return to_utf8(done.path) + ": " + done.error.text();
        case Fault::setting:
            return subject + " cannot be written: " + done.error.text();
    }
    return std::nullopt;
}

namespace {

std::string text_of_files(const Question& question) {
    constexpr std::size_t most_shown = 200;
    std::string text =
        printable(to_utf8(question.path)) + " names " + std::to_string(question.files.size()) + " files:\n";
    for (std::size_t i = 0; i < question.files.size() && i < most_shown; ++i) {
        const Question::File& file = question.files[i];
        text += std::to_string(i + 1) + "  " + printable(to_utf8(file.name));
        text += file.size >= 0 ? " (" + human_size(file.size) + ")\n" : "\n";
    }
    if (question.files.size() > most_shown)
        text += "... and " + std::to_string(question.files.size() - most_shown) + " more\n";
    return text + "Which of them are wanted? (1,3-5, all or none)";
}

std::optional<QuestionAnswer> read_selection(const Question& question, std::string_view text) {
    QuestionAnswer answer;
    answer.none = iequals(text, "none");
    if (answer.none || text.empty() || iequals(text, "all")) return answer;
    if (!select(text, question.files.size())) return std::nullopt;
    answer.selection = text;
    return answer;
}

}  // namespace

std::string_view kind_name(QuestionKind kind) noexcept {
    switch (kind) {
        case QuestionKind::host_key:
            return "host-key";
        case QuestionKind::certificate:
            return "certificate";
        case QuestionKind::credentials:
            return "credentials";
        case QuestionKind::overwrite:
            return "overwrite";
        case QuestionKind::which_files:
            return "which-files";
    }
    return "";
}

std::string text_of(const Question& question) {
    switch (question.kind) {
        case QuestionKind::host_key:
            return "The server " + question.server + " is not known. Its key is " + question.fingerprint +
                   ".\nTrust it from now on? (yes/no)";
        case QuestionKind::certificate:
            return "The certificate of " + question.server +
                   " is not trusted. Fetch this file all the same, without checking it? (yes/no)";
        case QuestionKind::overwrite:
            return to_utf8(question.path) + " is there already. Replace it, or keep both? (yes/no/rename)";
        case QuestionKind::credentials:
            return question.server +
                   (question.was_refused
                        ? " refuses this user name or this password. Which are the right ones?"
                        : " wants a user name and a password. Which ones?") +
                   " (USER:PASSWORD)";
        case QuestionKind::which_files:
            return text_of_files(question);
    }
    return {};
}

std::optional<QuestionAnswer> read_answer(const Question& question, std::string_view text) {
    QuestionAnswer answer;
    if (question.kind == QuestionKind::which_files) return read_selection(question, trim(text));
    if (question.kind == QuestionKind::credentials) {
        const auto colon = text.find(':');
        if (colon == 0 || colon == std::string_view::npos) return std::nullopt;
        answer.user = to_utf16(text.substr(0, colon));
        answer.password = to_utf16(text.substr(colon + 1));
        return answer;
    }
    answer.rename = question.kind == QuestionKind::overwrite && iequals(trim(text), "rename");
    answer.yes = iequals(trim(text), "yes") || iequals(trim(text), "y");
    const bool is_no = iequals(trim(text), "no") || iequals(trim(text), "n");
    if (!answer.yes && !answer.rename && !is_no) return std::nullopt;
    return answer;
}

}  // namespace vantlow
