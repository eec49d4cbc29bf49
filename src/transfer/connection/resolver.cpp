#include "transfer/connection/resolver.h"

#include "base/string_table.h"
#include "platform/thread.h"

namespace vantlow {
namespace {

constexpr std::size_t most_threads = 4;
constexpr std::size_t most_answers = 1000;
constexpr std::chrono::seconds answer_life{60};

}  // namespace

Resolver::~Resolver() {
    {
        const MutexLock guard(mutex_);
        closing_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) thread.join();
}

bool Resolver::settle(std::chrono::milliseconds at_most) {
    MutexLock guard(mutex_);
    closing_ = true;
    waiting_.clear();
    changed_.notify_all();
    return changed_.wait_for(guard, at_most, [this]() VANTLOW_REQUIRES(mutex_) { return busy_ == 0; });
}

std::shared_ptr<Resolver::Question> Resolver::ask(const Key& key) {
    const auto now = time_.now();
    const auto known = questions_.find(key);
    if (known != questions_.end()) {
        const Question& old = *known->second;
        const bool usable = old.answer.error == 0 && now - old.time < answer_life;
        if (!old.answered || usable) return known->second;
    }
    if (questions_.size() >= most_answers) {
        std::erase_if(questions_, [](const auto& entry) { return entry.second->answered; });
    }
    auto question = std::make_shared<Question>();
    questions_[key] = question;
    waiting_.push_back(key);
    if (busy_ + waiting_.size() > threads_.size() && threads_.size() < most_threads) {
        std::thread thread;
        const Result started = start_thread(thread, [this] { work(); });
        if (started.ok()) threads_.push_back(std::move(thread));
        if (threads_.empty()) {
            waiting_.pop_back();
            question->answered = true;
            question->answer.error = started.system_error;
            question->answer.text = started.message();
        }
    }
    return question;
}

void Resolver::work() {
    MutexLock guard(mutex_);
    for (;;) {
        changed_.wait(guard, [this]() VANTLOW_REQUIRES(mutex_) { return closing_ || !waiting_.empty(); });
        if (closing_) return;
        const Key key = waiting_.front();
        waiting_.pop_front();
        const std::shared_ptr<Question> question = questions_[key];
        ++busy_;
        guard.unlock();
        NameAnswer answer = lookup_(key.first, key.second);
        guard.lock();
        --busy_;
        question->answer = std::move(answer);
        question->time = time_.now();
        question->answered = true;
        changed_.notify_all();
    }
}

Outcome<std::vector<SocketAddress>> Resolver::resolve(const std::string& host, std::uint16_t port,
                                                      const StopSource& stop) {
    if (const auto literal = SocketAddress::from_literal(host, port)) return std::vector{*literal};
    MutexLock guard(mutex_);
    if (closing_) return Code::stopped;
    const std::shared_ptr<Question> question = ask({host, port});
    changed_.notify_all();
    const bool done =
        changed_.wait(guard, stop, [&]() VANTLOW_REQUIRES(mutex_) { return question->answered || closing_; });
    if (stop.requested()) return stop.reason();
    if (!done || !question->answered) return Code::stopped;
    const NameAnswer& answer = question->answer;
    if (!answer.addresses.empty()) return answer.addresses;
    const std::string text =
        std::string(message_text(Message::not_resolved)) + " (" + host + ": " + answer.text + ")";
    return Result(answer.definite ? Code::not_resolved : Code::transient, text, answer.error);
}

}  // namespace vantlow
