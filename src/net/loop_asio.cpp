#include <boost/asio/post.hpp>
#include <boost/system/system_error.hpp>

#include "net/asio_parts.h"

namespace vantlow::net {

AsioLoop::AsioLoop(const LoopOptions& options)
    : keep_unsent_(options.keep_unsent || completions_only),
      way_(options.way),
      context_(1),
      guard_(context_.get_executor()),
      alarm_(context_) {
    timers_.on_earlier([this] {
        if (!in_timers_) set_alarm();
    });
}

AsioLoop::~AsioLoop() {
    stop();
}

Result AsioLoop::run() {
    try {
        context_.run();
        return {};
    } catch (const boost::system::system_error& error) {
        return failure_of(error.code());
    }
}

Outcome<bool> AsioLoop::run_one(std::chrono::milliseconds at_most) {
    try {
        return context_.run_one_for(at_most) > 0;
    } catch (const boost::system::system_error& error) {
        return failure_of(error.code());
    }
}

void AsioLoop::stop() noexcept {
    ended_.store(true, std::memory_order_relaxed);
    context_.stop();
}

bool AsioLoop::post(Callback work) {
    {
        const MutexLock guard(mutex_);
        if (ended_.load(std::memory_order_relaxed) || posted_.size() >= most_posted) return false;
        posted_.push_back(std::move(work));
        if (posted_.size() > 1) return true;  // the first one has asked for all of them
    }
    asio::post(context_, [this] { run_posted(); });
    return true;
}

void AsioLoop::run_posted() {
    std::vector<Callback> works;
    {
        const MutexLock guard(mutex_);
        works.swap(posted_);
    }
    for (const Callback& work : works) {
        if (ended_.load(std::memory_order_relaxed)) return;
        work();
    }
}

void AsioLoop::set_alarm() {
    const auto next = timers_.next();
    if (!next) return;  // an alarm that rings in vain finds nothing to do
    alarm_.expires_at(*next);
    alarm_.async_wait([this](const error_code& error) {
        if (!error) run_timers();
    });
}

void AsioLoop::run_timers() {
    in_timers_ = true;
    timers_.run_due(now(), &ended_);
    in_timers_ = false;
    set_alarm();
}

Outcome<std::unique_ptr<Loop>> make_loop(const LoopOptions& options) {
    if (!start_sockets()) return Result(Code::transient, "The system has no sockets.");
    if (const int number = ask_hook(Operation::make_event); number != 0)
        return failure_of(system_error_of(number));
    try {
        return std::unique_ptr<Loop>(std::make_unique<AsioLoop>(options));
    } catch (const boost::system::system_error& error) {
        return failure_of(error.code());
    }
}

}  // namespace vantlow::net
