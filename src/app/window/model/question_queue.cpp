#include "app/window/model/question_queue.h"

#include <algorithm>

namespace vantlow {

void QuestionQueue::asked(const std::vector<Question>& open) {
    open_ = open;
    const auto is_open = [this](std::uint64_t id) {
        return std::ranges::find(open_, id, &Question::id) != open_.end();
    };
    std::erase_if(put_off_, [&](std::uint64_t id) { return !is_open(id); });
    choose();
}

void QuestionQueue::choose() {
    const auto is_put_off = [this](const Question& one) {
        return std::ranges::find(put_off_, one.id) != put_off_.end();
    };
    const std::uint64_t before = front_ ? front_->id : 0;
    auto at = std::ranges::find(open_, before, &Question::id);
    if (at == open_.end() || is_put_off(*at))
        at = std::ranges::find_if(open_, [&](const Question& one) { return !is_put_off(one); });
    front_ = at == open_.end() ? std::nullopt : std::optional(*at);
    if ((front_ ? front_->id : 0) != before && tell_) tell_();
}

Done QuestionQueue::answer(const QuestionAnswer& answer) {
    if (!front_) return {Done::Fault::no_question};
    const Question asked = *front_;
    const Done done = engine_.answer(asked.id, answer);
    // A server's login and its key are the same for all jobs that wait for them; a file is not, and a
    // certificate that is not trusted is let pass for one job at a time.
    const bool by_server = asked.kind == QuestionKind::host_key || asked.kind == QuestionKind::credentials;
    for (const Question& one : std::vector<Question>(open_)) {
        const bool same = by_server && one.id != asked.id && one.kind == asked.kind &&
                          one.server == asked.server && one.fingerprint == asked.fingerprint;
        if (same) static_cast<void>(engine_.answer(one.id, answer));  // it may have lapsed
    }
    this->asked(engine_.questions());
    return done;
}

void QuestionQueue::put_off() {
    if (!front_) return;
    put_off_.push_back(front_->id);
    choose();
}

void QuestionQueue::bring_back() {
    put_off_.clear();
    choose();
}

}  // namespace vantlow
