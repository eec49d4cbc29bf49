#include "app/cli/get/output_pipe.h"

#include <algorithm>
#include <vector>

#include "base/text.h"
#include "platform/console.h"
#include "platform/file.h"
#include "platform/local_text.h"

namespace vantlow {
namespace {

constexpr std::size_t step = 64 * 1024;

}  // namespace

Result OutputPipe::offer(const std::u16string& path, std::int64_t bytes) {
    const MutexLock guard(mutex_);
    if (!failure_.ok()) return failure_;
    if (bytes < written_) {
        return {Code::resource_changed, "The file must be begun anew, but " + std::to_string(written_) +
                                            " bytes of it were written to the standard output."};
    }
    path_ = path;
    offered_ = bytes;
    if (offered_ > written_ && ended_) {
        thread_.join();
        ended_ = false;
        if (Result started = threads_.start(thread_, [this] { run(); }); !started.ok()) {
            ended_ = true;
            return started;
        }
    }
    changed_.notify_all();
    return {};
}

void OutputPipe::run() {
    File file;
    std::vector<std::byte> bytes(step);
    MutexLock guard(mutex_);
    for (;;) {
        changed_.wait(guard, [this]() VANTLOW_REQUIRES(mutex_) { return stop_ || offered_ > written_; });
        if (stop_) break;
        const std::u16string path = path_;
        const std::int64_t at = written_;
        const auto most = static_cast<std::size_t>(std::min<std::int64_t>(offered_ - at, step));
        guard.unlock();
        // The file may have got another name since; an open one stays.
        FileError error = file.is_open() ? FileError{} : file.open(path, OpenMode::read);
        if (error.fault == FileFault::not_found) {
            guard.lock();
            changed_.wait(guard, [&]() VANTLOW_REQUIRES(mutex_) { return stop_ || path_ != path; });
            continue;
        }
        std::size_t got = 0;
        if (error.ok()) error = file.read_at(at, std::span(bytes).first(most), got);
        int lost = 0;
        if (error.ok() && got > 0) {
            write_stream(Stream::output, {reinterpret_cast<const char*>(bytes.data()), got});
            lost = take_output_failure();
        }
        guard.lock();
        written_ += static_cast<std::int64_t>(got);
        if (!error.ok() || got == 0)
            failure_ = {Code::local_file, to_utf8(path) + ": " + (error.ok() ? "cut short" : error.text())};
        if (lost != 0)
            failure_ = {Code::local_file, "The standard output cannot be written: " + system_text(lost),
                        lost};
        if (!failure_.ok()) break;
        if (written_ == offered_) changed_.notify_all();
    }
    ended_ = true;
    changed_.notify_all();
}

Result OutputPipe::finish(const StopSource& stop) {
    MutexLock guard(mutex_);
    const bool done = changed_.wait(
        guard, stop, [this]() VANTLOW_REQUIRES(mutex_) { return !failure_.ok() || written_ == offered_; });
    if (!failure_.ok()) return failure_;
    return done ? Result{} : stop.reason();
}

bool OutputPipe::is_stuck() {
    constexpr std::chrono::milliseconds patience{100};
    MutexLock guard(mutex_);
    stop_ = true;
    changed_.notify_all();
    return !changed_.wait_for(guard, patience, [this]() VANTLOW_REQUIRES(mutex_) { return ended_; });
}

void OutputPipe::stop() {
    {
        const MutexLock guard(mutex_);
        stop_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

}  // namespace vantlow
