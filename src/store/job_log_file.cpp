#include "store/job_log_file.h"

#include <algorithm>

#include "base/text.h"

namespace vantlow {
namespace {

constexpr std::size_t largest_log = 512 * 1024;
constexpr std::size_t most_gathered = 1024 * 1024;

std::u16string log_path(const std::u16string& data_folder, const Guid& job) {
    return join_path(join_path(data_folder, u"logs"), to_utf16(guid_text(job)) + u".log");
}

// The lines from the first that begins in the second half on.
std::string_view newer_half(std::string_view text) noexcept {
    const auto at = text.find('\n', text.size() / 2);
    return at == std::string_view::npos ? std::string_view{} : text.substr(at + 1);
}

void shorten_log(const std::u16string& path) {
    std::vector<std::byte> bytes;
    if (!read_file(path, 2 * (largest_log + most_gathered), bytes).ok() || bytes.size() <= largest_log)
        return;
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    static_cast<void>(
        write_file_atomically(path, std::as_bytes(std::span(newer_half(text))), Privacy::owner_only));
}

}  // namespace

JobLogFile::JobLogFile(const std::u16string& data_folder, const Guid& job)
    : path_(log_path(data_folder, job)) {}

void JobLogFile::add(const CLogNode& line) {
    const MutexLock guard(mutex_);
    gathered_ += write_log_line(line);
    if (gathered_.size() > most_gathered) gathered_ = newer_half(gathered_);
}

void JobLogFile::write() {
    std::string text;
    {
        const MutexLock guard(mutex_);
        text.swap(gathered_);
    }
    if (text.empty() || !make_folders(folder_of(path_)).ok()) return;
    std::int64_t size = 0;
    {
        File file;
        if (!file.open(path_, OpenMode::write, Privacy::owner_only).ok()) return;
        size = std::max<std::int64_t>(file.size(), 0);
        if (!file.write_at(size, std::as_bytes(std::span(text))).ok()) return;
    }
    if (size + static_cast<std::int64_t>(text.size()) > static_cast<std::int64_t>(largest_log))
        shorten_log(path_);
}

std::string write_log_line(const CLogNode& line) {
    return std::to_string(line.time) + " " + std::to_string(static_cast<int>(line.direction)) + " " +
           line.text + "\n";
}

std::vector<CLogNode> read_log_lines(std::string_view text) {
    std::vector<CLogNode> lines;
    for (std::string_view entry : split(text, '\n')) {
        const auto first = entry.find(' ');
        const auto time = parse_decimal(entry.substr(0, first));
        if (!time || first == std::string_view::npos || entry.size() < first + 3) continue;
        const int direction = entry[first + 1] - '0';
        if (direction < 0 || direction > 3) continue;
        CLogNode line;
        line.time = *time;
        line.direction = static_cast<Direction>(direction);
        line.text = log_text(entry.substr(first + 3));
        lines.push_back(std::move(line));
    }
    return lines;
}

std::vector<CLogNode> read_job_log(const std::u16string& data_folder, const Guid& job) {
    std::vector<std::byte> bytes;
    if (!read_file(log_path(data_folder, job), 2 * (largest_log + most_gathered), bytes).ok()) return {};
    return read_log_lines({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

void remove_job_log(const std::u16string& data_folder, const Guid& job) {
    static_cast<void>(remove_file(log_path(data_folder, job)));  // usually there is none
}

}  // namespace vantlow
