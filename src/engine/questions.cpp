#include "engine/questions.h"

#include <utility>

namespace vantlow {

std::uint64_t QuestionBoard::find_same(const Question& question) const {
    for (const auto& [id, entry] : entries_) {
        const Question& other = entry.question;
        const bool same = entry.waiting > 0 && other.kind == question.kind &&
                          other.server == question.server && other.fingerprint == question.fingerprint;
        if (same) return id;
    }
    return 0;
}

std::uint64_t QuestionBoard::put_up(Question question) {
    question.id = ++last_id_;
    question.until = Clock::now() + time_;
    Entry& entry = entries_[question.id];
    entry.answer = question.standard;
    entry.question = std::move(question);
    return last_id_;
}

QuestionAnswer QuestionBoard::ask(Question question, const StopSource& stop) {
    if (!can_ask() || stop.requested()) return std::move(question.standard);
    MutexLock guard(mutex_);
    std::uint64_t id = find_same(question);
    const bool is_new = id == 0;
    if (is_new) id = put_up(std::move(question));
    ++entries_.at(id).waiting;
    if (is_new) {
        guard.unlock();
        tell();
        guard.lock();
    }
    Entry& entry = entries_.at(id);  // stays while somebody waits
    answered_.wait_until(guard, stop, entry.question.until, [&entry] { return entry.answered; });
    QuestionAnswer answer = entry.answered ? entry.answer : entry.question.standard;
    const bool is_last = --entry.waiting == 0;
    if (is_last) entries_.erase(id);
    guard.unlock();
    if (is_last) tell();
    return answer;
}

void QuestionBoard::leave(Question question) {
    if (!can_ask()) return;
    {
        const MutexLock guard(mutex_);
        std::erase_if(entries_, [&](const auto& entry) {
            const Question& other = entry.second.question;
            return entry.second.waiting == 0 && other.kind == question.kind && other.job == question.job &&
                   !question.job.is_zero();
        });
        put_up(std::move(question));
    }
    tell();
}

std::vector<QuestionBoard::Answered> QuestionBoard::take_answered(Clock::time_point now) {
    std::vector<Answered> taken;
    bool any_lapsed = false;
    {
        const MutexLock guard(mutex_);
        taken.swap(done_);
        for (auto at = entries_.begin(); at != entries_.end();) {
            Entry& entry = at->second;
            if (entry.waiting > 0 || now < entry.question.until) {
                ++at;
                continue;
            }
            taken.push_back({std::move(entry.question), std::move(entry.answer), true});
            at = entries_.erase(at);
            any_lapsed = true;
        }
    }
    if (any_lapsed) tell();
    return taken;
}

void QuestionBoard::withdraw(const Guid& job) {
    std::size_t gone = 0;
    {
        const MutexLock guard(mutex_);
        gone = std::erase_if(entries_, [&](const auto& entry) {
            return entry.second.waiting == 0 && entry.second.question.job == job;
        });
        std::erase_if(done_, [&](const Answered& one) { return one.question.job == job; });
    }
    if (gone > 0) tell();
}

bool QuestionBoard::answer(std::uint64_t id, QuestionAnswer answer) {
    {
        const MutexLock guard(mutex_);
        const auto at = entries_.find(id);
        if (at == entries_.end() || at->second.answered) return false;
        Entry& entry = at->second;
        if (entry.waiting > 0) {
            entry.answer = std::move(answer);
            entry.answered = true;
        } else {
            done_.push_back({std::move(entry.question), std::move(answer), false});
            entries_.erase(at);
        }
    }
    answered_.notify_all();
    tell();
    return true;
}

std::vector<Question> QuestionBoard::open() const {
    std::vector<Question> questions;
    const MutexLock guard(mutex_);
    for (const auto& [id, entry] : entries_) {
        if (!entry.answered) questions.push_back(entry.question);
    }
    return questions;
}

bool QuestionBoard::has(QuestionKind kind) const {
    const MutexLock guard(mutex_);
    for (const auto& [id, entry] : entries_) {
        if (!entry.answered && entry.question.kind == kind) return true;
    }
    return false;
}

}  // namespace vantlow
