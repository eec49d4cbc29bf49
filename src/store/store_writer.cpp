#include "store/store_writer.h"

#include <algorithm>
#include <utility>

#include "base/digest.h"
#include "platform/thread.h"

namespace vantlow {
namespace {

constexpr std::size_t read_step = 1024 * 1024;

ImageDigest finished(Digest& digest) {
    const std::vector<std::byte> whole = digest.finish();
    ImageDigest result;
    std::copy_n(whole.begin(), result.size(), result.begin());
    return result;
}

ImageDigest digest_of_image(const DatabaseImage& image) {
    Digest digest(DigestKind::sha1);
    for (const auto& piece : image) digest.update(piece);
    return finished(digest);
}

FileError digest_of_file(const std::u16string& path, ImageDigest& result) {
    File file;
    if (FileError error = file.open(path, OpenMode::read); !error.ok()) return error;
    Digest digest(DigestKind::sha1);
    std::vector<std::byte> piece(read_step);
    for (std::int64_t at = 0;;) {
        std::size_t got = 0;
        if (FileError error = file.read_at(at, piece, got); !error.ok()) return error;
        digest.update(std::span(piece).first(got));
        at += static_cast<std::int64_t>(got);
        if (got < piece.size()) break;
    }
    result = finished(digest);
    return {};
}

std::vector<std::byte> bytes_of(const JournalBatch& batch) {
    return {batch.payload().begin(), batch.payload().end()};
}

}  // namespace

StoreWriter::~StoreWriter() {
    finish();
}

void StoreWriter::start(std::function<void()> wake) {
    wake_ = std::move(wake);
    {
        const MutexLock guard(mutex_);
        stopping_ = false;
    }
    // Without a thread the caller writes, which is slower and just as safe.
    static_cast<void>(start_thread(thread_, [this] { run(); }));
}

void StoreWriter::finish() {
    {
        const MutexLock guard(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) thread_.join();
    wake_ = {};
}

void StoreWriter::stand_on_database() {
    const MutexLock guard(mutex_);
    can_append_ = true;
}

bool StoreWriter::can_append() const {
    const MutexLock guard(mutex_);
    return can_append_;
}

std::uint64_t StoreWriter::journal_size() const {
    const MutexLock guard(mutex_);
    return journal_size_;
}

void StoreWriter::forget_folder() {
    wait();
    journal_.close();
    frames_.reset();
    base_.reset();
    since_.clear();
    const MutexLock guard(mutex_);
    can_append_ = false;
    journal_size_ = 0;
}

StoreWriter::Ticket StoreWriter::append(std::span<const std::byte> payload) {
    Task task;
    task.payload.assign(payload.begin(), payload.end());
    return ask(std::move(task));
}

void StoreWriter::begin_image() {
    ask({});
}

StoreWriter::Ticket StoreWriter::save(Save what) {
    Task task;
    task.save = std::make_unique<Save>(std::move(what));
    return ask(std::move(task));
}

StoreWriter::Ticket StoreWriter::ask(Task task) {
    Ticket ticket = 0;
    {
        const MutexLock guard(mutex_);
        ticket = task.ticket = ++last_ticket_;
        tasks_.push_back(std::move(task));
    }
    changed_.notify_all();
    if (!thread_.joinable()) do_tasks();
    return ticket;
}

std::vector<StoreWriter::Answer> StoreWriter::take_answers() {
    const MutexLock guard(mutex_);
    return std::exchange(answers_, {});
}

void StoreWriter::wait() const {
    MutexLock guard(mutex_);
    changed_.wait(guard, [this]() VANTLOW_REQUIRES(mutex_) { return tasks_.empty() && !busy_; });
}

void StoreWriter::run() {
    for (;;) {
        {
            MutexLock guard(mutex_);
            changed_.wait(guard, [this]() VANTLOW_REQUIRES(mutex_) { return stopping_ || !tasks_.empty(); });
            if (tasks_.empty()) return;
        }
        do_tasks();
    }
}

void StoreWriter::do_tasks() {
    for (;;) {
        std::unique_ptr<Save> save;
        Ticket ticket = 0;
        {
            const MutexLock guard(mutex_);
            busy_ = !tasks_.empty();
            if (!busy_) break;
            save = std::move(tasks_.front().save);
            ticket = tasks_.front().ticket;
            if (save) tasks_.pop_front();
        }
        if (save) {
            answer({do_save(ticket, *save)});
        } else {
            do_appends();
        }
    }
    changed_.notify_all();
}

void StoreWriter::answer(std::vector<Answer> answers) {
    {
        const MutexLock guard(mutex_);
        journal_size_ = end_;
        answers_.insert(answers_.end(), answers.begin(), answers.end());
    }
    if (wake_ && !answers.empty()) wake_();
}

std::vector<StoreWriter::Task> StoreWriter::take_appends() {
    std::vector<Task> taken;
    const MutexLock guard(mutex_);
    while (!tasks_.empty() && !tasks_.front().save) {
        taken.push_back(std::move(tasks_.front()));
        tasks_.pop_front();
    }
    return taken;
}

// Does all appends that were requested until now, with one flush.
void StoreWriter::do_appends() {
    const std::vector<Task> tasks = take_appends();
    if (tasks.empty()) return;
    const FileError error = append_all(tasks);
    std::vector<Answer> answers;
    for (const Task& task : tasks) {
        if (!task.payload.empty()) answers.push_back({task.ticket, error, {}, {}});
    }
    answer(std::move(answers));
}

FileError StoreWriter::look_at_folder() const {
    return in_place_ && !in_place_() ? FileError{FileFault::folder_lost, 0} : FileError{};
}

FileError StoreWriter::append_all(const std::vector<Task>& tasks) {
    std::vector<std::vector<std::byte>> made;
    made.reserve(tasks.size());
    std::vector<std::span<const std::byte>> payloads;
    std::vector<std::span<const std::byte>> since;  // an image is made, which will not hold these
    bool any = false;
    for (const Task& task : tasks) {
        if (task.payload.empty()) {
            making_image_ = true;
            since_.clear();
            since.clear();
            JournalBatch mark;
            mark.save_begun(++number_);
            payloads.emplace_back(made.emplace_back(bytes_of(mark)));
        } else {
            any = true;
            payloads.emplace_back(task.payload);
            if (making_image_) since.emplace_back(task.payload);
        }
    }
    // Without a journal there is nothing that a mark must be told apart from.
    if (!any && !journal_.is_open()) return {};
    if (!can_append()) return broken_.ok() ? FileError{FileFault::other, 0} : broken_;
    FileError error;
    if (journal_.is_open()) {
        error = write_frames(payloads);
        if (error.ok()) error = look_at_folder();
    } else {
        std::vector<std::vector<std::byte>> whole;
        JournalBatch mark;
        mark.save_begun(number_);
        if (making_image_) whole.push_back(bytes_of(mark));
        for (const auto payload : payloads) whole.emplace_back(payload.begin(), payload.end());
        error = look_at_folder();
        if (error.ok()) error = begin_journal(std::move(whole));
        // It may have got its name all the same.
        if (!error.ok() && error.fault != FileFault::folder_lost)
            static_cast<void>(remove_file(journal_path()));
    }
    if (!error.ok()) {
        break_journal(error);
        return error;
    }
    for (const auto payload : since) since_.emplace_back(payload.begin(), payload.end());
    return {};
}

// Begins a new file with these payloads, which builds on the database on the disk.
FileError StoreWriter::begin_journal(std::vector<std::vector<std::byte>> payloads) {
    if (!base_) {
        ImageDigest digest;
        if (FileError error = digest_of_file(path_, digest); !error.ok()) return error;
        base_ = digest;
    }
    JournalBatch base;
    base.image_made(number_ > 0 && making_image_ ? number_ - 1 : number_, *base_);
    payloads.insert(payloads.begin(), bytes_of(base));
    JournalFrames frames(new_guid());
    std::vector<std::byte> bytes = frames.head();
    for (const auto& payload : payloads) {
        const auto frame = frames.frame(bytes.size(), payload);
        bytes.insert(bytes.end(), frame.begin(), frame.end());
    }
    const std::u16string path = journal_path();
    if (FileError error = write_file_atomically(path, bytes, Privacy::owner_only); !error.ok()) return error;
    File file;
    if (FileError error = file.open(path, OpenMode::write_existing); !error.ok()) return error;
    journal_ = std::move(file);
    frames_.emplace(frames);
    end_ = bytes.size();
    return {};
}

FileError StoreWriter::write_frames(const std::vector<std::span<const std::byte>>& payloads) {
    std::vector<std::byte> bytes;
    for (const auto payload : payloads) {
        const auto frame = frames_->frame(end_ + bytes.size(), payload);
        bytes.insert(bytes.end(), frame.begin(), frame.end());
    }
    FileError error = journal_.write_at(static_cast<std::int64_t>(end_), bytes);
    if (error.ok()) error = journal_.flush();
    if (error.ok()) end_ += bytes.size();
    return error;
}

// Gives the journal up: payloads without an answer should not turn up later, so nothing more is appended
// before the next save.
void StoreWriter::break_journal(const FileError& error) {
    broken_ = error;
    if (journal_.is_open() && journal_.resize(static_cast<std::int64_t>(end_)).ok())
        static_cast<void>(journal_.flush());
    journal_.close();
    const MutexLock guard(mutex_);
    can_append_ = false;
}

StoreWriter::Answer StoreWriter::do_save(Ticket ticket, const Save& save) {
    Answer done{ticket, {}, {}, {}};
    const auto between = [this] {
        do_appends();
        return look_at_folder();
    };
    const ImageDigest digest = digest_of_image(save.image);
    done.error = look_at_folder();
    if (done.error.ok()) done.error = make_folders(folder_of(path_));
    if (done.error.ok()) done.error = announce(digest);
    if (done.error.ok()) done.error = write_file_atomically(path_, save.image, Privacy::owner_only, between);
    if (done.error.ok()) {
        done.copy = write_file_atomically(path_ + std::u16string(copy_suffix), save.image,
                                          Privacy::owner_only, between);
        if (!save.backup.empty())
            done.backup = write_file_atomically(save.backup, save.image, Privacy::owner_only, between);
        base_ = digest;
        trim_journal();
    }
    making_image_ = false;
    since_.clear();
    return done;
}

// Writes the image's digest into the journal before the image takes the database's name, so that the journal
// fits either file.
FileError StoreWriter::announce(const ImageDigest& digest) {
    FileError error = broken_;
    if (journal_.is_open()) {
        JournalBatch batch;
        batch.image_made(number_, digest);
        error = write_frames({batch.payload()});
        if (!error.ok()) break_journal(error);
    }
    // Without later appends the image holds all changes.
    return since_.empty() ? FileError{} : error;
}

// Cuts the changes that the database holds out of the journal.
void StoreWriter::trim_journal() {
    making_image_ = false;
    broken_ = {};
    journal_.close();  // Windows replaces no file that is open
    if (since_.empty()) {
        static_cast<void>(remove_file(journal_path()));
        end_ = 0;
    } else if (const FileError error = begin_journal(std::move(since_)); !error.ok()) {
        // It is unknown which of the two files has the name now.
        break_journal(error);
        return;
    }
    const MutexLock guard(mutex_);
    can_append_ = true;
}

}  // namespace vantlow
