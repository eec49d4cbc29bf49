#include "engine/file_mover.h"

#include <algorithm>
#include <span>
#include <utility>

#include "base/text.h"
#include "platform/file.h"

namespace vantlow {
namespace {

constexpr std::u16string_view plan_name = u"moves.txt";
constexpr std::size_t largest_plan = 16U << 20U;

// A line of the plan: the job, the old path, the new one, with blanks between them.
std::string encoded(const std::u16string& path) {
    std::string text;
    for (const char unit : to_utf8(path)) text += unit == '%' ? std::string("%25") : std::string(1, unit);
    return percent_encode_unsafe(text);
}

std::vector<FileMove> read_plan(const std::u16string& path) {
    std::vector<std::byte> bytes;
    std::vector<FileMove> moves;
    if (path.empty() || !read_file(path, largest_plan, bytes).ok()) return moves;
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    for (const std::string_view line : split(text, '\n')) {
        const auto parts = split(line, ' ');
        if (parts.size() != 3) continue;
        const auto digits = guid_digits(parts[0]);
        const auto job = digits ? guid_from_digits(*digits) : std::nullopt;
        if (job)
            moves.push_back({*job, to_utf16(percent_decode(parts[1])), to_utf16(percent_decode(parts[2]))});
    }
    return moves;
}

}  // namespace

FileMover::FileMover(const std::u16string& data_folder, StopSource& stop)
    : plan_(data_folder.empty() ? std::u16string() : join_path(data_folder, plan_name)),
      stop_(stop),
      left_over_(read_plan(plan_)) {
    cut_.emplace(stop_);
}

void FileMover::begin(ThreadPool& threads, std::function<void()> wake) {
    threads_ = &threads;
    wake_ = std::move(wake);
}

void FileMover::end() {
    cut_->request();
    thread_.join();
    cut_.emplace(stop_);
    threads_ = nullptr;
}

FileError FileMover::write_plan() const {
    if (plan_.empty()) return {};
    std::vector<FileMove> moves = left_over_;
    {
        const MutexLock guard(mutex_);
        for (const auto& task : tasks_) moves.push_back(task->move);
    }
    std::string text;
    for (const FileMove& move : moves)
        text += guid_text(move.job) + " " + encoded(move.from) + " " + encoded(move.to) + "\n";
    if (!text.empty())
        return write_file_atomically(plan_, std::as_bytes(std::span(text)), Privacy::owner_only);
    const FileError error = remove_file(plan_);
    return error.fault == FileFault::not_found ? FileError{} : error;
}

FileError FileMover::start(FileMove move, Find find) {
    const Guid job = move.job;
    auto task = std::make_shared<Task>();
    task->move = std::move(move);
    task->find = std::move(find);
    std::erase_if(left_over_, [&job](const FileMove& one) { return one.job == job; });
    {
        const MutexLock guard(mutex_);
        tasks_.push_back(std::move(task));
    }
    if (FileError error = write_plan(); !error.ok()) {
        forget(job);
        return error;
    }
    wake_thread();
    return {};
}

void FileMover::forget(const Guid& job) {
    std::erase_if(left_over_, [&job](const FileMove& one) { return one.job == job; });
    {
        const MutexLock guard(mutex_);
        std::erase_if(tasks_, [&job](const auto& task) { return task->move.job == job; });
    }
    static_cast<void>(write_plan());
}

// A thread that the system has none for is asked for again when the next thing happens.
void FileMover::wake_thread() {
    if (threads_ == nullptr || cut_->requested()) return;
    {
        const MutexLock guard(mutex_);
        if (std::exchange(works_, true)) return;
    }
    thread_.join();
    if (threads_->start(thread_, [this] { work(); }).ok()) return;
    const MutexLock guard(mutex_);
    works_ = false;
}

void FileMover::work() {
    for (;;) {
        std::shared_ptr<Task> next;
        {
            const MutexLock guard(mutex_);
            const auto at =
                std::find_if(tasks_.begin(), tasks_.end(), [](const auto& task) { return !task->is_over; });
            works_ = at != tasks_.end() && !cut_->requested();
            if (!works_) return;
            next = *at;
        }
        carry_out(*next, *cut_);
        {
            const MutexLock guard(mutex_);
            next->is_over = true;
        }
        wake_();
    }
}

void FileMover::carry_out(Task& task, const StopSource& cut) {
    CJobLog log;
    auto relocation = task.find(log);
    if (relocation) {
        task.size = bytes_of(*relocation);
        task.end = relocate(*relocation, cut, task.call_off, task.moved, log);
    } else {
        task.end = {RelocationEnd::State::unchanged,
                    {FileFault::other, relocation.failure().system_error},
                    task.move.from};
        log.line(Direction::error, relocation.failure().message());
    }
    task.log = log.lines();
}

FileMover::Ended FileMover::move_now(FileMove move, const Find& find) {
    auto task = std::make_shared<Task>();
    task->move = std::move(move);
    task->find = find;
    task->is_over = task->is_told = true;  // for the thread it is none
    {
        const MutexLock guard(mutex_);
        tasks_.push_back(task);
    }
    // Without the plan a kill would leave files that nobody finds.
    if (const FileError written = write_plan(); written.ok()) {
        carry_out(*task, *cut_);
    } else {
        task->end = {RelocationEnd::State::unchanged, written, plan_};
    }
    return {task->move, task->end, std::move(task->log)};
}

std::shared_ptr<FileMover::Task> FileMover::find(const Guid& job) const {
    const MutexLock guard(mutex_);
    const auto at = std::find_if(tasks_.begin(), tasks_.end(),
                                 [&job](const auto& task) { return task->move.job == job; });
    return at == tasks_.end() ? nullptr : *at;
}

void FileMover::call_off(const Guid& job) {
    if (const auto task = find(job)) task->call_off.request();
}

std::vector<FileMover::Ended> FileMover::take_ended() {
    std::vector<Ended> ended;
    {
        const MutexLock guard(mutex_);
        for (const auto& task : tasks_) {
            if (!task->is_over || std::exchange(task->is_told, true)) continue;
            ended.push_back({task->move, task->end, std::move(task->log)});
        }
    }
    // A thread that could not be had is tried again.
    const auto has_work = [this] {
        const MutexLock guard(mutex_);
        return !works_ &&
               std::any_of(tasks_.begin(), tasks_.end(), [](const auto& task) { return !task->is_over; });
    };
    if (has_work()) wake_thread();
    return ended;
}

bool FileMover::has(const Guid& job) const {
    const auto task = find(job);
    const MutexLock guard(mutex_);
    return task && !task->is_told;
}

std::vector<Guid> FileMover::jobs() const {
    std::vector<Guid> jobs;
    const MutexLock guard(mutex_);
    for (const auto& task : tasks_) {
        if (!task->is_told) jobs.push_back(task->move.job);
    }
    return jobs;
}

std::optional<FileMoveProgress> FileMover::progress(const Guid& job) const {
    const auto task = find(job);
    if (!task) return std::nullopt;
    return FileMoveProgress{task->move.to, task->moved, task->size};
}

}  // namespace vantlow
