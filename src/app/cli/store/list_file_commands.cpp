// `vantlow export` and `vantlow import`.
#include <nlohmann/json.hpp>

#include <memory>

#include "app/cli/report.h"
#include "app/cli/store/store_command.h"
#include "base/text.h"
#include "store/job_list.h"

namespace vantlow {
namespace {

constexpr std::size_t largest_list = 256 * 1024 * 1024;

struct ListFileOptions {
    std::string file;
    std::string category;
    std::string fields;
    std::string text_delimiter = "\"";
    std::string column_delimiter = ",";
};

// Reads a delimiter. A tab, which cannot be typed everywhere, may be written as \t.
std::u16string delimiter(const std::string& text) {
    return text == "\\t" ? u"\t" : to_utf16(text);
}

JobListFormat format_of(const ListFileOptions& options) {
    JobListFormat format;
    format.text_delimiter = delimiter(options.text_delimiter);
    format.column_delimiter = delimiter(options.column_delimiter);
    for (const std::string_view name : split(options.fields, ',')) {
        if (trim(name).empty()) continue;
        format.fields.push_back(job_list_field(to_utf16(trim(name))));
    }
    return format;
}

// Complains of a list that could not be read back.
Complaint check_export(const ListFileOptions& options) {
    const JobListFormat format = format_of(options);
    for (const std::string_view name : split(options.fields, ',')) {
        if (!trim(name).empty() && job_list_field(to_utf16(trim(name))) < 0)
            return "there is no column \"" + std::string(trim(name)) + "\".";
    }
    const std::u16string both = format.text_delimiter + format.column_delimiter;
    if (format.text_delimiter.empty() || format.column_delimiter.empty())
        return "a delimiter needs at least one character.";
    if (both.find_first_of(u"\r\n") != std::u16string::npos)
        return "a delimiter must not contain a line break.";
    const bool alike = format.text_delimiter.starts_with(format.column_delimiter) ||
                       format.column_delimiter.starts_with(format.text_delimiter);
    if (alike) return "neither delimiter may begin with the other.";
    return std::nullopt;
}

std::string jobs_text(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " job\n" : " jobs\n");
}

Exit run_export(StoreCommand& command, const ListFileOptions& options) {
    const CClassNode* category = nullptr;
    if (!options.category.empty()) {
        category = find_category(command, options.category);
        if (category == nullptr) return Exit::failed;
    }
    const auto jobs = command.engine.jobs_below(category);
    const std::string text = write_job_list(jobs, format_of(options));
    const std::u16string path = absolute_path(to_utf16(options.file));
    // The list may hold passwords.
    const FileError error = write_file_atomically(path, std::as_bytes(std::span(text)), Privacy::owner_only);
    if (!error.ok()) return complain(to_utf8(path) + ": " + error.text());
    const std::string line = jobs_text(jobs.size());
    const nlohmann::ordered_json json{{"path", to_utf8(path)}, {"jobs", jobs.size()}};
    print_answer(command.global, json, command.global.quiet ? std::string() : line);
    return Exit::done;
}

std::string note_line(const JobListNote& note, const char* what) {
    return "line " + std::to_string(note.line) + ": " + what + note.text + "\n";
}

Exit run_import(StoreCommand& command, const ListFileOptions& options) {
    const CClassNode* category = command.engine.first_category();
    if (!options.category.empty()) category = find_category(command, options.category);
    if (category == nullptr) return Exit::failed;
    const std::u16string path = absolute_path(to_utf16(options.file));
    std::vector<std::byte> bytes;
    if (const FileError error = read_file(path, largest_list, bytes); !error.ok())
        return complain(to_utf8(path) + ": " + error.text());
    JobList list = read_job_list(bytes);
    nlohmann::ordered_json ids = nlohmann::ordered_json::array();
    const std::size_t count = list.jobs.size();
    for (const Guid& job : command.engine.file_list(std::move(list.jobs), category->identity))
        ids.push_back(guid_text(job));
    nlohmann::ordered_json skipped = nlohmann::ordered_json::array();
    std::string text = jobs_text(count);
    for (const auto& note : list.skipped) {
        skipped.push_back({{"line", note.line}, {"reason", note.text}});
        text += note_line(note, "skipped: ");
    }
    const nlohmann::ordered_json json{{"jobs", count}, {"ids", ids}, {"skipped", skipped}};
    command.promise = answer_text(command.global, json, text);
    std::string notes;
    for (const auto& note : list.notes) notes += note_line(note, "");
    if (!command.global.quiet) write_stream(Stream::error, notes);
    return Exit::done;
}

}  // namespace

void add_list_file_commands(CommandSet& commands) {
    const auto from = std::make_shared<ListFileOptions>();
    CLI::App& out = commands.add_on_data_folder(
        "export", "Write jobs to a job list file",
        on_store([from](StoreCommand& command) { return run_export(command, *from); }),
        [from] { return check_export(*from); });
    out.add_option("FILE", from->file, "The file to write; an existing one is replaced")->required();
    out.add_option("--category", from->category, "Only this category and those below it");
    out.add_option("--fields", from->fields,
                   "More columns: Referer,Folder,Filename,Locally,Username,Password,"
                   "StartMode,Comment,Threads,UTF-8,Agent");
    out.add_option("--text-delimiter", from->text_delimiter, "The text around each value (default: \")");
    out.add_option("--column-delimiter", from->column_delimiter,
                   "The text between two values (default: a comma; \\t is a tab)");
    const auto to = std::make_shared<ListFileOptions>();
    CLI::App& in = commands.add_on_data_folder(
        "import", "Add the jobs of a job list file, or of a list of links",
        on_store([to](StoreCommand& command) { return run_import(command, *to); }));
    in.add_option("FILE", to->file, "The file to read")->required();
    in.add_option("--category", to->category, "The category for the jobs");
}

}  // namespace vantlow
